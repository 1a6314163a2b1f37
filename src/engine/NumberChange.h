// Bringing a device to its new number: registry, COM name database, DOS name, restart, and what the old name leaves.
// Whether and when a step is taken is decided in RenamingLoop.cpp. Thread and locks: those of the check, inside
// CS_assign. Log lines of a decision are written with the decision, those of a step here.
#pragma once

#include "engine/Assignment.h"

// Writes the number into the registry and keeps the old names. Returns: whether the registry holds it now.
bool WriteNewNumber(Assignment* check, const char* name);

// Sets name, digits and number of the DOS name in force from the registry name, which is the port's own by now.
void SetNameInForce(CComPort* port);
// Registry name and COM name database follow the registry.
void UpdateRegistryName(Assignment* check, const char* name);
// Moves the DOS name alone. Returns: whether the new name is in force.
bool MoveDosName(Assignment* check, const char* name);
// Schedules a restart of the upper device, one for all ports that came along with it.
void PutOffRestart(CComPort* port);
// Restarts the port by the means that suit its problem and its bus. Returns: whether one succeeded.
bool RestartForNewNumber(CComPort* port);
// Waits for at most five seconds until the restarted device has made its DOS name, and adopts it.
void WaitForNewName(CComPort* port);
// Adopts the DOS name of a port whose arrival nobody heard, after a swap or at the start, if it runs and has its name.
void TakeNameOfRunningPort(CComPort* port);
// Deletes the old DOS name if the device left it behind. Returns: whether it did.
bool DeleteOldName(const Assignment& check);
// The old name, which two ports claimed, left with the device: it was this one's, and the other port never had it. That
// one is restarted and gets the name, since a link restored for it would lead to a device that has gone.
// Blocks until five seconds after this port's restart at most.
void RestartIfNameLeftWithPort(const Assignment& check);
// The same for a restart that is put off: notes the other port for the arrival after it.
void NoteRivalForOldName(const Assignment& check);
// Gives the other port its DOS name back if the renaming deleted it.
void RestoreOtherPortsName(const CComPort* otherPort);
// Deletes the device map's value if the device has a new kernel name.
void CleanDeviceMap(const Assignment& check);
