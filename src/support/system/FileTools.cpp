#include "support/system/FileTools.h"

#include <cstddef>

#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/texts/BoundedText.h"
#include "support/texts/PathTools.h"
#include "support/texts/StringTools.h"

constexpr size_t MaxExistsPath = 520;
constexpr char ForbiddenInNames[] = ":*?<>|";
constexpr char LongPathPrefix[] = "\\\\?\\";
constexpr char ZoneStream[] = "Zone.Identifier";

// Whether a path holds characters that no file name has. The check starts after the drive's colon.
static bool HasForbiddenChars(const char* path) {
    const size_t prefixLength = sizeof(LongPathPrefix) - 1;
    const size_t driveLength = 2;
    const size_t length = TextLength(path);
    size_t start = driveLength;
    if (CountSameStart(LongPathPrefix, path) == prefixLength) {
        start = prefixLength + driveLength;
    }
    return start < length && !HasNoneOf(path + start, ForbiddenInNames);
}

// Removes the mark from one file. Returns: 1 if there was one and it is gone.
static int RemoveZoneIdentifier(const char* folder, const char* file) {
    char stream[MAX_PATH * 2 + sizeof(ZoneStream)];
    FormatText(stream, "%s\\%s:%s", folder, file, ZoneStream);
    return CanOpen(stream) && DeleteFileA(stream);
}

int FileExists(const char* path) {
    const size_t uncheckedLength = 3;
    const size_t length = TextLength(path);
    if (length == 0) {
        return 0;
    }
    if (length > uncheckedLength && HasForbiddenChars(path)) {
        WriteLog(3, " invalid file name");
        return 0;
    }
    if (length > MaxExistsPath) {
        return 0;
    }
    char name[MaxExistsPath + 1];
    CopyText(name, path);
    (void)UnquoteText(name);
    (void)ExpandEnvInPlace(name, MaxExistsPath);
    if (GetFileAttributesA(name) != INVALID_FILE_ATTRIBUTES) {
        return 1;
    }
    return GetLastError() == ERROR_ACCESS_DENIED; // a file without read access still exists
}

int CanOpen(const char* path) {
    WriteLog(3, "CanOpen(%s)...", path);
    OwnedFile file(CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                               OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file) {
        WriteLog(3, " err=%s", LastErrorName());
        return 0;
    }
    file.Reset();
    WriteLog(3, " ok");
    return 1;
}

int IsFolder(const char* path) {
    char name[MaxExistsPath + 1];
    if (CopyText(name, path) < TextLength(path)) {
        return 0; // if cut, it would name something else
    }
    (void)UnquoteText(name);
    const DWORD attributes = GetFileAttributesA(name);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

ULONGLONG GetFileWriteTime(const char* path) {
    FILETIME written = {};
    OwnedFile file(CreateFileA(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file && !GetFileTime(file.Get(), nullptr, nullptr, &written)) {
        written = {};
    }
    file.Reset();
    WriteLog(4, "GetFileWriteTime(%s) = %08X,%08X", path, written.dwHighDateTime, written.dwLowDateTime);
    return (static_cast<ULONGLONG>(written.dwHighDateTime) << 32) | written.dwLowDateTime;
}

int RemoveZoneIdentifiers(const char* folder) {
    char directory[MAX_PATH];
    CopyText(directory, folder);
    RemoveTrailingChar(directory, '\\');
    (void)ExpandEnvInPlace(directory, sizeof(directory));

    char pattern[MAX_PATH + 2];
    FormatText(pattern, "%s\\*", directory);
    WIN32_FIND_DATAA entry;
    const OwnedFind search(FindFirstFileA(pattern, &entry));
    if (!search) {
        return 0;
    }
    int removed = 0;
    do {
        if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && RemoveZoneIdentifier(directory, entry.cFileName)) {
            removed = 1;
        }
    } while (FindNextFileA(search.Get(), &entry));
    return removed;
}
