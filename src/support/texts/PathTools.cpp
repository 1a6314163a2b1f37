#include "support/texts/PathTools.h"

#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr size_t MaxExpandLimit = 1024;
constexpr size_t ExpandRoom = 260;
constexpr size_t PathRoom = 1024;
constexpr size_t PathExpandLimit = 260;

static bool IsLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Quotes removed, "." and ".." resolved, variables expanded.
static void NormalizePath(char (&path)[PathRoom]) {
    (void)UnquoteText(path);
    char canonical[MAX_PATH] = {};
    if (TextLength(path) < MAX_PATH && PathCanonicalizeA(canonical, path)) {
        canonical[MAX_PATH - 1] = '\0';
        CopyText(path, canonical);
    }
    (void)ExpandEnvInPlace(path, PathExpandLimit);
}

static bool IsFullPath(const char* path) {
    return (path[0] == '\\' && path[1] == '\\') || (IsLetter(path[0]) && path[1] == ':');
}

void MakeFullPath(const char* path, const char* baseDir, char* out, size_t size) {
    if (path[0] == '\0' || !baseDir) {
        return;
    }
    char full[PathRoom];
    char base[PathRoom];
    const bool fits = TextLength(path) < PathRoom && TextLength(baseDir) < PathRoom;
    CopyText(full, path);
    CopyText(base, baseDir);
    NormalizePath(full);
    NormalizePath(base);
    if (IsFullPath(full)) {
        CopyText(out, size, full);
        return;
    }
    if (full[0] == '\\') {
        const char drive[] = {base[0], ':', '\0'};
        char onDrive[PathRoom + 2];
        CopyText(onDrive, drive);
        AppendText(onDrive, full);
        CopyText(out, size, onDrive);
        return;
    }
    const size_t baseLength = TextLength(base);
    const bool needsBackslash = baseLength == 0 || base[baseLength - 1] != '\\';
    if (!fits || TextLength(full) + baseLength + (needsBackslash ? 1 : 0) >= size) {
        WriteLog(1, "path to long (%s)+(%s)", base, full);
        CopyText(out, size, path);
        return;
    }
    CopyText(out, size, base);
    AppendText(out, size, needsBackslash ? "\\" : "");
    AppendText(out, size, full);
}

int ExpandEnvInPlace(char* text, size_t limit) {
    if (limit > MaxExpandLimit || HasNoneOf(text, "%")) {
        return 0;
    }
    char expanded[ExpandRoom] = {};
    const DWORD needed = ExpandEnvironmentStringsA(text, expanded, sizeof(expanded));
    expanded[sizeof(expanded) - 1] = '\0';
    WriteLog(3, "ExpandEnvironmentStrings n=%i res=%s", static_cast<LONG>(needed), expanded);
    if (needed == 0 || needed > limit || needed > sizeof(expanded)) {
        return 0;
    }
    CopyText(text, limit, expanded);
    return 1;
}

int GetDirectoryOfPath(const char* path, char* out, size_t size) {
    const size_t shortest = 3;
    CopyText(out, size, "");
    const size_t length = TextLength(path);
    if (length < shortest) {
        return 0;
    }
    size_t end = length - 1; // a backslash in the last position does not count
    while (end > 0 && path[end - 1] != '\\') {
        --end;
    }
    if (end == 0) {
        return 0;
    }
    CopyTextPart(out, size, path, end - 1);
    return 1;
}
