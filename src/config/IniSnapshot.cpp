#include <cstring>
#include <utility>

#include "config/CCfgReader.h"
#include "config/NameHash.h"
#include "support/log/LogFile.h"
#include "support/system/FileTools.h"
#include "support/system/Handles.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr DWORD AppendedBytes = 4;             // a line feed and three zeros
constexpr signed char FirstKeyCharacter = 'A'; // as a signed byte, so bytes from 0x80 up begin no key either
constexpr unsigned char MarkByteLow = 0xFE;
constexpr unsigned char MarkByteHigh = 0xFF;

// A program that does not share the file, a scanner or a backup, mostly closes it soon. One that holds it for long
// costs one such wait every five seconds.
constexpr DWORD HeldWaitMs = 1000;
constexpr DWORD HeldPauseMs = 50;
constexpr DWORD HeldAgainMs = 5000;

constexpr char Missing[] = "is missing";
constexpr char NotOpened[] = "cannot be opened";
constexpr char TooLarge[] = "has 1 MiB or more";
constexpr char NotWhole[] = "cannot be read whole";

constexpr char SectionMark[] = "__SECTION__";
constexpr char LineMark[] = "__LINE__";

static bool IsBlankOrTab(char c) {
    return c == ' ' || c == '\t';
}

static bool IsLineEnd(char c) {
    return c == '\r' || c == '\n';
}

static bool IsByteOrderMark(char c) {
    const auto first = static_cast<unsigned char>(c);
    return first == MarkByteLow || first == MarkByteHigh;
}

namespace {
struct LineExtent {
    char* textEnd; // the first zero byte, or the line end where there is none
    char* lineEnd; // the carriage return or line feed
};
} // namespace

// The text ends in a line feed, which stops every search, so no other bound is tested for each byte.
static LineExtent FindLineEnd(char* at) {
    LineExtent extent{nullptr, nullptr};
    for (;; ++at) {
        if (static_cast<unsigned char>(*at) > '\r') {
            continue;
        }
        if (*at == 0 && extent.textEnd == nullptr) {
            extent.textEnd = at;
        } else if (IsLineEnd(*at)) {
            extent.lineEnd = at;
            if (extent.textEnd == nullptr) {
                extent.textEnd = at;
            }
            return extent;
        }
    }
}

// Whether a mark may be in the value. Nearly every value of a rule holds an underscore, hardly any two in a row, and a
// search by Windows costs as much as all the rest of a line.
static bool MayHoldMark(const char* value, const char* end) {
    while (auto* underscore = static_cast<const char*>(memchr(value, '_', static_cast<size_t>(end - value)))) {
        if (underscore[1] == '_') {
            return true;
        }
        value = underscore + 1;
    }
    return false;
}

// Inserts the section's name and the line's number where the value asks for them. A value never grows, since the next
// line begins right after it: a text longer than its mark is not inserted.
static void ReplaceMarks(char* value, const CfgSection& section, DWORD lineNumber) {
    if (StrStrA(value, SectionMark) != nullptr) {
        ReplaceString(value, SectionMark, section.szKeyName);
    }
    if (StrStrA(value, LineMark) != nullptr) {
        char number[16];
        FormatText(number, "%u", lineNumber);
        ReplaceString(value, LineMark, number);
    }
}

// Returns: false when the section has no room for the line's value, which ends the whole parse.
static bool AddIniValue(CfgSection* section, char* line, DWORD length, DWORD lineNumber) {
    if (section->ValueCount >= MaxSectionValues) {
        WriteLog(2, "CCfgReader::CreateSnapshot max number of values(%i) in section [%s] reached -> abort",
                 MaxSectionValues, section->szKeyName);
        return false;
    }
    auto* equals = static_cast<char*>(memchr(line, '=', length));
    if (equals == nullptr) {
        return true;
    }
    char* value = equals + 1;
    while (*value == ' ') {
        ++value;
    }
    char* keyEnd = equals;
    while (keyEnd > line && IsBlankOrTab(keyEnd[-1])) {
        --keyEnd;
    }
    *keyEnd = 0;
    const DWORD keyHash = NameHash(std::string_view(line, static_cast<size_t>(keyEnd - line)));
    AddSectionValue(section, section->ValueCount, line, keyHash, value);
    WriteLog(3, "  value %s=%s", line, value);
    if (MayHoldMark(value, line + length)) {
        ReplaceMarks(value, *section, lineNumber);
    }
    return true;
}

