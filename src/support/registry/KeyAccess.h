// Opens a registry key that denies access: gives everybody full access to it, and restores the former access list. Used
// by the registry tools for the length of one call. No lock: between grant and restore another thread that opens the
// same key sees the wide list, and of two overlapping grants the second saves the wide list as the former one.
#pragma once

#include "platform/win32.h"

// Gives Everyone generic full access to the key, passed on to sub-keys.
// Returns: the key's former access list, from LocalAlloc, to be handed to RegRestoreKeyAccess; null if it could not be
// read, the key is then unchanged. The list is also returned when the wide one could not be set.
PSECURITY_DESCRIPTOR RegGrantKeyAccess(HKEY root, const char* key);

// Restores a former list and frees it. Returns: 1 if the list was set; 0 if not: if the key could not be opened the
// list stays the caller's, who has no further use for it.
int RegRestoreKeyAccess(HKEY root, const char* key, PSECURITY_DESCRIPTOR list);
