// The values of [Settings] and [BalloonTips] as plain fields. WinMain creates the object after the first snapshot and
// reads it; a port event that finds a new snapshot reads it again, so that is when a changed file takes effect. Keys of
// the log and of the balloon's look are read from the file by those who need them.
// Thread: written by the port event that reloads, read by any thread. No lock: each field is one word or a text
// replaced in place, and a concurrent reader gets the old value or the new one.
#pragma once

#include "platform/win32.h"

class CSettings {
public:
    // Writes every field; a key that is absent or too long gets its default. Cannot fail.
    void ReadSettings();

    // The values before the first reading, when nothing may be switched on. Defaults of keys are in
    // ConfigurationKeys.h.
    LONG QuickAndDirtyMode = 0;
    LONG TelitHack = 0;
    LONG RegisterAllDevClasses = 0;
    LONG RemoveDosDeviceNameOnStartup = 0;
    LONG RemoveDosDeviceNameOnRemoval = 0;
    LONG RemovePortDeviceOnRemoval = 0;
    LONG RemoveUsbDeviceOnRemoval = 0;
    LONG CheckPortsOnStartup = 0;
    LONG CheckPortsOnResume = 0;
    LONG AutoRunOnLogon = 0;
    LONG MaxPortNumber = 255;
    char ComNameArbiterClean[512] = {};
    LONG Enabled = 0;
    LONG EnabledOnRemoval = 0;
    LONG Timeout = 6000;          // milliseconds, 1000 to 60000
    LONG TimeoutOnRemoval = 3000; // the same
    LONG SuppressWindowsBalloons = 0;
    char TextRemoved[64] = {};
    LONG WaitNoPendingInstallEventsOnInit = 0; // milliseconds
    LONG EventLog = 0;
    LONG RemoteSessions = 0; // 0, 1 or 2
};

extern CSettings* g_pSettings; // set before the threads start, lives until the end of WinMain
