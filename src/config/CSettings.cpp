#include "config/CSettings.h"

#include <cstddef>

#include "config/CCfgReader.h"
#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"

CSettings* g_pSettings = nullptr;

constexpr const KnownKey& TimeoutKey = KeyRow("Timeout");
static_assert(sizeof(CSettings::ComNameArbiterClean) == KeyRow("ComNameArbiterClean").longest + 1);
static_assert(sizeof(CSettings::TextRemoved) == KeyRow("TextRemoved").longest + 1);

namespace {
struct NumericKey {
    const KnownKey& key;
    LONG CSettings::*field;
};
} // namespace

// In reading order: these before [BalloonTips], the others after it.
constexpr NumericKey FirstKeys[] = {
    {KeyRow("TelitHack"), &CSettings::TelitHack},
    {KeyRow("RegisterAllDevClasses"), &CSettings::RegisterAllDevClasses},
    {KeyRow("QuickAndDirtyMode"), &CSettings::QuickAndDirtyMode},
    {KeyRow("RemoveDosDeviceNameOnStartup"), &CSettings::RemoveDosDeviceNameOnStartup},
    {KeyRow("RemoveDosDeviceNameOnRemoval"), &CSettings::RemoveDosDeviceNameOnRemoval},
    {KeyRow("RemovePortDeviceOnRemoval"), &CSettings::RemovePortDeviceOnRemoval},
    {KeyRow("RemoveUsbDeviceOnRemoval"), &CSettings::RemoveUsbDeviceOnRemoval},
    {KeyRow("CheckPortsOnStartup"), &CSettings::CheckPortsOnStartup},
    {KeyRow("CheckPortsOnResume"), &CSettings::CheckPortsOnResume},
    {KeyRow("AutoRunOnLogon"), &CSettings::AutoRunOnLogon},
};

constexpr NumericKey MaxPortNumberKey = {KeyRow("MaxPortNumber"), &CSettings::MaxPortNumber};

constexpr NumericKey LastKeys[] = {
    {KeyRow("WaitNoPendingInstallEventsOnInit"), &CSettings::WaitNoPendingInstallEventsOnInit},
    {KeyRow("EventLog"), &CSettings::EventLog},
    {KeyRow("RemoteSessions"), &CSettings::RemoteSessions},
};

static void ReadNumber(CSettings* settings, const NumericKey& key) {
    LONG value = 0;
    g_pCfgReader->GetInt(Settings, key.key, key.key.defaultNumber, &value);
    settings->*key.field = value;
    WriteLog(2, "%s=%u", key.key.name, static_cast<DWORD>(value));
}

static LONG ReadBalloonNumber(KeyName name, LONG defaultValue) {
    LONG value = 0;
    g_pCfgReader->GetInt(BalloonTips, name, defaultValue, &value);
    return value;
}

// As signed numbers, so a negative time becomes the minimum, not the maximum.
static LONG ClampTimeout(LONG milliseconds) {
    if (milliseconds < TimeoutKey.lowest) {
        return TimeoutKey.lowest;
    }
    return milliseconds > TimeoutKey.highest ? TimeoutKey.highest : milliseconds;
}

static void LogBalloonNumber(const char* name, LONG value) {
    WriteLog(2, "BalloonTips: %s=%u", name, static_cast<DWORD>(value));
}

void CSettings::ReadSettings() {
    WriteLog(2, "read settings");
    for (const NumericKey& key : FirstKeys) {
        ReadNumber(this, key);
    }
    g_pCfgReader->GetString(Settings, "ComNameArbiterClean", "", ComNameArbiterClean, sizeof(ComNameArbiterClean));
    WriteLog(2, "ComNameArbiterClean=%s", ComNameArbiterClean);
    ReadNumber(this, MaxPortNumberKey);

    Enabled = ReadBalloonNumber("Enabled", 0);
    LogBalloonNumber("Enabled", Enabled);
    EnabledOnRemoval = ReadBalloonNumber("EnabledOnRemoval", Enabled);
    LogBalloonNumber("EnabledOnRemoval", EnabledOnRemoval);
    Timeout = ClampTimeout(ReadBalloonNumber(TimeoutKey, TimeoutKey.defaultNumber));
    LogBalloonNumber("Timeout", Timeout);
    TimeoutOnRemoval = ClampTimeout(ReadBalloonNumber("TimeoutOnRemoval", Timeout / 2));
    LogBalloonNumber("TimeoutOnRemoval", TimeoutOnRemoval);
    SuppressWindowsBalloons =
        ReadBalloonNumber("SuppressWindowsBalloons", KeyRow("SuppressWindowsBalloons").defaultNumber);
    LogBalloonNumber("SuppressWindowsBalloons", SuppressWindowsBalloons);
    g_pCfgReader->GetString(BalloonTips, "TextRemoved", KeyRow("TextRemoved").defaultText, TextRemoved,
                            sizeof(TextRemoved));
    WriteLog(2, "BalloonTips: TextRemoved=%s", TextRemoved);

    for (const NumericKey& key : LastKeys) {
        ReadNumber(this, key);
    }
}
