// Single registry values outside the configuration snapshot: read, write, replace, delete. A key that denies access is
// still opened: everybody gets full access for the duration of the call (KeyAccess.h). That change always
// works on HKEY_LOCAL_MACHINE, whatever root the caller gave. Any thread, no lock, no key handle outlives a call.
// Unless stated otherwise: root key first, key path second, 1 for success and 0 for failure, and after a failure the
// last error is the registry's. Texts are ANSI; a returned text always ends with a zero, also when the stored value
// does not.
#pragma once

#include "platform/win32.h"

// Deletes a value. No change of access. Logs the outcome at level 1.
int RegDeleteValue(HKEY root, const char* key, const char* name);

// Whether the value is there. No change of access.
int RegValueExists(HKEY root, const char* key, const char* name);

// Last write time of the key. Returns: 0 for success, 2 if the key cannot be opened or queried; time is then unchanged.
DWORD RegGetKeyWriteTime(HKEY root, const char* key, FILETIME* time);

// Size in bytes of the value's data. On failure *size is 0.
int GetRegValueSize(HKEY root, const char* key, const char* name, DWORD* size);

// Reads at most four bytes; the bytes that a shorter value does not have are 0. A REG_SZ is converted with StrToIntA.
// After a failure *value is unchanged.
int RegReadDword(HKEY root, const char* key, const char* name, DWORD* value);

// Reads the value as it is, whatever its type. *size: in bytes, in the buffer's, out the value's. The buffer is zeroed
// first. ERROR_MORE_DATA if the value is longer.
int RegReadBinary(HKEY root, const char* key, const char* name, void* buffer, DWORD* size);

// Reads a text. size: of the buffer, with the final zero. A REG_DWORD becomes its decimal number. view64: 1 asks for
// the 64-bit view from a 32-bit process. ERROR_MORE_DATA if the value and a final zero do not fit. After a failure the
// buffer is empty.
int RegReadString(HKEY root, const char* key, const char* name, char* buffer, DWORD size, int view64 = 0);

// As RegReadString without the 64-bit view and without the change of access. Returns: 1 if the buffer holds text.
int RegReadDisplayString(HKEY root, const char* key, const char* name, char* buffer, DWORD size);

int RegWriteString(HKEY root, const char* key, const char* name, const char* text);
int RegWriteBinary(HKEY root, const char* key, const char* name, const void* data, DWORD size);
int RegWriteDword(HKEY root, const char* key, const char* name, DWORD value);

// Replaces every occurrence of search, ignoring case, in one REG_SZ value of up to 128 bytes; longer values, other
// types and values without an occurrence are left alone. The first open always goes to HKEY_LOCAL_MACHINE.
void RegChangeValue(HKEY root, const char* key, const char* name, const char* search, const char* replace);

// The same for all values of the key.
void RegChangeAllValues(HKEY root, const char* key, const char* search, const char* replace);

// Whether user account control is on: 0 below Windows 6.0, and 1 there also when the value is missing.
int IsUacEnabled();
