#include "support/texts/StringTools.h"

#include "support/texts/BoundedText.h"

constexpr DWORD MaxHexBytes = 199;
constexpr size_t CharsPerHexByte = 3;
constexpr int MaxAnsiPath = 259; // characters, without the zero

static bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

static bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Occurrences of search in text from left to right, without overlap.
static DWORD CountOccurrences(const char* text, const char* search, size_t searchLength) {
    DWORD count = 0;
    for (const char* at = StrStrIA(text, search); at; at = StrStrIA(at + searchLength, search)) {
        ++count;
    }
    return count;
}

DWORD ReplaceString(char* text, const char* search, const char* replace, size_t limit) {
    const size_t searchLength = TextLength(search);
    const size_t replaceLength = TextLength(replace);
    size_t length = TextLength(text);
    if (searchLength == 0 || length > limit) {
        return 0;
    }
    const DWORD count = CountOccurrences(text, search, searchLength);
    const size_t resultLength = length - count * searchLength + count * replaceLength;
    if (count == 0 || resultLength > limit) {
        return 0;
    }
    // Each step moves the tail to its place, so that the inserted text is before where the search continues. The text
    // never grows beyond the longer of result and original, and both have room.
    char* from = text;
    for (DWORD done = 0; done < count; ++done) {
        char* at = StrStrIA(from, search);
        if (!at) {
            return done;
        }
        const size_t tail = length - static_cast<size_t>(at - text) - searchLength;
        CopyBytes(at + replaceLength, at + searchLength, tail + 1);
        CopyBytes(at, replace, replaceLength);
        length = length - searchLength + replaceLength;
        from = at + replaceLength;
    }
    return count;
}

DWORD ReplaceString(char* text, const char* search, const char* replace) {
    return ReplaceString(text, search, replace, TextLength(text));
}

char* StrDupNew(const char* text) {
    const size_t length = TextLength(text);
    char* copy = new char[length + 1];
    CopyText(copy, length + 1, text);
    return copy;
}

void SwapStrings(char* a, char* b, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        const char kept = a[i];
        a[i] = b[i];
        b[i] = kept;
    }
}

void RemoveTrailingChar(char* text, char c) {
    const size_t length = TextLength(text);
    if (length > 0 && text[length - 1] == c) {
        text[length - 1] = '\0';
    }
}

void AppendCharOnce(char* text, char c, size_t size) {
    const size_t length = TextLength(text);
    const bool endsWithIt = length > 0 && text[length - 1] == c;
    if (!endsWithIt && length + 1 < size) {
        text[length] = c;
        text[length + 1] = '\0';
    }
}

void ReplaceChar(char* text, char from, char to) {
    for (; *text != '\0'; ++text) {
        if (*text == from) {
            *text = to;
        }
    }
}

void RemoveBlanks(char* text) {
    const size_t length = TextLength(text);
    size_t kept = 0;
    for (size_t i = 0; i < length; ++i) {
        if (!IsBlank(text[i]) || i == length - 1) {
            text[kept++] = text[i];
        }
    }
    text[kept] = '\0';
}

void CopyLimited(char* dst, const char* src, size_t size) {
    CopyText(dst, size, src);
}

int StartsWithNoCase(const char* text, const char* pattern) {
    const size_t patternLength = TextLength(pattern);
    const size_t textLength = TextLength(text);
    if (textLength == 0 || patternLength == 0 || patternLength > textLength) {
        return 0;
    }
    return StrStrIA(text, pattern) == text;
}

int EndsWithNoCase(const char* text, const char* pattern) {
    const size_t patternLength = TextLength(pattern);
    const size_t textLength = TextLength(text);
    if (textLength == 0 || patternLength == 0 || patternLength > textLength) {
        return 0;
    }
    return StrStrIA(text, pattern) == text + (textLength - patternLength);
}

bool IsSameNoCase(const char* a, const char* b) {
    size_t at = 0;
    while (a[at] == b[at]) {
        if (a[at] == '\0') {
            return true;
        }
        ++at;
    }
    return !DifferPlainly(a[at], b[at]) && lstrcmpiA(a, b) == 0;
}

void UnderscoresToBlanks(char* text) {
    size_t start = 0;
    for (; text[start] == '_'; ++start) {
        text[start] = ' ';
    }
    for (size_t end = TextLength(text); end > start && text[end - 1] == '_'; --end) {
        text[end - 1] = ' ';
    }
}

