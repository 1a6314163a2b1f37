#include "rehearse/host/Files.h"

#include "rehearse/host/WindowsText.h"

#include <algorithm>
#include <memory>

#include <windows.h>

namespace rehearse {

static constexpr std::size_t LongFrom = 240; // below the 248 characters that a folder's path may have
static constexpr int Attempts = 20;          // a virus scanner may hold a new file for a moment
static constexpr DWORD AttemptMs = 50;
static constexpr wchar_t Device[] = L"\\\\?\\", Share[] = L"UNC\\";

std::wstring WideText(std::string_view text) {
    const int bytes = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, wide.data(), bytes);
    wide.resize(static_cast<std::size_t>(units));
    return wide;
}

std::string Utf8Text(std::wstring_view text) {
    constexpr std::size_t MostBytes = 3; // of one unit
    const int units = static_cast<int>(text.size());
    std::string utf8(text.size() * MostBytes, '\0');
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, utf8.data(), static_cast<int>(utf8.size()),
                                          nullptr, nullptr);
    utf8.resize(static_cast<std::size_t>(bytes));
    return utf8;
}

// As people write it: without the mark by which the system takes a path unchanged.
static std::wstring Plain(const std::wstring& path) {
    const std::wstring share = std::wstring(Device) + Share;
    if (path.starts_with(share)) {
        return L"\\\\" + path.substr(share.size());
    }
    const std::size_t drive = std::size(Device) - 1;
    const bool isDrive = path.starts_with(Device) && path.size() > drive + 1 && path[drive + 1] == L':';
    return isDrive ? path.substr(drive) : path;
}

// What keeps that mark may have neither slashes nor steps upwards.
static std::wstring FullPath(std::wstring path) {
    std::replace(path.begin(), path.end(), L'/', L'\\');
    path = Plain(path);
    if (path.starts_with(Device)) {
        return path;
    }
    const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring full(size, L'\0');
    full.resize(GetFullPathNameW(path.c_str(), size, full.data(), nullptr));
    return full.empty() ? path : full;
}

// As the system takes it: without this mark no path is longer than 260 characters unless the machine's policy says so.
static std::wstring Native(const std::string& path) {
    const std::wstring full = FullPath(WideText(path));
    if (full.size() < LongFrom || full.starts_with(Device)) {
        return full;
    }
    return full.starts_with(L"\\\\") ? std::wstring(Device) + Share + full.substr(2) : Device + full;
}

std::string SystemText(std::uint32_t code) {
    wchar_t text[256] = {};
    const DWORD size = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                                      text, static_cast<DWORD>(std::size(text)), nullptr);
    std::wstring_view words(text, size);
    while (!words.empty() && (words.back() <= L' ' || words.back() == L'.')) {
        words.remove_suffix(1);
    }
    return words.empty() ? "error " + std::to_string(code) : Utf8Text(words);
}

FileKind KindOfFile(const std::string& path) {
    const DWORD attributes = GetFileAttributesW(Native(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return FileKind::None;
    }
    return attributes & FILE_ATTRIBUTE_DIRECTORY ? FileKind::Folder : FileKind::File;
}

std::string RealPath(const std::string& path) {
    const auto close = [](void* handle) { CloseHandle(handle); };
    constexpr DWORD Shared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    HANDLE handle =
        CreateFileW(Native(path).c_str(), 0, Shared, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return "";
    }
    const std::unique_ptr<void, decltype(close)> owner(handle, close);
    const DWORD size = GetFinalPathNameByHandleW(handle, nullptr, 0, FILE_NAME_NORMALIZED);
    std::wstring real(size, L'\0');
    real.resize(std::min(size, GetFinalPathNameByHandleW(handle, real.data(), size, FILE_NAME_NORMALIZED)));
    // A file system of its own kind may not know the name: then the path as it was given.
    return Utf8Text(Plain(real.empty() ? FullPath(WideText(path)) : real));
}

static std::string Folded(const std::string& path) {
    const std::wstring wide = WideText(path);
    std::wstring lower = wide; // as many units as before
    const int units = static_cast<int>(wide.size());
    LCMapStringW(LOCALE_INVARIANT, LCMAP_LOWERCASE, wide.data(), units, lower.data(), units);
    return Utf8Text(lower);
}

std::string KeyOfFile(const std::string& path) {
    std::string real = RealPath(path);
    if (real.empty()) {
        const std::string full = Utf8Text(FullPath(WideText(path)));
        std::string folder = RealPath(FolderOfPath(full));
        real = folder.empty() ? full : folder + (folder.ends_with('\\') ? "" : "\\") + NameOfPath(full);
    }
    return Folded(real);
}

static std::vector<std::string> PartsOf(const std::string& path) {
    std::string full = RealPath(path);
    if (full.empty()) {
        full = Utf8Text(FullPath(WideText(path)));
    }
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= full.size();) {
        const std::size_t end = std::min(full.find('\\', at), full.size());
        if (end > at) {
            parts.push_back(full.substr(at, end - at));
        }
        at = end + 1;
    }
    return parts;
}

