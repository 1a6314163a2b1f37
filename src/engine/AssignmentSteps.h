// What one assignment check works on, and the steps that it takes. A step does what its name says and decides nothing:
// whether and when it is taken stands in CheckComPortAssignment (AssignmentCheck.cpp) and RenamePort
// (RenamingLoop.cpp). Thread and locks: those of the check. Log lines of a decision stand beside the decision, those of
// a step in the step.
#pragma once

#include "engine/AssignmentCheck.h"
#include "inventory/ports/CComPorts.h"
#include "platform/win32.h"

// What a check came to, as CheckComPortAssignment returns it.
constexpr int NumberUnchanged = 0;
constexpr int NumberChanged = 1;
constexpr int ChangeIncomplete = 2;

struct Assignment {
    CComPort* port;
    CComPort* otherPort;         // who has the registry name, later the wanted name; null: nobody
    LONG section;                // 0: none fits
    DWORD newPorts[MaxNewPorts]; // wanted numbers, in order of preference
    LONG newPortCount;
    char newPortNames[MaxNewPorts][12]; // "COM" and up to five digits of each
    LONG quickAndDirty;                 // not 0: move the DOS name, do not restart the device
    char szOldKernelName[520];          // as they were before the change; empty until there is one
    char szOldRegPortName[sizeof(CComPort::szRegPortName)];
};

// --- before the renaming ---

// Sets otherPort to the working port that has this port's registry name, if there is one.
void FindHolderOfRegistryName(Assignment* check);
// A device that has a name in the registry and none in force may only be late: waits a second and takes it over.
void TakeOverLateName(CComPort* port);
// Puts a number that is free everywhere behind the configured ones, if there is one and the list has room. Before it
// comes the port's own one if its name is nobody else's.
void AppendFreeNumber(Assignment* check);
void BuildNewPortNames(Assignment* check);
// The mode for this port: that of the section, else that of the settings.
LONG ReadQuickMode(const Assignment& check);
// Does the port have this number, by a link of its own?
bool HasNumber(const CComPort* port, DWORD number);
// The port has a wanted number: the COM name database is told, and the check is done.
void KeepPresentNumber(CComPort* port);

// Sets the bit of the number in force. While the registry holds another one, the port is about to leave that number,
// and its bit goes once the port has another one in force.
void KeepNumberTaken(CComPort* port);
// Clears the bit of the number that the port has left, unless a link or a present port has it.
void FreeLeftNumber(CComPort* port);

// --- inside the renaming loop ---

// The device already has the wanted name beside its old one: the old one goes, and the registry follows.
void KeepWantedOfTwoNames(CComPort* port, const char* name);
// Does the other port's section want, first of all, the number that this port has?
bool DoPortsWantEachOther(const Assignment& check);
// Deletes a DOS name that the table knows nothing against. Returns: whether it is gone.
bool DeleteStrayDosName(const char* name);
// Writes the number into the registry and keeps the old names. Returns: whether the registry holds it now.
bool WriteNewNumber(Assignment* check, const char* name);

// --- after the registry has changed ---

// Registry name and COM name database follow the registry.
void UpdateRegistryName(Assignment* check, const char* name);
// Moves the DOS name alone. Returns: whether the new name is in force.
bool MoveDosName(Assignment* check, const char* name);
// Restarts the upper device later, once for all ports that came along with it.
void PutOffRestart(CComPort* port);
// Restarts the port by the means that its problem and its bus allow. Returns: whether one succeeded.
bool RestartForNewNumber(CComPort* port);
// Waits for at most five seconds until the restarted device has made its DOS name, and takes it over.
void WaitForNewName(CComPort* port);
// Deletes the old DOS name if the device left it behind.
void DeleteOldName(const Assignment& check);
// Gives the other port its DOS name back if the renaming cost it.
void RestoreOtherPortsName(const CComPort* otherPort);
// Takes the device map's value away if the device has another kernel name now.
void CleanDeviceMap(const Assignment& check);

// Whether the hubs of this Windows can restart this port by its hub port.
bool IsCyclable(const CComPort* port);
