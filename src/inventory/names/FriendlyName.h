// The COM name inside the text that Windows shows for a port, such as "USB Serial Port (COM7)". Pure text tools, used
// where a record is filled and where a friendly name is brought back in line. No state, no lock.
#pragma once

#include <cstddef>

#include "platform/win32.h"

// Cuts the COM suffix off, in place: at "(COM" followed by a digit, else at the first "COM" if a digit follows.
// What is cut is also trimmed of blanks and tabs at both ends; any other text stays as it is.
void StripComFromFriendlyName(char* text);

// Returns: the first COM name in the text that is followed by a digit, preferably one in parentheses; null if none.
const char* FindComInFriendlyName(const char* text);

// Copies the three letters and all digits that follow, cut to the size of `out`. sizeChars: above 0.
void CopyComName(const char* comName, char* out, size_t sizeChars);

template<size_t Size>
void CopyComName(const char* comName, char (&out)[Size]) {
    CopyComName(comName, out, Size);
}

// Copies the digits after the third character of a name such as "COM7", cut to the size; empty without digits.
// sizeChars: above 0.
void CopyComDigits(const char* portName, char* out, size_t sizeChars);

template<size_t Size>
void CopyComDigits(const char* portName, char (&out)[Size]) {
    CopyComDigits(portName, out, Size);
}
