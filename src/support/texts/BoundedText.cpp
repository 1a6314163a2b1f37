#include "support/texts/BoundedText.h"

#include <cstring>

// The formatting of Windows stops at 1024 characters a call and never writes beyond; the rest is a safety margin.
constexpr size_t FormatBufferSize = 1040;

// Length of the text, or limit if it does not end before. Nothing after its end is read.
static size_t LengthWithin(const char* text, size_t limit) {
    const void* end = memchr(text, 0, limit);
    return end != nullptr ? static_cast<size_t>(static_cast<const char*>(end) - text) : limit;
}

size_t CopyTextPart(char* dst, size_t sizeChars, const char* source, size_t count) {
    if (sizeChars == 0) {
        return 0;
    }
    const size_t length = source != nullptr ? LengthWithin(source, count < sizeChars ? count : sizeChars - 1) : 0;
    CopyBytes(dst, source, length);
    dst[length] = '\0';
    return length;
}

size_t CopyText(char* dst, size_t sizeChars, const char* source) {
    return CopyTextPart(dst, sizeChars, source, sizeChars);
}

size_t AppendText(char* dst, size_t sizeChars, const char* source) {
    const size_t length = LengthWithin(dst, sizeChars);
    if (length == sizeChars) {
        return length; // not a text: nothing may be written after it
    }
    return length + CopyText(dst + length, sizeChars - length, source);
}

size_t FormatTextV(char* dst, size_t sizeChars, const char* format, va_list arguments) {
    char buffer[FormatBufferSize];
    buffer[0] = '\0';
    wvsprintfA(buffer, format, arguments);
    buffer[FormatBufferSize - 1] = '\0';
    return CopyText(dst, sizeChars, buffer);
}

size_t FormatText(char* dst, size_t sizeChars, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const size_t length = FormatTextV(dst, sizeChars, format, arguments);
    va_end(arguments);
    return length;
}
