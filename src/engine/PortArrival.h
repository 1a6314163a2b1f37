// What happens to a port once its device event has been recognised: its record, the assignment check, the collision
// with a port that was there first, COM name database and friendly name, and whether to notify the user. Distinguishes
// real events from those that this service causes by restarting a device.
// Thread: ComPortArrived on the thread of that arrival, it takes CS_main after the record has been made; ComPortRemoved
// on the thread of the notification, under CS_main in a service run and under no lock in a debug run.
#pragma once

#include "platform/win32.h"

struct CComPort;

// devpath: interface path of the notification. Blocks for as long as the check needs, restarts included.
void ComPortArrived(const char* devpath);
void ComPortRemoved(const char* devpath);

// The two decisions whether to notify the user of a port, on the ticks of its last arrival, removal and change of
// number. A port that came or went within a second of the other event has only flickered, unless a change of its number
// explains it. For an arrival this decides about the balloon alone, for a removal about the actions too.
bool IsArrivalBalloonDue(const CComPort* port);
bool IsRemovalToBeReported(const CComPort* port);