std::string PathBetween(const std::string& from, const std::string& to) {
    const std::vector<std::string> base = PartsOf(from), target = PartsOf(to);
    std::size_t shared = 0;
    while (shared < std::min(base.size(), target.size()) && Folded(base[shared]) == Folded(target[shared])) {
        ++shared;
    }
    if (shared == 0) {
        return to; // on another drive
    }
    std::string path;
    const auto add = [&path](const std::string& part) { path += (path.empty() ? "" : "/") + part; };
    for (std::size_t i = shared; i < base.size(); ++i) {
        add("..");
    }
    for (std::size_t i = shared; i < target.size(); ++i) {
        add(target[i]);
    }
    return path.empty() ? "." : path;
}

std::vector<FolderEntry> ListFolder(const std::string& path, std::string& error) {
    std::vector<FolderEntry> entries;
    const auto close = [](void* handle) { FindClose(handle); };
    WIN32_FIND_DATAW found = {};
    HANDLE handle = FindFirstFileW(Native(InFolder(path, "*")).c_str(), &found);
    if (handle == INVALID_HANDLE_VALUE) {
        error = SystemText(GetLastError());
        return entries;
    }
    const std::unique_ptr<void, decltype(close)> owner(handle, close);
    do {
        const std::wstring_view name = found.cFileName;
        if (name == L"." || name == L"..") {
            continue;
        }
        const bool isLink =
            found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT && IsReparseTagNameSurrogate(found.dwReserved0);
        entries.push_back({Utf8Text(name), (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0, isLink});
    } while (FindNextFileW(handle, &found));
    if (const DWORD code = GetLastError(); code != ERROR_NO_MORE_FILES) {
        error = SystemText(code);
    }
    return entries;
}

static DWORD MakeFolder(const std::string& path) {
    if (CreateDirectoryW(Native(path).c_str(), nullptr)) {
        return ERROR_SUCCESS;
    }
    const DWORD code = GetLastError();
    return IsFolder(path) ? ERROR_SUCCESS : code;
}

bool MakeFolders(const std::string& path, std::string& error) {
    DWORD code = IsFolder(path) ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
    for (std::size_t at = 0; code != ERROR_SUCCESS && at < path.size();) {
        at = std::min(path.find_first_of("/\\", at + 1), path.size());
        const DWORD made = MakeFolder(path.substr(0, at)); // a drive or a share itself cannot be made
        code = at == path.size() ? made : code;
    }
    if (code != ERROR_SUCCESS) {
        error = SystemText(code);
    }
    return code == ERROR_SUCCESS;
}

bool MoveOver(const std::string& from, const std::string& to) {
    const std::wstring source = Native(from), target = Native(to);
    for (int i = 0; i < Attempts; ++i) {
        if (MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING)) {
            return true;
        }
        const DWORD code = GetLastError();
        if (code != ERROR_SHARING_VIOLATION && code != ERROR_ACCESS_DENIED) {
            return false;
        }
        Sleep(AttemptMs);
    }
    return false;
}

void RemoveFile(const std::string& path) {
    DeleteFileW(Native(path).c_str());
}

FileLock::~FileLock() {
    if (m_file != -1) {
        CloseHandle(reinterpret_cast<HANDLE>(m_file));
    }
}

bool FileLock::Take(const std::string& path) {
    constexpr DWORD NotShared = 0;
    m_file = reinterpret_cast<std::intptr_t>(CreateFileW(Native(path).c_str(), GENERIC_WRITE, NotShared, nullptr,
                                                         OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    return m_file != -1 || GetLastError() != ERROR_SHARING_VIOLATION;
}

std::filesystem::path StreamPath(const std::string& path) {
    return Native(path);
}

} // namespace rehearse
