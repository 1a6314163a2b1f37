// The kinds of user as whom a process can be started. The configuration reader gives the kind that an action's keys
// name, and the session code turns it into a token; the record stands here so that both know it without knowing each
// other. Plain values, no thread, no lock.
#pragma once

#include <cstddef>

#include "platform/win32.h"

enum class UserType : DWORD {
    undef = 0,  // as `self`, not decided yet
    self = 1,   // the account of this process
    system = 2, // LocalSystem, in the user's session
    normal = 3, // the logged-on user
    restr = 4,  // the logged-on user with a restricted token
    elev = 5,   // the logged-on user with the elevated token
};

inline constexpr const char* UserTypeNames[] = {"undef", "self", "system", "normal", "restr", "elev"};
static_assert(sizeof(UserTypeNames) / sizeof(UserTypeNames[0]) == static_cast<size_t>(UserType::elev) + 1);

// The kind's text for the log, "err!" for a value outside the kinds.
inline const char* UserTypeName(UserType type) {
    return type <= UserType::elev ? UserTypeNames[static_cast<DWORD>(type)] : "err!";
}
