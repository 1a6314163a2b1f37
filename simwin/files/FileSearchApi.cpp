#include "simwin/files/Files.h"
#include "simwin/files/api.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"

#include <algorithm>
#include <cstring>

namespace machine {

using simwin::BOOL;
using simwin::DWORD;

namespace {
// A search that was opened with FindFirstFileA: the entries as they were then.
struct FileSearch : Object {
    FileSearch() : Object(ObjectKind::FindFile) {}
    std::vector<simwin::WIN32_FIND_DATAA> found;
    std::size_t next = 0;
};
} // namespace

static simwin::WIN32_FIND_DATAA FindData(const FileNode* node, const char* name) {
    simwin::WIN32_FIND_DATAA data = {};
    data.dwFileAttributes = AttributesOf(node);
    data.ftCreationTime = ToFileTime(node->createdTime);
    data.ftLastWriteTime = data.ftLastAccessTime = ToFileTime(node->writeTime);
    data.nFileSizeLow = static_cast<DWORD>(node->content.size());
    const std::size_t length = std::min(strlen(name), sizeof data.cFileName - 1);
    memcpy(data.cFileName, name, length);
    return data;
}

// Names of devices that are in every folder.
static bool IsDosDevice(std::string_view name) {
    for (const char* device : {"con", "prn", "aux", "nul"}) {
        if (EqualNoCase(name, device)) {
            return true;
        }
    }
    return name.size() == 4 && name[3] >= '1' && name[3] <= '9' &&
           (StartsWithNoCase(name, "com") || StartsWithNoCase(name, "lpt"));
}

static simwin::WIN32_FIND_DATAA DeviceData(std::string_view name) {
    simwin::WIN32_FIND_DATAA data = {};
    data.dwFileAttributes = simwin::FILE_ATTRIBUTE_ARCHIVE;
    memcpy(data.cFileName, name.data(), name.size());
    return data;
}

} // namespace machine

namespace simwin {

using namespace machine;

HANDLE FindFirstFileA(LPCSTR pattern, WIN32_FIND_DATAA* data) {
    SIM_CALL("FindFirstFileA", pattern, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED);
    if (simCall.error) {
        return FailOpen(simCall.error);
    }
    // The last name may hold wildcards, so the folder is looked up separately.
    std::string text = pattern ? pattern : "";
    std::replace(text.begin(), text.end(), '/', '\\');
    const std::size_t slash = text.rfind('\\');
    const std::string wanted = text.substr(slash == std::string::npos ? 0 : slash + 1);
    const std::string folderName = slash == std::string::npos ? "." : text.substr(0, slash + 1);
    const ParsedPath folderPath = ParsePath(folderName, CurrentProcess()->currentDirectory);
    const FileNode* folder = folderPath.error ? nullptr : TheFiles().Find(folderPath.full);
    if (!folder || !folder->folder) {
        return FailOpen(folderPath.error ? folderPath.error : DWORD{ERROR_PATH_NOT_FOUND});
    }
    if (wanted.empty()) {
        return FailOpen(ERROR_FILE_NOT_FOUND);
    }
    if (!MayListFolder(folder)) {
        return FailOpen(ERROR_ACCESS_DENIED);
    }
    std::vector<WIN32_FIND_DATAA> entries;
    if (IsDosDevice(wanted)) {
        entries.push_back(DeviceData(wanted));
    }
    for (const char* dots : {".", ".."}) {
        if (folder->parent && MatchesFilePattern(dots, wanted)) {
            entries.push_back(FindData(folder, dots));
        }
    }
    for (const auto& [name, node] : folder->entries) {
        if (MatchesFilePattern(node->name, wanted)) {
            entries.push_back(FindData(node.get(), node->name.c_str()));
        }
    }
    if (entries.empty()) {
        return FailOpen(ERROR_FILE_NOT_FOUND);
    }
    auto* search = new FileSearch;
    search->found = std::move(entries);
    *data = search->found[search->next++];
    return CurrentProcess()->handles.Open(search);
}

BOOL FindNextFileA(HANDLE find, WIN32_FIND_DATAA* data) {
    SIM_CALL("FindNextFileA", "", ERROR_INVALID_HANDLE);
    if (simCall.error) {
        return Fail(simCall.error);
    }
    auto* search = FromHandle<FileSearch>(find, ObjectKind::FindFile);
    if (!search) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    if (search->next == search->found.size()) {
        return Fail(ERROR_NO_MORE_FILES);
    }
    *data = search->found[search->next++];
    return TRUE;
}

BOOL FindClose(HANDLE find) {
    SIM_CALL("FindClose", "");
    if (!FromHandle<FileSearch>(find, ObjectKind::FindFile)) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    CurrentProcess()->handles.Close(find);
    return TRUE;
}

} // namespace simwin
