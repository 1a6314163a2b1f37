#include "support/BoundedText.h"

namespace {

// The formatting of Windows stops at 1024 characters a call and never writes beyond; the rest is a safety margin.
constexpr size_t FormatBufferSize = 1040;

} // namespace

size_t CopyTextPart(char* dst, size_t sizeChars, const char* source, size_t count) {
    if (sizeChars == 0) {
        return 0;
    }
    size_t length = 0;
    while (source && length < count && length < sizeChars - 1 && source[length] != '\0') {
        dst[length] = source[length];
        ++length;
    }
    dst[length] = '\0';
    return length;
}

size_t CopyText(char* dst, size_t sizeChars, const char* source) {
    return CopyTextPart(dst, sizeChars, source, sizeChars);
}

size_t AppendText(char* dst, size_t sizeChars, const char* source) {
    size_t length = 0;
    while (length < sizeChars && dst[length] != '\0') {
        ++length;
    }
    if (length == sizeChars) {
        return length; // no text at all: nothing may be written behind it
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
