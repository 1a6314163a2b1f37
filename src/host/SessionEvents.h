// Changes of the users' sessions. A logon is followed until the state of its session can be queried; everything else is
// only logged.
//
// `SessionChangeMsg_Async` is called by `CService::HandlerEx` on the dispatcher thread and returns at once. Each change
// has a thread of its own; these threads share nothing and hold no lock.

#pragma once

#include "platform/win32.h"

// One session change. Allocated on the heap, owned by its thread.
struct SessionChangeRecord {
    DWORD EventType; // a WTS_ code
    WTSSESSION_NOTIFICATION Notification;
};

// EventType: the WTS_ code. lpEventData: a WTSSESSION_NOTIFICATION, copied; null counts as one of zeros.
void SessionChangeMsg_Async(DWORD EventType, LPVOID lpEventData);

// Follows one change to its end. May block for about 10 s when the session cannot be queried.
void SessionChangeMsg(DWORD EventType, const WTSSESSION_NOTIFICATION* pNotification);

// record: a SessionChangeRecord, freed here. Returns: 1.
DWORD WINAPI SessionChangeMsg_ThreadProc(LPVOID record);
