#include "config/CSettings.h"

#include <cstddef>

#include "config/CCfgReader.h"
#include "support/BoundedText.h"
#include "support/LogFile.h"

CSettings* g_pSettings = nullptr;

static constexpr LONG MaxPortNumberBeforeRead = 255;
static constexpr LONG TimeoutBeforeReadMs = 6000;
static constexpr LONG TimeoutOnRemovalBeforeReadMs = 3000;
static constexpr LONG DefaultTimeoutMs = 5500;
static constexpr LONG ShortestTimeoutMs = 1000;
static constexpr LONG LongestTimeoutMs = 60000;

namespace {
struct NumericKey {
    const char* name;
    LONG CSettings::*field;
    LONG defaultValue;
};
} // namespace

// In reading order: these before [BalloonTips], the others behind it.
static constexpr NumericKey FirstKeys[] = {
    {"TelitHack", &CSettings::TelitHack, 0},
    {"RegisterAllDevClasses", &CSettings::RegisterAllDevClasses, 0},
    {"QuickAndDirtyMode", &CSettings::QuickAndDirtyMode, 0},
    {"RemoveDosDeviceNameOnStartup", &CSettings::RemoveDosDeviceNameOnStartup, 0},
    {"RemoveDosDeviceNameOnRemoval", &CSettings::RemoveDosDeviceNameOnRemoval, 0},
    {"RemovePortDeviceOnRemoval", &CSettings::RemovePortDeviceOnRemoval, 0},
    {"RemoveUsbDeviceOnRemoval", &CSettings::RemoveUsbDeviceOnRemoval, 0},
    {"CheckPortsOnStartup", &CSettings::CheckPortsOnStartup, 1},
    {"CheckPortsOnResume", &CSettings::CheckPortsOnResume, 0},
    {"AutoRunOnLogon", &CSettings::AutoRunOnLogon, 0},
};
static_assert(sizeof(FirstKeys) / sizeof(FirstKeys[0]) == 10);

static constexpr NumericKey MaxPortNumberKey = {"MaxPortNumber", &CSettings::MaxPortNumber, 255};

static constexpr NumericKey LastKeys[] = {
    {"WaitNoPendingInstallEventsOnInit", &CSettings::WaitNoPendingInstallEventsOnInit, 5000},
    {"EventLog", &CSettings::EventLog, 0},
    {"RemoteSessions", &CSettings::RemoteSessions, 1},
};
static_assert(sizeof(LastKeys) / sizeof(LastKeys[0]) == 3);

static void ReadNumber(CSettings* settings, const NumericKey& key) {
    LONG value = 0;
    g_pCfgReader->GetInt(Settings, key.name, key.defaultValue, &value);
    settings->*key.field = value;
    WriteLog(2, "%s=%u", key.name, static_cast<DWORD>(value));
}

template<size_t N>
static void ReadText(const char* name, const char* defaultText, char (&field)[N]) {
    g_pCfgReader->GetString(Settings, name, defaultText, field, N);
    WriteLog(2, "%s=%s", name, field);
}

static LONG ReadBalloonNumber(const char* name, LONG defaultValue) {
    LONG value = 0;
    g_pCfgReader->GetInt(BalloonTips, name, defaultValue, &value);
    return value;
}

// As signed numbers, so a negative time becomes the shortest one and not the longest.
static LONG ClampTimeout(LONG milliseconds) {
    if (milliseconds < ShortestTimeoutMs) {
        return ShortestTimeoutMs;
    }
    return milliseconds > LongestTimeoutMs ? LongestTimeoutMs : milliseconds;
}

static void LogBalloonNumber(const char* name, LONG value) {
    WriteLog(2, "BalloonTips: %s=%u", name, static_cast<DWORD>(value));
}

CSettings::CSettings()
    : QuickAndDirtyMode(0), TelitHack(0), RegisterAllDevClasses(0), RemoveDosDeviceNameOnStartup(0),
      RemoveDosDeviceNameOnRemoval(0), RemovePortDeviceOnRemoval(0), RemoveUsbDeviceOnRemoval(0),
      CheckPortsOnStartup(0), CheckPortsOnResume(0), AutoRunOnLogon(0),
      MaxPortNumber(MaxPortNumberBeforeRead), ComNameArbiterClean{}, Enabled(0), EnabledOnRemoval(0),
      Timeout(TimeoutBeforeReadMs), TimeoutOnRemoval(TimeoutOnRemovalBeforeReadMs),
      SuppressWindowsBalloons(0), TextRemoved{}, WaitNoPendingInstallEventsOnInit(0), EventLog(0), RemoteSessions(0) {
}

void CSettings::ReadSettings() {
    WriteLog(2, "read settings");
    for (const NumericKey& key : FirstKeys) {
        ReadNumber(this, key);
    }
    ReadText("ComNameArbiterClean", "", ComNameArbiterClean);
    ReadNumber(this, MaxPortNumberKey);

    Enabled = ReadBalloonNumber("Enabled", 0);
    LogBalloonNumber("Enabled", Enabled);
    EnabledOnRemoval = ReadBalloonNumber("EnabledOnRemoval", Enabled);
    LogBalloonNumber("EnabledOnRemoval", EnabledOnRemoval);
    Timeout = ClampTimeout(ReadBalloonNumber("Timeout", DefaultTimeoutMs));
    LogBalloonNumber("Timeout", Timeout);
    TimeoutOnRemoval = ClampTimeout(ReadBalloonNumber("TimeoutOnRemoval", Timeout / 2));
    LogBalloonNumber("TimeoutOnRemoval", TimeoutOnRemoval);
    SuppressWindowsBalloons = ReadBalloonNumber("SuppressWindowsBalloons", 1);
    LogBalloonNumber("SuppressWindowsBalloons", SuppressWindowsBalloons);
    g_pCfgReader->GetString(BalloonTips, "TextRemoved", "Removed", TextRemoved, sizeof(TextRemoved));
    WriteLog(2, "BalloonTips: TextRemoved=%s", TextRemoved);

    for (const NumericKey& key : LastKeys) {
        ReadNumber(this, key);
    }
}
