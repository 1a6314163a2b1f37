// Which ordinary users may change something, by its owner and access list. Any thread, no lock, logs nothing.
#pragma once

#include <cstddef>

#include "platform/win32.h"
#include "support/system/Handles.h"

// Long enough for the text of every SID.
constexpr size_t SidTextSize = 192;

// Checks for Everyone, Users, Authenticated Users and INTERACTIVE, as a member of all four, and for an owner other than
// the system, an administrator or this process's user: an owner can always change the list. descriptor: self-relative,
// with owner and access list, `size` bytes; from a damaged place on it counts as harmless. rights: the bits that count,
// specific and generic. who: receives the name or the owner's SID, unchanged if there is none. Returns: 1 if an
// ordinary user may.
int WhoMayChange(const BYTE* descriptor, DWORD size, DWORD rights, char (&who)[SidTextSize]);

// An access list that gives everybody everything. Returns: nothing if Windows makes none or a damaged one.
OwnedSecurityDescriptor EveryoneFullAccess();
