// The settings: defaults, limits, what depends on what; and whom an entry's keys name.
#include "tests/unit/config/ConfigOnMachine.h"

#include "support/OsVersion.h"

using namespace configtest;

namespace {

TEST(Settings, AnAbsentFileGivesTheDefaults) {
    machine::TheFiles().Delete(IniPath);
    g_pCfgReader = new CCfgReader(IniPath, nullptr, nullptr);
    EXPECT_EQ(g_pCfgReader->CreateSnapshot("test"), 0u);
    CSettings settings;
    EXPECT_EQ(settings.Timeout, 6000);
    settings.ReadSettings();
    EXPECT_EQ(settings.CheckPortsOnStartup, 1);
    EXPECT_EQ(settings.CheckPortsOnResume, 0);
    EXPECT_EQ(settings.MaxPortNumber, 255);
    EXPECT_EQ(settings.RemoteSessions, 1);
    EXPECT_EQ(settings.WaitNoPendingInstallEventsOnInit, 5000);
    EXPECT_EQ(settings.Enabled, 0);
    EXPECT_EQ(settings.EnabledOnRemoval, 0);
    EXPECT_EQ(settings.Timeout, 5500);
    EXPECT_EQ(settings.TimeoutOnRemoval, 2750);
    EXPECT_EQ(settings.SuppressWindowsBalloons, 1);
    EXPECT_STREQ(settings.TextRemoved, "Removed");
    EXPECT_STREQ(settings.ComNameArbiterClean, "");
}

TEST(Settings, TimesAreClampedAndTheRemovalsFollowsTheArrivals) {
    struct Row {
        const char* keys;
        LONG timeout, timeoutOnRemoval;
    };
    const Row rows[] = {{"Timeout=999", 1000, 1000},      {"Timeout=1000", 1000, 1000},
                        {"Timeout=60000", 60000, 30000},  {"Timeout=60001", 60000, 30000},
                        {"Timeout=-5", 1000, 1000},       {"Timeout=1500", 1500, 1000},
                        {"Timeout=5s", 1000, 1000},       {"Timeout=2001\nTimeoutOnRemoval=99999", 2001, 60000},
                        {"TimeoutOnRemoval=", 5500, 2750}};
    for (const Row& row : rows) {
        UseIni(std::string("[BalloonTips]\n") + row.keys + "\n");
        EXPECT_EQ(g_pSettings->Timeout, row.timeout) << row.keys;
        EXPECT_EQ(g_pSettings->TimeoutOnRemoval, row.timeoutOnRemoval) << row.keys;
    }
}

TEST(Settings, EachKeyReachesItsField) {
    StartLog();
    UseIni("[Settings]\nTelitHack=1\nRegisterAllDevClasses=2\nQuickAndDirtyMode=3\nRemoveDosDeviceNameOnStartup=4\n"
           "RemoveDosDeviceNameOnRemoval=5\nRemovePortDeviceOnRemoval=6\nRemoveUsbDeviceOnRemoval=7\n"
           "CheckPortsOnStartup=0\nCheckPortsOnResume=8\nAutoRunOnLogon=9\nComNameArbiterClean=1-9\nMaxPortNumber=\n"
           "WaitNoPendingInstallEventsOnInit=10\nEventLog=11\nRemoteSessions=2\n[BalloonTips]\nEnabled=1\n"
           "SuppressWindowsBalloons=0\nTextRemoved=" +
           std::string(64, 'x') + "\n");
    const CSettings& s = *g_pSettings;
    const LONG fields[] = {s.TelitHack,
                           s.RegisterAllDevClasses,
                           s.QuickAndDirtyMode,
                           s.RemoveDosDeviceNameOnStartup,
                           s.RemoveDosDeviceNameOnRemoval,
                           s.RemovePortDeviceOnRemoval,
                           s.RemoveUsbDeviceOnRemoval,
                           s.CheckPortsOnResume,
                           s.AutoRunOnLogon,
                           s.WaitNoPendingInstallEventsOnInit,
                           s.EventLog};
    for (LONG i = 0; i < 11; ++i) {
        EXPECT_EQ(fields[i], i + 1);
    }
    EXPECT_EQ(s.CheckPortsOnStartup, 0);
    EXPECT_EQ(s.MaxPortNumber, 255);
    EXPECT_EQ(s.RemoteSessions, 2);
    EXPECT_EQ(s.EnabledOnRemoval, 1);
    EXPECT_EQ(s.SuppressWindowsBalloons, 0);
    EXPECT_STREQ(s.ComNameArbiterClean, "1-9");
    EXPECT_STREQ(s.TextRemoved, "Removed");
    const std::string& log = machine::CurrentProcess()->debugOutput;
    const size_t first = log.find("]  TelitHack=1"), last = log.find("]  RemoteSessions=2");
    const size_t balloon = log.find("]  BalloonTips: TextRemoved=Removed");
    ASSERT_NE(balloon, std::string::npos);
    EXPECT_LT(first, balloon);
    EXPECT_LT(balloon, log.find("]  WaitNoPendingInstallEventsOnInit=10"));
    EXPECT_LT(balloon, last);
}

TEST(Settings, TheNarrowestUserWins) {
    struct Row {
        DWORD major;
        const char* keys;
        UserType user;
    };
    for (const Row& row : {Row{6, "open2=x", UserType::normal}, Row{6, "elevated2=1", UserType::elev},
                           Row{5, "elevated2=1", UserType::normal}, Row{6, "elevated2=1\nsystem2=1", UserType::system},
                           Row{6, "elevated2=1\nsystem2=1\nrestricted2=1", UserType::restr},
                           Row{6, "elevated2=0\nsystem3=1\nrestricted=1", UserType::normal}}) {
        g_Os.MajorVersion = row.major;
        CCfgReader* reader = UseIni(std::string("[OnArrival4]\n") + row.keys + "\n");
        EXPECT_EQ(reader->GetUserTypeFromCfg(OnArrival, 4, 2), row.user) << row.keys;
    }
    EXPECT_EQ(UseIni("[OnArrival4]\nsystem=1\n")->GetUserTypeFromCfg(OnArrival, 4, 10), UserType::system);
}

} // namespace
