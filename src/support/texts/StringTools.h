// Small operations on ANSI text, in place unless stated otherwise. Lengths and limits count characters without the
// final zero, sizes count the zero. "Ignoring case" means as lstrcmpiA compares single letters. Pure functions except
// BytesToHex, whose result is static. Copies into fixed arrays are in BoundedText.h.
#pragma once

#include <cstddef>

#include "platform/win32.h"

// Replaces every occurrence of search, ignoring case, from left to right; inserted text is not searched again.
// limit: the longest result; the array needs one more character. Returns: the number of replacements; 0 and no change
// if the result would exceed limit, if search is empty, or if text is longer than limit already.
DWORD ReplaceString(char* text, const char* search, const char* replace, size_t limit);

// The shorter form: the text's own length is the limit, so a longer replacement changes nothing.
DWORD ReplaceString(char* text, const char* search, const char* replace);

// The form for a whole array: as far as it has room.
template<size_t N>
DWORD ReplaceInArray(char (&text)[N], const char* search, const char* replace) {
    return ReplaceString(text, search, replace, N - 1);
}

// A new copy from operator new, empty for null or empty text. The caller deletes it with delete[].
char* StrDupNew(const char* text);

// Swaps the contents of two buffers of the same size in bytes.
void SwapStrings(char* a, char* b, size_t size);
template<size_t N>
void SwapStrings(char (&a)[N], char (&b)[N]) {
    SwapStrings(a, b, N);
}

// Cuts one trailing c.
void RemoveTrailingChar(char* text, char c);

// Appends c unless the text ends with it. size: of the array; without room nothing changes.
void AppendCharOnce(char* text, char c, size_t size);
template<size_t N>
void AppendCharOnce(char (&text)[N], char c) {
    AppendCharOnce(text, c, N);
}

// Every from becomes to.
void ReplaceChar(char* text, char from, char to);

// Removes all blanks and tabs, from the start to the last character but one; the last character always stays.
void RemoveBlanks(char* text);

// Copies at most size - 1 characters and terminates; size 0 writes nothing.
void CopyLimited(char* dst, const char* src, size_t size);

// Ignores case. The first occurrence of pattern must be at the start or the end of text, so "abcabc" does not end in
// "abc". An empty text or pattern, or a pattern longer than the text, gives 0.
int StartsWithNoCase(const char* text, const char* pattern);
int EndsWithNoCase(const char* text, const char* pattern);

// Letters, digits and signs that no locale ignores, and the end of a text.
constexpr bool IsPlainChar(char c) {
    return c == '\0' || (c > ' ' && c < '\x7F');
}

// Whether texts that first differ in these two characters are plainly different to lstrcmpiA as well.
constexpr bool DifferPlainly(char a, char b) {
    constexpr char CaseBit = 'a' - 'A';
    const char lowerA = a >= 'A' && a <= 'Z' ? static_cast<char>(a + CaseBit) : a;
    const char lowerB = b >= 'A' && b <= 'Z' ? static_cast<char>(b + CaseBit) : b;
    return lowerA != lowerB && IsPlainChar(a) && IsPlainChar(b);
}

// The result of lstrcmpiA, without the locale's tables when two texts are plainly equal or different.
bool IsSameNoCase(const char* a, const char* b);

// Leading and trailing runs of "_" become blanks.
void UnderscoresToBlanks(char* text);

// Puts double quotes around a text that does not begin with one. size: of the array; without room nothing changes.
void QuoteText(char* text, size_t size);
template<size_t N>
void QuoteText(char (&text)[N]) {
    QuoteText(text, N);
}

// Removes one pair of double quotes. Returns: 1 if there was one.
int UnquoteText(char* text);

// Cuts at commas and skips blanks and tabs after them. parts: pointers into text, at most max; the last part keeps the
// rest of the text uncut. Returns: the number of parts, 0 for an empty text.
DWORD SplitAtCommas(char* text, char** parts, DWORD max);

// Finds the first digit, reads the number into *number with StrToIntA and ends the text there. Without a digit *number
// is defaultNumber and the text is unchanged. Returns: 1 if there was a digit.
int TakeNumber(char* text, LONG* number, LONG defaultNumber);

// Ends the text at the first c. Returns: 1 if there was one.
int CutAtChar(char* text, char c);

// src is ANSI or UTF-16 text: it is UTF-16 if its first two characters are not zero and have a zero high byte. The
// result has at most 259 characters. dst: 260 bytes.
void WideOrAnsiToAnsi(char (&dst)[260], const void* src);

// The first count - 1 bytes, at most 199, each as "%2.2X," with the last comma removed. Static text, valid until the
// next call.
const char* BytesToHex(const BYTE* bytes, DWORD count);

// 1 if no character of chars occurs in text; 1 for an empty text.
int HasNoneOf(const char* text, const char* chars);

// The number of equal leading characters, exact in case; 0 if a is empty.
DWORD CountSameStart(const char* a, const char* b);

// What names of ports of one device have in common: the longest beginning that all share, exact in case, with a blank
// at its end if there is one. If that is shorter than 4 characters it says nothing, and the first name is used, cut at
// " (COM". Empty for no names. size: of out.
void GetCommonPart(const char* const* texts, DWORD count, char* out, size_t size);

// "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}" in capitals: 38 characters.
void FormatGuid(char (&text)[40], const GUID& guid);
