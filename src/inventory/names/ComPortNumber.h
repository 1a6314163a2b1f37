// The places where a COM number lives, changed one at a time: the registry values of the device, the DOS name, the
// friendly name, the device map. The engine decides which port gets which number, and in which order the places change;
// these operations leave the COM name database and the port's record alone.
// Thread: any. Locks: none of its own; the assignment check calls them inside CS_assign, arrivals and swaps outside it.
#pragma once

#include "inventory/ports/CComPorts.h"
#include "platform/win32.h"

// Writes the new registry name of a port: friendly name, "PortName", "DosDeviceName", the texts of the class key, and
// in quick mode the device map. A place that does not exist is skipped, a failed write is logged and the next place
// follows. regEnumPath, regClassPath: below HKEY_LOCAL_MACHINE. kernelNameCom: name of the device map's value.
// Returns: always 1.
int ChangeRegistryComPortNumber(const char* oldName, const char* newName, const char* regEnumPath,
                                const char* regClassPath, const char* kernelNameCom);

// Moves the DOS name from the old to the new one without touching the device. oldName: a name that exists; with an
// empty one there is no target to move.
// Returns: 1 if the new name exists afterwards. Otherwise 0: nothing has changed if the old name could not be deleted;
// the old name is gone if the new one could not be made.
int ChangeDosDeviceComPortNumber(const char* oldName, const char* newName);

// Brings the COM name inside the friendly name in line with the number. portNumber: 0 changes nothing.
void FixFriendlyName(const char* regEnumPath, LONG portNumber);

// Takes the value of a kernel name out of the device map. Returns: 1 if it was there and is deleted.
int DeleteSerialCommValue(const char* valueName);

// Reads the registry name of a device. portName: receives at most 127 characters.
// Returns: 1 if there is such a value, 0 with the last error of the registry and an empty text.
int GetRegPortNameByDeviceId(const char* deviceId, char (&portName)[128]);

// The number after the third character of a name such as "COM7". Returns: 0 for a shorter name or one without digits.
LONG GetNumberOfPortName(const char* portName);

// Whether a name begins with "COM", in capitals.
bool BeginsWithCom(const char* name);

// Sets the DOS name in force from the registry name: szPortName, and the number and its digits, which are 0 and empty
// unless the name has a number.
void SetRegistryNameInForce(CComPort* port, bool hasNumber);
