// Texts as the product gets to see them, for the machine's own use.
#pragma once

#include <string>

namespace machine {

// Formats as wvsprintfA does, without a limit: for the machine's own texts that the product gets to see.
std::string FormatAsWindows(const char* format, __builtin_va_list arguments);

} // namespace machine
