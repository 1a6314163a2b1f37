// The one way to write text into a fixed array. The size comes from the array's type; what does not fit is cut, without
// an error, and the result always ends with a zero. Plain code without calls to Windows except for formatting, so any
// thread may use it under any lock. The last error is not touched.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "platform/win32.h"

// Length without the final zero; 0 for null.
constexpr size_t TextLength(const char* text) {
    size_t length = 0;
    while (text && text[length] != '\0') {
        ++length;
    }
    return length;
}

// Whether two texts are the same, byte by byte.
constexpr bool SameText(const char* a, const char* b) {
    size_t at = 0;
    while (a[at] != '\0' && a[at] == b[at]) {
        ++at;
    }
    return a[at] == b[at];
}

// Copies bytes between places that may overlap.
inline void CopyBytes(void* dst, const void* source, size_t count) {
    __builtin_memmove(dst, source, count);
}

inline void ZeroBytes(void* dst, size_t count) {
    __builtin_memset(dst, 0, count);
}

// Copies source into dst. sizeChars: room in dst with the final zero; 0 writes nothing. A null source counts as empty.
// source may be in the same array, after dst. Returns: the length of the result.
size_t CopyText(char* dst, size_t sizeChars, const char* source);

// Copies at most count characters of a source that need not end with a zero (device data, registry values, pipes).
size_t CopyTextPart(char* dst, size_t sizeChars, const char* source, size_t count);

// Appends source to the text in dst. Returns: the length of the result.
size_t AppendText(char* dst, size_t sizeChars, const char* source);

// Formats as wvsprintfA does (at most 1023 characters a call) and copies the result. The arguments may overlap dst: the
// text is built in a separate buffer first. Returns: the result's length.
size_t FormatText(char* dst, size_t sizeChars, const char* format, ...) QM_PRINTF(3, 4);
size_t FormatTextV(char* dst, size_t sizeChars, const char* format, va_list arguments);

template<size_t N>
size_t CopyText(char (&dst)[N], const char* source) {
    return CopyText(dst, N, source);
}

template<size_t N>
size_t AppendText(char (&dst)[N], const char* source) {
    return AppendText(dst, N, source);
}

template<size_t N>
size_t FormatText(char (&dst)[N], const char* format, ...) QM_PRINTF(2, 3);

template<size_t N>
size_t FormatText(char (&dst)[N], const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const size_t length = FormatTextV(dst, N, format, arguments);
    va_end(arguments);
    return length;
}
