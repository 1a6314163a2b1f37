// Texts against patterns with * and ?, as section criteria use them. Pure, any thread, no lock.
#pragma once

#include "platform/win32.h"

// `*` matches any run of characters, also an empty one, `?` exactly one. Other characters are equal when they differ
// only in the bit 0x20: letters match regardless of case, and so do \ and |, [ and {, ] and }, ^ and ~.
// Returns: non-zero when the whole text matches the whole pattern; 0 for a null or empty text, whatever the pattern.
LONG WildcardMatch(const char* text, const char* pattern);
