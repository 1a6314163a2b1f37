// Properties and ids of a device node in bounded texts. A property is what a driver or an installation left in the
// registry: it may lack its final zero, be of the wrong type or be longer than the field. All properties are read
// through these, on any thread, without a lock.
#pragma once

#include <cstddef>

#include "platform/win32.h"

// Reads a text property (CM_DRP_...) of at most sizeChars characters with the final zero; of a list, its first text.
// Returns: true if it was read. On failure (too long, wrong type, not there) `text` is as it was.
bool ReadDeviceText(DWORD devInst, ULONG property, char* text, size_t sizeChars);

template<size_t Size>
bool ReadDeviceText(DWORD devInst, ULONG property, char (&text)[Size]) {
    return ReadDeviceText(devInst, property, text, Size);
}

// Reads a property of exactly four bytes. On failure `number` is as it was.
bool ReadDeviceNumber(DWORD devInst, ULONG property, DWORD* number);

// Reads the first location path of the node, wide in the registry, as ANSI. `text` is empty if there is none.
void ReadLocationPath(DWORD devInst, char* text, size_t sizeChars);

template<size_t Size>
void ReadLocationPath(DWORD devInst, char (&text)[Size]) {
    ReadLocationPath(devInst, text, Size);
}

// Reads the device instance id. On failure `id` is as it was.
bool ReadDeviceId(DWORD devInst, char* id, size_t sizeChars);

template<size_t Size>
bool ReadDeviceId(DWORD devInst, char (&id)[Size]) {
    return ReadDeviceId(devInst, id, Size);
}

// Last write time of the device's key below Enum. Logs the time. Returns: true when the key could be opened.
bool GetDeviceEnumTime(const char* deviceId, FILETIME* time);
