// Whose process this is. Any thread, no lock.
#pragma once

#include <cstddef>

#include "platform/win32.h"

inline constexpr char SystemSid[] = "S-1-5-18";
inline constexpr char AdministratorsSid[] = "S-1-5-32-544";

// The text of the process token's user SID, "S-1-5-…", into out. Returns: 1; 0 with an empty out and the last error.
int GetUserSidText(char* out, size_t size);
template<size_t N>
int GetUserSidText(char (&out)[N]) {
    return GetUserSidText(out, N);
}

// 1 if the process runs under one of the system's own accounts: its SID has the length of "S-1-5-18" and begins with
// "S-1-5-".
int IsSystemAccount();

// The same test on a SID's text.
int IsSystemSidText(const char* sid);
