// The host's files and the texts of their paths. Paths are UTF-8 on every system; on Windows they may be those of a
// share or longer than 260 characters, which the standard library's own path operations there do not cope with. Plain
// types: Windows' own headers and the machine's cannot meet in one file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace rehearse {

// --- Texts, whether or not there is such a file

bool IsAbsolutePath(std::string_view path);
std::string NameOfPath(std::string_view path);   // what follows the last separator
std::string FolderOfPath(std::string_view path); // up to the last separator and with it; "" if there is none
std::string InFolder(std::string_view folder, std::string_view name);

// --- Questions to the system. Links are followed.

enum class FileKind { None, File, Pipe, Folder, Other };
FileKind KindOfFile(const std::string& path);
bool IsFile(const std::string& path);
bool IsFolder(const std::string& path);

// Absolute and without links; "" if there is no such file.
std::string RealPath(const std::string& path);
// One text for one file, there or not yet, only to be compared.
std::string KeyOfFile(const std::string& path);
// What leads from one folder to a file or folder, with slashes.
std::string PathBetween(const std::string& from, const std::string& to);

struct FolderEntry {
    std::string name;
    bool isFolder = false;
    bool isLink = false;
};
// Unsorted. error: the system's words if not all could be listed, else as it was.
std::vector<FolderEntry> ListFolder(const std::string& path, std::string& error);
std::vector<std::string>
NamesInFolder(const std::string& folder); // in the order of their bytes; of what cannot be listed none

// --- Changes

bool MakeFolders(const std::string& path, std::string& error); // with those above it; error: as in ListFolder
bool MoveOver(const std::string& from, const std::string& to);
void RemoveFile(const std::string& path); // nothing if it cannot

// A file that one process has at a time, and that so stands for something larger. The system takes it back at the end
// of the process, however that ends.
class FileLock {
public:
    FileLock() = default;
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    // Makes the file, which stays. Once. False: another one has it. True also where nothing can be locked.
    bool Take(const std::string& path);

private:
    std::intptr_t m_file = -1;
};

// The path as a stream opens it.
std::filesystem::path StreamPath(const std::string& path);

} // namespace rehearse