DWORD CCfgReader::CreateIniSnapshot(const char* reason) {
    DWORD result = 0;
    {
        LockGuard lock(m_lock);
        WriteLog(3, "CCfgReader::CreateSnapshot(%s)...", reason);
        DeleteIniSnapshot(reason);
        result = ReadIniSnapshot();
    }
    WriteLog(3, " CCfgReader::CreateSnapshot");
    return result;
}

DWORD CCfgReader::RenewIniSnapshot(const char* reason) {
    if (GetFileWriteTime(szIniFile) == LastWriteTime) {
        return 0;
    }
    LogFile_ReadSettings();
    DeleteSnapshot(reason);
    return CreateIniSnapshot(reason);
}

void CCfgReader::DeleteIniSnapshot(const char* reason) {
    LockGuard lock(m_lock);
    WriteLog(3, "CCfgReader::DeleteSnapshot(%s)", reason);
    ClearSections();
    delete[] pFileText;
    pFileText = nullptr;
    FileTextSize = 0;
}

DWORD CCfgReader::ReadIniSnapshot() {
    if (!LoadIniText()) {
        return 0;
    }
    if (pFileText != nullptr) {
        DWORD lastLineFeed = FileTextSize - AppendedBytes;
        if (IsByteOrderMark(pFileText[0]) && !ConvertIniText(&lastLineFeed)) {
            delete[] pFileText;
            pFileText = nullptr;
            FileTextSize = 0;
            return 0;
        }
        if (pFileText[0] != 0) {
            ParseIniText(lastLineFeed);
        }
    }
    LastWriteTime = GetFileWriteTime(szIniFile);
    return 1;
}

