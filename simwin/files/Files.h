// The machine's files: drives with folders, files and their streams. The other rooms and the rehearsal create and read
// them here by full paths such as 'C:\Tools\term.exe', bypassing attributes, sharing and access; the product's
// operations are in FilesApi.cpp. Names keep the spelling of their creator and compare without regard to case.
#pragma once

#include "simwin/kernel/Objects.h"
#include "simwin/kernel/Room.h"
#include "simwin/kernel/Text.h"
#include "simwin/kernel/types.h"
#include "simwin/registry/Security.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

// A file or a folder. Streams belong to their file and share its times and access.
struct FileNode {
    std::string name; // with its spelling
    FileNode* parent = nullptr;
    bool folder = false;
    simwin::DWORD attributes = 0; // of a file, without FILE_ATTRIBUTE_DIRECTORY
    std::string content;
    std::string link;   // the full path that opening it leads to; "" no link
    unsigned names = 1; // how many folders list this file
    std::uint64_t createdTime = 0, writeTime = 0;
    std::map<std::string, std::shared_ptr<FileNode>, NoCaseLess> entries; // of a folder
    std::map<std::string, std::shared_ptr<FileNode>, NoCaseLess> streams; // of a file
    std::vector<std::string> refusedAccounts; // who may not access it or anything below it: account names, or "*"
    std::shared_ptr<const SecurityDescriptor> security;
    bool deletePending = false; // deleted with its last handle; until then opening it is refused
    std::string fileVersion;    // of a system library or program, "10.0.19041.1"; "" none

    // The open handles: the rights of each and what each lets others do.
    struct Holder {
        simwin::DWORD access, share;
    };
    std::vector<const Holder*> holders;

    std::string Path() const;
};

// A simulated device or pipe behind a file handle, created by the opener. Notified once, when the last handle closes;
// deleted with the file object. Read and Write may block; they give an error code and how many bytes were moved.
struct OpenDevice {
    virtual ~OpenDevice() = default;
    virtual void Closed() {}
    virtual simwin::DWORD Read(void* buffer, simwin::DWORD bytes, simwin::DWORD* moved);
    virtual simwin::DWORD Write(const void* data, simwin::DWORD bytes, simwin::DWORD* moved);
    std::string name; // as it was opened
};

// An open file, as a handle of CreateFileA refers to it.
struct OpenFile : Object {
    OpenFile() : Object(ObjectKind::File) {}
    void LastHandleClosed() override;

    std::shared_ptr<FileNode> node; // null for a device
    FileNode::Holder holder{0, 0};
    std::uint64_t position = 0;
    std::unique_ptr<OpenDevice> device; // null for a file
};

// Opens names of devices. Returns: the device, or null with the error. It may block, so it keeps nothing with a
// destructor on its stack meanwhile.
using DeviceOpener = std::function<std::unique_ptr<OpenDevice>(
    const char* name, simwin::DWORD access, simwin::DWORD share, simwin::DWORD flags, simwin::DWORD* error)>;
void SetDeviceOpener(DeviceOpener opener);
void SetPipeOpener(DeviceOpener opener); // those of pipes
void SetPipeOpener(DeviceOpener opener); // names below \\.\pipe

// A drive by its letter. Other kinds than a local disk: described for tests of "must lie on a local drive".
struct Drive {
    simwin::UINT type = 3;      // DRIVE_FIXED
    std::string substitutedFor; // a folder that the letter represents; "" a real drive
    std::uint64_t freeBytes = ~0ull;
};

class Files {
public:
    Files();

    FileNode* Find(std::string_view path); // null if it does not exist
    // Creates or replaces the text of a file, with all missing folders. The write time moves, also with the same text.
    FileNode* Write(std::string_view path, std::string_view content);
    FileNode* MakeFolder(std::string_view path);
    std::optional<std::string> Read(std::string_view path);
    bool Exists(std::string_view path) { return Find(path) != nullptr; }
    bool Delete(std::string_view path); // a folder with all in it
    // Who is refused with 5 when opening it: account names, or "*" for everybody.
    void Refuse(std::string_view path, std::string_view account);

    Drive& SetDrive(char letter, const Drive& drive);
    const Drive* FindDrive(char letter) const;
    FileNode* DriveRoot(char letter);
    // Resolves the links in a full path; `last`: also in its last name.
    std::string ThroughLinks(std::string path, bool last);
    // Removes a file or an empty folder from its folder, even if in use; moves it to another place.
    void Unlink(FileNode* node);
    bool Move(FileNode* node, std::string_view to);
    // The whole path of a name seen from a folder; "" if it is not a path.
    std::string FullPath(std::string_view path, std::string_view currentDirectory) const;
    // Counts bytes that a write adds to a drive (or takes back); false if they do not fit.
    bool Grow(const FileNode* node, std::int64_t bytes);

private:
    FileNode* AddEntry(FileNode* folder, std::string_view name, bool isFolder, std::string_view owner);

    std::map<char, Drive> m_drives;
    std::map<char, std::shared_ptr<FileNode>> m_roots;
};

// A parsed path: full, backslashes, no "." and "..", no backslash at the end except a drive's, substituted drives
// resolved. `stream` is what follows a colon in the last name.
struct ParsedPath {
    std::string full, stream;
    bool endsInBackslash = false;
    simwin::DWORD error = 0; // 123 not a name, 53 another computer's
};
ParsedPath ParsePath(std::string_view path, std::string_view currentDirectory);
std::string FolderOfPath(std::string_view fullPath); // "" of a drive's root
std::string NameOfPath(std::string_view fullPath);

Files& TheFiles();

// Wildcards as FindFirstFileA takes them: "*.*" is everything.
bool MatchesFilePattern(std::string_view name, std::string_view pattern);

// Reads a settings file as GetPrivateProfileStringA does, from its text: for the machine itself.
std::optional<std::string> ProfileValue(std::string_view text, std::string_view section, std::string_view key);
// Replaces the file's text for the profile functions, or nothing: the rehearsal's own log settings.
using ProfileOverride =
    std::function<std::optional<std::string>(const std::string& file, std::string_view section, std::string_view key)>;
void SetProfileOverride(ProfileOverride source);

// Whether the running thread may run this file, or see what is in this folder.
bool MayExecute(const FileNode* node);
bool MayListFolder(const FileNode* folder);
simwin::DWORD AttributesOf(const FileNode* node);        // as Windows returns them: NORMAL if there is no other
inline simwin::FILETIME ToFileTime(std::uint64_t time) { // 100 ns since 1601, like FILETIME
    return {static_cast<simwin::DWORD>(time), static_cast<simwin::DWORD>(time >> 32)};
}

// The drive C: with the folders and programs of Windows and the product.
RoomPtr MakeFiles();

} // namespace machine
