// The kinds of user that a process can be started as. The configuration reader gets the kind from an action's keys, and
// the session code turns it into a token; the record is here so that neither needs to know the other. Plain values, no
// thread, no lock.
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