void QuoteText(char* text, size_t size) {
    const size_t length = TextLength(text);
    const size_t quotesAndZero = 3;
    if (text[0] == '"' || length + quotesAndZero > size) {
        return;
    }
    CopyBytes(text + 1, text, length);
    text[0] = '"';
    text[length + 1] = '"';
    text[length + 2] = '\0';
}

int UnquoteText(char* text) {
    const size_t length = TextLength(text);
    if (length < 2 || text[0] != '"' || text[length - 1] != '"') {
        return 0;
    }
    CopyBytes(text, text + 1, length - 2);
    text[length - 2] = '\0';
    return 1;
}

DWORD SplitAtCommas(char* text, char** parts, DWORD max) {
    if (text[0] == '\0' || max == 0) {
        return 0;
    }
    DWORD count = 0;
    parts[count++] = text;
    while (count < max && CutAtChar(text, ',')) {
        text += TextLength(text) + 1;
        while (IsBlank(*text)) {
            ++text;
        }
        parts[count++] = text;
    }
    return count;
}

int TakeNumber(char* text, LONG* number, LONG defaultNumber) {
    while (*text != '\0' && !IsDigit(*text)) {
        ++text;
    }
    if (*text == '\0') {
        *number = defaultNumber;
        return 0;
    }
    *number = StrToIntA(text);
    *text = '\0';
    return 1;
}

int CutAtChar(char* text, char c) {
    for (; *text != '\0'; ++text) {
        if (*text == c) {
            *text = '\0';
            return 1;
        }
    }
    return 0;
}

void WideOrAnsiToAnsi(char (&dst)[260], const void* src) {
    const BYTE* bytes = static_cast<const BYTE*>(src);
    const bool isWide = bytes[0] != 0 && bytes[1] == 0 && bytes[2] != 0 && bytes[3] == 0;
    if (!isWide) {
        CopyText(dst, static_cast<const char*>(src));
        return;
    }
    // Copied byte by byte: a name inside an event's data may be unaligned for wide characters.
    WCHAR wide[MaxAnsiPath + 1] = {};
    int length = 0;
    for (; length < MaxAnsiPath; ++length) {
        const WORD unit = static_cast<WORD>(bytes[2 * length] | (bytes[2 * length + 1] << 8));
        if (unit == 0) {
            break;
        }
        wide[length] = static_cast<WCHAR>(unit);
    }
    // In a double-byte code page the whole may not fit: then a shorter prefix is taken.
    int converted = 0;
    for (; length > 0 && converted == 0; --length) {
        converted = WideCharToMultiByte(CP_ACP, 0, wide, length, dst, MaxAnsiPath, nullptr, nullptr);
    }
    dst[converted] = '\0';
}

const char* BytesToHex(const BYTE* bytes, DWORD count) {
    static char text[MaxHexBytes * CharsPerHexByte + 1];
    const DWORD shown = count == 0 ? 0 : (count - 1 < MaxHexBytes ? count - 1 : MaxHexBytes);
    text[0] = '\0';
    for (DWORD i = 0; i < shown; ++i) {
        FormatText(text + i * CharsPerHexByte, CharsPerHexByte + 1, "%2.2X,", static_cast<DWORD>(bytes[i]));
    }
    RemoveTrailingChar(text, ',');
    return text;
}

int HasNoneOf(const char* text, const char* chars) {
    for (; *text != '\0'; ++text) {
        for (const char* c = chars; *c != '\0'; ++c) {
            if (*text == *c) {
                return 0;
            }
        }
    }
    return 1;
}

DWORD CountSameStart(const char* a, const char* b) {
    DWORD count = 0;
    while (a[count] != '\0' && a[count] == b[count]) {
        ++count;
    }
    return count;
}

void FormatGuid(char (&text)[40], const GUID& guid) {
    const BYTE* d = guid.Data4;
    FormatText(text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1, guid.Data2, guid.Data3, d[0],
               d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
}

void GetCommonPart(const char* const* texts, DWORD count, char* out, size_t size) {
    constexpr DWORD MinCommonChars = 4;
    CopyText(out, size, count != 0 ? texts[0] : "");
    if (count == 0) {
        return;
    }
    DWORD common = static_cast<DWORD>(TextLength(texts[0]));
    for (DWORD i = 1; i < count; ++i) {
        const DWORD same = CountSameStart(texts[0], texts[i]);
        common = same < common ? same : common;
    }
    if (common >= MinCommonChars) {
        CopyTextPart(out, size, texts[0], common);
        return;
    }
    if (char* suffix = StrStrA(out, " (COM")) {
        *suffix = 0;
    }
}
