#include "inventory/names/FriendlyName.h"

#include "support/texts/BoundedText.h"

constexpr char BracketedCom[] = "(COM";
constexpr char Com[] = "COM";
constexpr int ComLength = sizeof(Com) - 1;

static bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

static bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

static void TrimBlanks(char* text, size_t length) {
    while (length > 0 && IsBlank(text[length - 1])) {
        text[--length] = '\0';
    }
    const char* start = text;
    while (IsBlank(*start)) {
        ++start;
    }
    if (start != text) {
        CopyText(text, length + 1, start);
    }
}

static void CutAndTrim(char* text, const char* end) {
    const size_t length = static_cast<size_t>(end - text);
    text[length] = '\0';
    TrimBlanks(text, length);
}

void StripComFromFriendlyName(char* text) {
    const char* bracket = StrStrA(text, BracketedCom);
    if (bracket != nullptr && IsDigit(bracket[1 + ComLength])) {
        CutAndTrim(text, bracket);
        return;
    }
    const char* com = StrStrA(text, Com);
    if (com != nullptr && IsDigit(com[ComLength])) {
        CutAndTrim(text, com);
    }
}

const char* FindComInFriendlyName(const char* text) {
    const char* bracket = StrStrA(text, BracketedCom);
    if (bracket != nullptr && IsDigit(bracket[1 + ComLength])) {
        return bracket + 1;
    }
    const char* com = StrStrA(text, Com);
    while (com != nullptr && !IsDigit(com[ComLength])) {
        com = StrStrA(com + ComLength, Com);
    }
    return com;
}

void CopyComName(const char* comName, char* out, size_t sizeChars) {
    size_t length = ComLength;
    while (IsDigit(comName[length])) {
        ++length;
    }
    CopyTextPart(out, sizeChars, comName, length);
}

void CopyComDigits(const char* portName, char* out, size_t sizeChars) {
    size_t start = 0;
    while (start < ComLength && portName[start] != '\0') {
        ++start;
    }
    size_t length = 0;
    while (IsDigit(portName[start + length])) {
        ++length;
    }
    CopyTextPart(out, sizeChars, portName + start, length);
}
