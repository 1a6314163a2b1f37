// Texts against patterns with * and ?, as section criteria use them. Pure, any thread, no lock.
#pragma once

#include "platform/win32.h"

// `*` stands for any run of characters, the empty one too, `?` for exactly one. Other characters are equal when they
// differ in nothing but the bit 0x20: letters match regardless of case, and so do \ and |, [ and {, ] and }, ^ and ~.
// Returns: non-zero when the whole text fits the whole pattern; 0 for a null or empty text, whatever the pattern.
LONG WildcardMatch(const char* text, const char* pattern);
