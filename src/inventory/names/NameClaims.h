// Who owns a COM name where one record alone does not show it: a port whose restart is still to come, a port whose
// registry name leads to another one's device, and a name without a device whose owner has turned up.
// Thread: any. Locks: none, as for the port table; the queries block only while they read a DOS name.
#pragma once

#include "inventory/ports/CComPorts.h"

// Does the kernel name belong to this port? Its own path leads to it, or its driver uses such names. An empty kernel
// name belongs to no port.
bool IsKernelNameOf(const CComPort* port, const char* kernelName);

// --- a restart that was put off ---

// The port, and all that wait for the same upper device, wait for a restart at this tick from now on.
void AwaitRestart(CComPort* port, DWORD dueTick);
// The restart of an upper device begins: ports that wait for it are up to date from their next arrival on.
void NoteRestartOf(DWORD sameParentDevInst);
// The port has arrived, or was restarted by itself: it no longer waits. isArrival: only if the restart has begun.
void EndAwaitedRestart(CComPort* port, bool isArrival);
// Is the restart still to come, and not overdue by more than 5 s?
bool IsRestartAwaited(CComPort* port);
// Is the port being restarted by this service, or out for a swap? Its problems mean nothing until then.
bool IsOwnRestart(const CComPort* port);
// Does the port run with a link of its own, while the registry has another name for its next start? A restart that
// failed, or that did not rename it, leaves it so.
bool RunsUnderFormerName(const CComPort* port);
// The port other than `asker` that gets this name from a restart or its next start, or null. It keeps the name although
// no link of that name is there yet, and while it is away for the restart.
const CComPort* FindAwaitedHolder(const char* portName, const CComPort* asker);
// The port below the upper device of `asker` that runs with this registry name, whose link is missing, or null. The
// restart of the upper device would bring the name to both.
const CComPort* FindNamelessSibling(const char* portName, const CComPort* asker);

// --- a port without a name ---

// Marks the ports other than `asker` that run and have this registry name, but had no link when they were read: the
// table test is about to take them for dead because of that, and they would never get a number again.
void MarkNamelessHolders(const char* portName, const CComPort* asker);

// --- a name without a device ---

// Sets the virtual record of the name absent, or of all names if null, once its link is gone or belongs to a present
// port with this registry name: the record stood for that link alone.
void RetireVirtualRecords(const char* portName);

// --- a link that is another port's ---

// Does the link with this name and target belong to another present port, by that port's record?
bool IsLinkOfAnother(const CComPort* port, const char* portName, const char* target);
// Notes whether the link of the port's name is in force for another present port, so that the names in the record are
// copies of that port's. Queries the configuration manager only if another record has the name.
void MarkCopiedName(CComPort* port);
// A port goes whose name another one has copied. If its device is gone and the link still leads to a device, the link
// belonged to the other one all the time: of those that shared a name at the start the first one checked counts as its
// owner. Blocks up to 500 ms, only if there is such a port.
void PassOnLink(const CComPort* gone);
// Does the link of the name lead, or possibly lead, to a present port that is neither of the two? A swap of the two
// would then cost that port its name. A name without a link does not.
bool IsNameOfThird(const char* portName, const CComPort* first, const CComPort* second);
