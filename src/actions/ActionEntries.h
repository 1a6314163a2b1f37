// The entries of an action section as the configuration has them: up to ten, distinguished by the digit at the end of
// their keys, the tenth without one.
// Thread: any. Locks: each read of a key takes the reader's lock.
#pragma once

#include "actions/ProgramLauncher.h"
#include "config/CCfgReader.h"
#include "platform/win32.h"

constexpr DWORD MaxOpenEntries = 10;

// The show command for a word of the configuration.
WORD ParseShowCommand(const char* word);

// Fills *params with the entry. index: 1 to MaxOpenEntries. Returns: 0 if there is no such entry, else 1.
int GetOpenParamsByCfgSection(CfgSectionType type, LONG number, OpenParams* params, DWORD index);
