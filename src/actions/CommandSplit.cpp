#include "actions/CommandSplit.h"

#include "support/system/FileTools.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"
#include "support/texts/PathTools.h"
#include "support/texts/StringTools.h"

constexpr INT_PTR FindFailed = 32; // FindExecutableA gives a number above this one for success
constexpr INT_PTR TextTooLong = 8;
constexpr size_t LongestFound = 1024; // longest text passed to FindExecutableA
constexpr size_t LongestToQuote = 257;
constexpr size_t LongestQuotedProgram = 259;
constexpr size_t LongestToWalk = 1023;
constexpr size_t FullPathRoom = 1024;

using LineText = char[MaxCommandLine + 1];

namespace {
// A line taken apart, before the program is looked up.
struct LineParts {
    LineText program;
    LineText params;
};

// What a split found.
struct SplitResult {
    char exe[MAX_PATH];
    char program[FullPathRoom]; // the document that exe opens, else the same as exe
    char params[MaxProgramParams];
};
} // namespace

constexpr const char* Blanks = " \t";

static bool IsOnDisk(const char* path) {
    return GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

static const char* ExtensionOf(const char* path) {
    const char* extension = "";
    for (; *path != '\0'; ++path) {
        if (*path == '\\' || *path == '/') {
            extension = "";
        } else if (*path == '.') {
            extension = path + 1;
        }
    }
    return extension;
}

static bool HasExtension(const char* path, const char* first, const char* second) {
    LineText plain;
    CopyText(plain, path);
    (void)UnquoteText(plain);
    const char* extension = ExtensionOf(plain);
    return IsSameNoCase(extension, first) || IsSameNoCase(extension, second);
}

int IsExeOrCom(const char* path) {
    return HasExtension(path, "exe", "com") ? 1 : 0;
}

static bool IsScript(const char* path) {
    const char* name = path;
    for (const char* at = path; *at != '\0'; ++at) {
        name = *at == '\\' ? at + 1 : name;
    }
    return HasExtension(path, "cmd", "bat") || IsSameNoCase(name, "cmd.exe");
}

INT_PTR FindExecutableQuoted(const char* file, const char* dir, char (&found)[MAX_PATH]) {
    found[0] = '\0';
    const size_t length = TextLength(file);
    if (length > LongestFound) {
        return TextTooLong;
    }
    char quoted[LongestFound + 3];
    CopyText(quoted, file);
    if (length <= LongestToQuote) {
        QuoteText(quoted);
    }
    const auto result = reinterpret_cast<INT_PTR>(FindExecutableA(quoted, dir, found));
    found[MAX_PATH - 1] = '\0';
    if (result <= FindFailed) {
        found[0] = '\0';
    }
    return result;
}

// A document that exists is kept, or its program would be started without it. Anything else that the shell found under
// a shorter name is accepted.
static void TakeFound(const char* typed, const char* baseDir, const char* found, LineText& program) {
    char full[FullPathRoom] = {};
    MakeFullPath(typed, baseDir, full);
    if (IsExeOrCom(typed) != 0 || !IsOnDisk(full)) {
        CopyText(program, found);
    } else {
        CopyText(program, typed);
    }
}

// Looks for the longest beginning of the untrimmed text that ends at a blank and names a program or document. If there
// is none, the parts are unchanged.
static void WalkBack(const char* commandLine, const char* baseDir, LineParts* parts) {
    LineText beginning;
    CopyText(beginning, commandLine);
    for (size_t at = TextLength(beginning); at > 1; --at) {
        if (commandLine[at - 1] != ' ') {
            continue;
        }
        beginning[at - 1] = '\0';
        char found[MAX_PATH];
        if (FindExecutableQuoted(beginning, baseDir, found) > FindFailed) {
            (void)StrTrimA(beginning, Blanks);
            TakeFound(beginning, baseDir, found, parts->program);
            CopyText(parts->params, commandLine + at);
            return;
        }
    }
}

// Returns: false for a line that is too long to search.
static bool TakeApart(const char* commandLine, const char* baseDir, LineParts* parts) {
    LineText trimmed;
    CopyText(trimmed, commandLine);
    (void)StrTrimA(trimmed, Blanks);
    const char* params = PathGetArgsA(trimmed);
    parts->params[0] = '\0';
    CopyText(parts->program, trimmed);
    if (*params == '\0' || IsOnDisk(trimmed)) {
        return true;
    }
    CopyText(parts->params, params);
    parts->program[params - trimmed] = '\0';
    (void)StrTrimA(parts->program, Blanks);
    if (TextLength(parts->program) > LongestQuotedProgram) {
        (void)UnquoteText(parts->program);
    }
    char found[MAX_PATH];
    if (FindExecutableQuoted(parts->program, baseDir, found) > FindFailed) {
        LineText typed;
        CopyText(typed, parts->program);
        TakeFound(typed, baseDir, found, parts->program);
        return true;
    }
    if (TextLength(commandLine) > LongestToWalk) {
        return false;
    }
    WalkBack(commandLine, baseDir, parts);
    return true;
}

// Looks the program up. Returns: false if there is none, or the parameters would be cut.
static bool LookUp(const LineParts& parts, const char* baseDir, SplitResult* result) {
    LineText program;
    CopyText(program, parts.program);
    char full[FullPathRoom] = {};
    MakeFullPath(program, baseDir, full);
    if (IsOnDisk(full)) {
        CopyText(program, full);
    }
    if (FindExecutableQuoted(program, baseDir, result->exe) <= FindFailed) {
        return false;
    }
    CopyText(result->program, program);
    result->params[0] = '\0';
    const bool isDocument = IsExeOrCom(program) == 0 && !StrStrIA(result->exe, program);
    if (isDocument) {
        QuoteText(program);
        AppendText(result->params, program);
        AppendText(result->params, parts.params[0] != '\0' ? " " : "");
    }
    // A cut could fall inside a quoted argument.
    if (TextLength(result->params) + TextLength(parts.params) >= MaxProgramParams) {
        return false;
    }
    AppendText(result->params, parts.params);
    return true;
}

static bool Split(const char* commandLine, const char* baseDir, SplitResult* result) {
    LineParts parts;
    return TextLength(commandLine) <= MaxCommandLine && TakeApart(commandLine, baseDir, &parts) &&
           LookUp(parts, baseDir, result);
}

static int GiveSplit(bool isSplit, const SplitResult& result, char (&exe)[MAX_PATH], char (&params)[MaxProgramParams]) {
    CopyText(exe, isSplit ? result.exe : "");
    CopyText(params, isSplit ? result.params : "");
    return isSplit ? 1 : 0;
}

int SplitCommandLine(const char* commandLine, const char* baseDir, char (&exe)[MAX_PATH],
                     char (&params)[MaxProgramParams]) {
    (void)SetCurrentDirectoryA(szWindowsDir); // otherwise a relative text would depend on the previous split
    SplitResult result;
    return GiveSplit(Split(commandLine, baseDir ? baseDir : "", &result), result, exe, params);
}

// The program part of a line whose program holds placeholders: its first word, or all if the placeholders come later.
static size_t ProgramPartLength(const char* configured) {
    size_t length = static_cast<size_t>(PathGetArgsA(configured) - configured);
    for (size_t i = 0; i < length; ++i) {
        if (configured[i] == '%') {
            return length;
        }
    }
    return TextLength(configured);
}

namespace {
// What device values lose before the line is split.
struct Reading {
    bool forScript;     // what cmd.exe evaluates
    bool headIsProgram; // what leads to another folder or drive, in the part that names the program
    bool tailIsProgram; // the same after it
};
} // namespace

// Inserts the values and splits. named: the program that the configured line names without them, or null.
static bool SplitExpanded(const CComPort& port, const char* configured, const LineParts* named, const Reading& reading,
                          const char* baseDir, SplitResult* result) {
    if (named) {
        LineParts parts = *named;
        return ExpandPortVariables(port, parts.params, MaxCommandLine, {reading.forScript, /*inProgramPart=*/false}) &&
               LookUp(parts, baseDir, result);
    }
    LineText head;
    LineText tail;
    const size_t headLength = ProgramPartLength(configured);
    CopyTextPart(head, sizeof(head), configured, headLength);
    CopyText(tail, configured + headLength);
    if (!ExpandPortVariables(port, head, MaxCommandLine, {reading.forScript, reading.headIsProgram}) ||
        !ExpandPortVariables(port, tail, MaxCommandLine - TextLength(head),
                             {reading.forScript, reading.tailIsProgram})) {
        return false;
    }
    AppendText(head, tail);
    return Split(head, baseDir, result);
}

static bool IsSameProgram(const SplitResult& one, const SplitResult& other) {
    return IsSameNoCase(one.exe, other.exe) && IsSameNoCase(one.program, other.program);
}

int SplitPortCommandLine(const CComPort& port, const char* configured, UserType userType, const char* baseDir,
                         char (&exe)[MAX_PATH], char (&params)[MaxProgramParams]) {
    (void)SetCurrentDirectoryA(szWindowsDir);
    const char* base = baseDir ? baseDir : "";
    LineText trimmed;
    CopyText(trimmed, configured);
    (void)StrTrimA(trimmed, Blanks);
    const bool isPrivileged = userType == UserType::system || userType == UserType::elev;
    // Split before the values are inserted: otherwise "tool.exe %Location%" as a whole could name a file.
    LineParts parts;
    SplitResult result;
    const bool isNamed = TakeApart(trimmed, base, &parts) && LookUp(parts, base, &result);
    const LineParts* named = isNamed ? &parts : nullptr;
    bool isSplit = SplitExpanded(port, trimmed, named, {false, isPrivileged, false}, base, &result);
    if (isSplit && isPrivileged && !isNamed) {
        // The search for a path with blanks may include a value from after the first word, "x\..\..\y.exe", in the
        // program.
        SplitResult harmless;
        isSplit = SplitExpanded(port, trimmed, named, {false, true, true}, base, &harmless) &&
                  IsSameProgram(harmless, result);
    }
    if (isSplit && (IsScript(result.exe) || IsScript(result.program))) {
        SplitResult stricter;
        isSplit = SplitExpanded(port, trimmed, named, {true, isPrivileged, false}, base, &stricter) &&
                  IsSameProgram(stricter, result);
        result = stricter;
    }
    return GiveSplit(isSplit, result, exe, params);
}
