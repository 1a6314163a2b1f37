// Which numbers a port may have, and what is in the way of each: the steps of a check that find out, and those that
// only confirm or tidy the present state. Whether and when one is taken is decided in AssignmentCheck.cpp and
// RenamingLoop.cpp. Thread and locks: those of the check. Log lines of a decision are written with the decision, those
// of a step here.
#pragma once

#include "engine/Assignment.h"

// --- before the renaming ---

// Sets both holders to the working port that has this port's registry name, if there is one.
void FindHolderOfRegistryName(Assignment* check);
// A device that has a name in the registry and none in force may only be late: waits a second and adopts it.
void TakeOverLateName(CComPort* port);
// Appends a number that is free everywhere to the configured ones, if there is one and the list has room; before it the
// port's own number if no other port has that name.
void AppendFreeNumber(Assignment* check);
void BuildNewPortNames(Assignment* check);
// The mode for this port: that of the section, else that of the settings.
LONG ReadQuickMode(const Assignment& check);
// Does the port have this number, by a link of its own?
bool HasNumber(const CComPort* port, DWORD number);
// The port has a wanted number: updates the COM name database, and the check is done.
void KeepPresentNumber(CComPort* port);

// Sets the bit of the number in force. While the registry holds another one, the port is about to leave that number,
// and its bit goes once the port has another one in force.
void KeepNumberTaken(CComPort* port);
// Clears the bit of the number that the port has left, unless a link or a port has it; then at a later arrival.
void FreeLeftNumber(CComPort* port);
// Clears the bit of the number that was written last if the registry, read again since, holds another one.
void FreeUnwrittenNumber(CComPort* port);

// --- inside the renaming loop ---

// The device already has the wanted name as a second one: deletes the old one and updates the registry.
void KeepWantedOfTwoNames(CComPort* port, const char* name);
// Does the other port's section prefer the number that this port has?
bool DoPortsWantEachOther(const Assignment& check);
// Deletes a DOS name if nothing in the table speaks against it. Returns: whether it is gone.
bool DeleteStrayDosName(const char* name);
