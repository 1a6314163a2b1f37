// The COM name database of Windows: a bitmap of the COM numbers in use, the registry value "ComDB". It follows each
// move of a port, gives out free numbers, and is swept on request. CComPorts::FindFreePortNumber is here too. Thread:
// any. Locks: none. Each operation is one read, a change in memory and one write; the assignment check calls them
// inside CS_assign, the others outside, and of two at the same time one change may be lost.
#pragma once

#include "platform/win32.h"

// A heap copy of the bitmap. sizeBytes: its size. The caller frees it with delete[].
// Returns: null if there is no such value, or one of a size that no database has.
BYTE* ReadComDb(DWORD* sizeBytes);

// Marks the number as taken. Numbers: 1 to 8 times the size of the bitmap. Returns: 1 if the bit was changed.
int ComNameArbiterAdd(LONG number);

// The same with the number after the name's third character.
int ComNameArbiterAddByName(const char* portName);

// Marks the number of the name as free. Numbers: 1 to 8 times the size minus 1, so the highest bit is never cleared.
// Returns: 1 if the bit was changed.
int ComNameArbiterRemove(const char* portName);

// Returns: the first free number from this one on, below 8 times the size; 0 if there is none.
LONG ComNameArbiterFindFree(LONG firstNumber);

// Frees every number of the list (such as "1-4,7") that is no DOS name just now; none if the names cannot be read.
// Returns: 1 when nothing had to change or the write succeeded; 0 if there was nothing to clean, no database, or the
// write failed.
int CleanRegComPortArbiter(const char* listText);

// Sets the bits of the COM names that are in the DOS name space, in a bitmap of sizeBytes bytes.
// Returns: the number of bits set, 0 if the names cannot be read.
DWORD GetDefinedComPortsBitmap(BYTE* bitmap, DWORD sizeBytes);
