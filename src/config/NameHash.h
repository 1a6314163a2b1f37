// The hash by which sections and keys are found. Ignores the case of ASCII letters, and is cheap enough for every key
// of a file of one megabyte. Called by the configuration reader only. Pure, any thread, no lock.
#pragma once

#include <string_view>

#include "platform/win32.h"

// Length in the highest byte, plus each little-endian 16-bit word of the text ANDed with 0xDFDF, modulo 2^32. A last
// single byte counts as a word with a zero byte after it.
DWORD NameHash(std::string_view text);