// Returns: the file, or INVALID_HANDLE_VALUE with the last error. Waits up to HeldWaitMs for a file in use.
HANDLE CCfgReader::OpenIniFile() {
    const DWORD startTick = GetTickCount();
    const bool mayWait = m_heldTicker == 0 || startTick - m_heldTicker >= HeldAgainMs;
    for (;;) {
        HANDLE file = CreateFileA(szIniFile, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
        const LastErrorKeeper error;
        if (file != INVALID_HANDLE_VALUE || error.Error() != ERROR_SHARING_VIOLATION || !mayWait) {
            return file;
        }
        if (GetTickCount() - startTick >= HeldWaitMs) {
            m_heldTicker = GetTickCount();
            return file;
        }
        Sleep(HeldPauseMs);
    }
}

// Returns: 0 when there is no file to be read; 1 also when its contents could not be read whole, pFileText is null
// then.
DWORD CCfgReader::LoadIniText() {
    const OwnedFile file(OpenIniFile());
    if (!file) {
        const DWORD error = GetLastError();
        const bool isMissing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        // Having no file at all is a valid configuration.
        m_wasThere = m_wasThere || !isMissing;
        if (m_wasThere) {
            LogUnreadable(szIniFile, isMissing ? Missing : NotOpened, isMissing ? 0 : error,
                          isMissing ? 0 : GetFileWriteTime(szIniFile));
        }
        return 0;
    }
    m_wasThere = 1;
    DWORD sizeHigh = 0;
    const DWORD size = GetFileSize(file.Get(), &sizeHigh);
    if (size >= IniFileLimitBytes || sizeHigh != 0) {
        LogUnreadable(szIniFile, TooLarge, 0, GetFileWriteTime(szIniFile));
        return 0;
    }
    OwnedArray<char> text(size_t{size} + AppendedBytes);
    DWORD bytesRead = 0;
    const BOOL isRead = ReadFile(file.Get(), text.Get(), size, &bytesRead, nullptr);
    const DWORD error = isRead ? 0 : GetLastError(); // before any other call of Windows
    if (!isRead || bytesRead < size) {
        LogUnreadable(szIniFile, NotWhole, error, GetFileWriteTime(szIniFile));
        return 1;
    }
    m_loggedReason = nullptr;
    memcpy(text.Get() + size, "\n\0\0", AppendedBytes);
    pFileText = text.Release();
    FileTextSize = size + AppendedBytes;
    return 1;
}

// Converts UTF-16 of either byte order to the thread's code page, in place. Only whole words of the contents are
// converted, and the line feed is added again after the result: in a big-endian file, or after an odd byte, the
// appended one would be half a letter and the last line would be lost.
DWORD CCfgReader::ConvertIniText(DWORD* lastLineFeed) {
    WriteLog(1, "ini file appears to be unicode");
    const DWORD roomBytes = FileTextSize - AppendedBytes;
    const DWORD words = roomBytes / sizeof(WCHAR);
    const DWORD wordsAfterMark = words > 1 ? words - 1 : 0;
    if (static_cast<unsigned char>(pFileText[0]) == MarkByteLow ||
        static_cast<unsigned char>(pFileText[1]) == MarkByteHigh) {
        WriteLog(1, " big-endian");
        for (size_t i = 0; i < words; ++i) {
            std::swap(pFileText[2 * i], pFileText[2 * i + 1]);
        }
    }
    int converted = 0;
    if (wordsAfterMark != 0) {
        OwnedArray<WCHAR> wide(size_t{wordsAfterMark});
        memcpy(wide.Get(), pFileText + sizeof(WCHAR), wordsAfterMark * sizeof(WCHAR));
        converted = WideCharToMultiByte(CP_THREAD_ACP, 0, wide.Get(), static_cast<int>(wordsAfterMark), pFileText,
                                        static_cast<int>(roomBytes), nullptr, nullptr);
        if (converted <= 0) {
            WriteLog(1, "conversion failed -> abort");
            return 0;
        }
    }
    pFileText[converted] = '\n';
    pFileText[converted + 1] = 0;
    *lastLineFeed = static_cast<DWORD>(converted);
    return 1;
}

void CCfgReader::ParseIniText(DWORD lastLineFeed) {
    CfgSection* section = nullptr;
    DWORD lineNumber = 1;
    char* next = pFileText;
    for (const char* const last = pFileText + lastLineFeed; next <= last; ++lineNumber) {
        char* line = next;
        const LineExtent extent = FindLineEnd(line);
        next = extent.lineEnd + 1;
        if (IsLineEnd(*next)) {
            ++next;
        }
        char* textEnd = extent.textEnd;
        while (textEnd > line && IsBlankOrTab(textEnd[-1])) {
            --textEnd;
        }
        *textEnd = 0;
        const auto length = static_cast<DWORD>(textEnd - line);
        switch (line[0]) {
        case 0:
        case ';':
        case '#':
            continue;
        case '[':
            if (textEnd[-1] == ']') {
                section = AddIniSection(line, length, section);
                continue;
            }
            break;
        default:
            break;
        }
        if (section == nullptr || static_cast<signed char>(line[0]) < FirstKeyCharacter) {
            continue;
        }
        if (!AddIniValue(section, line, length, lineNumber)) {
            return;
        }
    }
}

// Returns: the section whose values follow: the new one, `current` when the line is ignored, or null when the values
// that follow must be dropped.
CfgSection* CCfgReader::AddIniSection(char* line, DWORD length, CfgSection* current) {
    if (length >= SectionLineLimit || length <= 2) {
        return current;
    }
    char* name = line + 1;
    line[length - 1] = 0;
    char baseName[SectionLineLimit];
    memcpy(baseName, name, length - 1);
    LONG number = NoSectionNumber;
    TakeNumber(baseName, &number, NoSectionNumber);
    const LONG type = FindSectionType(baseName, number);
    if (type < 0) {
        return nullptr;
    }
    WriteLog(3, " section [%s%s] found", baseName, SectionNumberSuffix(number));
    if (number < 0 || number > MaxSectionNumber) {
        WriteLog(1, "section [%s] has a number above %i -> ignored", name, MaxSectionNumber - 1);
        return nullptr;
    }
    if (CfgSections[type][number] != nullptr) {
        WriteLog(1, "section [%s] is defined twice", name);
        return nullptr;
    }
    CfgSection* section = AddSection(type, number);
    section->szKeyName = name;
    return section;
}
