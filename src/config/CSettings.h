// The values of [Settings] and [BalloonTips] as plain fields. WinMain creates the object after the first snapshot and
// reads it; a port event that finds a new snapshot reads it again, so that is when a changed file takes effect. Keys of
// the log and of the balloon's look are read from the file by those who need them.
// Thread: written by the port event that reloads, read by any thread. No lock: each field is one word or a text
// replaced in place, and a concurrent reader gets the old value or the new one.
#pragma once

#include "platform/win32.h"

class CSettings {
public:
    CSettings();

    // Writes every field; a key that is absent or too long gets its default. Cannot fail.
    void ReadSettings();

    LONG QuickAndDirtyMode;
    LONG TelitHack;
    LONG RegisterAllDevClasses;
    LONG RemoveDosDeviceNameOnStartup;
    LONG RemoveDosDeviceNameOnRemoval;
    LONG RemovePortDeviceOnRemoval;
    LONG RemoveUsbDeviceOnRemoval;
    LONG CheckPortsOnStartup;
    LONG CheckPortsOnResume;
    LONG AutoRunOnLogon;
    LONG MaxPortNumber;
    char ComNameArbiterClean[512];
    LONG Enabled;
    LONG EnabledOnRemoval;
    LONG Timeout;          // milliseconds, 1000 to 60000
    LONG TimeoutOnRemoval; // the same
    LONG SuppressWindowsBalloons;
    char TextRemoved[64];
    LONG WaitNoPendingInstallEventsOnInit; // milliseconds
    LONG EventLog;
    LONG RemoteSessions; // 0, 1 or 2
};

extern CSettings* g_pSettings; // set before the threads start, lives until the end of WinMain
