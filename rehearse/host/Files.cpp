#include "rehearse/host/Files.h"

#include <algorithm>

namespace rehearse {

static constexpr bool IsWindows = std::filesystem::path::preferred_separator != '/';
static constexpr const char* Separators = IsWindows ? "/\\:" : "/"; // D:name is in the present folder of that drive

bool IsAbsolutePath(std::string_view path) {
    return path.starts_with('/') || (IsWindows && (path.starts_with('\\') || path.substr(0, 2).ends_with(':')));
}

static std::size_t NameAt(std::string_view path) {
    const std::size_t last = path.find_last_of(Separators);
    return last == std::string_view::npos ? 0 : last + 1;
}

std::string NameOfPath(std::string_view path) {
    return std::string(path.substr(NameAt(path)));
}

std::string FolderOfPath(std::string_view path) {
    return std::string(path.substr(0, NameAt(path)));
}

std::string InFolder(std::string_view folder, std::string_view name) {
    const bool isOpen = folder.empty() || NameAt(folder) == folder.size();
    return std::string(folder) + (isOpen ? "" : "/") + std::string(name);
}

bool IsFile(const std::string& path) {
    return KindOfFile(path) == FileKind::File;
}

bool IsFolder(const std::string& path) {
    return KindOfFile(path) == FileKind::Folder;
}

std::vector<std::string> NamesInFolder(const std::string& folder) {
    std::vector<std::string> names;
    std::string error;
    for (FolderEntry& entry : ListFolder(folder, error)) {
        names.push_back(std::move(entry.name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace rehearse
