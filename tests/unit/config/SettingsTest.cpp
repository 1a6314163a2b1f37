// The settings: limits, what depends on what; and whom an entry's keys name.
#include "tests/unit/config/ConfigOnMachine.h"

#include "support/OsVersion.h"

using namespace configtest;

namespace {

TEST(Settings, TimesAreClampedAndTheRemovalsFollowsTheArrivals) {
    const struct {
        const char* keys;
        LONG timeout, timeoutOnRemoval;
    } rows[] = {{"Timeout=999", 1000, 1000},
                {"Timeout=1000", 1000, 1000},
                {"Timeout=60000", 60000, 30000},
                {"Timeout=60001", 60000, 30000},
                {"Timeout=-5", 1000, 1000},
                {"Timeout=1500", 1500, 1000},
                {"Timeout=5s", 1000, 1000},
                {"TimeoutOnRemoval=", 5500, 2750},
                {"Timeout=2001\nTimeoutOnRemoval=99999", 2001, 60000}};
    for (const auto& row : rows) {
        UseIni(std::string("[BalloonTips]\n") + row.keys + "\n");
        EXPECT_EQ(g_pSettings->Timeout, row.timeout) << row.keys;
        EXPECT_EQ(g_pSettings->TimeoutOnRemoval, row.timeoutOnRemoval) << row.keys;
    }
}

TEST(Settings, EachKeyReachesItsFieldAndItsLine) {
    StartLog();
    const char* const keys[] = {"TelitHack",
                                "RegisterAllDevClasses",
                                "QuickAndDirtyMode",
                                "RemoveDosDeviceNameOnStartup",
                                "RemoveDosDeviceNameOnRemoval",
                                "RemovePortDeviceOnRemoval",
                                "RemoveUsbDeviceOnRemoval",
                                "CheckPortsOnStartup",
                                "CheckPortsOnResume",
                                "AutoRunOnLogon",
                                "WaitNoPendingInstallEventsOnInit",
                                "EventLog",
                                "RemoteSessions"};
    std::string text = "[Settings]\nMaxPortNumber=\nComNameArbiterClean=1-9\n";
    for (size_t i = 0; i < std::size(keys); ++i)
        text += std::string(keys[i]) + "=" + std::to_string(i + 11) + "\n";
    UseIni(text + "[BalloonTips]\nEnabled=1\nSuppressWindowsBalloons=0\nTextRemoved=" + std::string(64, 'x') + "\n");
    for (size_t i = 0; i < std::size(keys); ++i)
        EXPECT_TRUE(Logged(std::string("  ") + keys[i] + "=" + std::to_string(i + 11) + "\n")) << keys[i];
    EXPECT_EQ(g_pSettings->MaxPortNumber, 255);
    EXPECT_EQ(g_pSettings->EnabledOnRemoval, 1);
    EXPECT_EQ(g_pSettings->SuppressWindowsBalloons, 0);
    EXPECT_STREQ(g_pSettings->ComNameArbiterClean, "1-9");
    EXPECT_STREQ(g_pSettings->TextRemoved, "Removed");
}

TEST(Settings, TheNarrowestUserWins) {
    const struct {
        DWORD major;
        const char* keys;
        UserType user;
    } rows[] = {{6, "open2=x", UserType::normal},
                {6, "elevated2=1", UserType::elev},
                {5, "elevated2=1", UserType::normal},
                {6, "elevated2=1\nsystem2=1", UserType::system},
                {6, "elevated2=1\nsystem2=1\nrestricted2=1", UserType::restr},
                {6, "elevated2=0\nsystem3=1\nrestricted=1", UserType::normal}};
    for (const auto& row : rows) {
        g_Os.MajorVersion = row.major;
        CCfgReader* reader = UseIni(std::string("[OnArrival4]\n") + row.keys + "\n");
        EXPECT_EQ(reader->GetUserTypeFromCfg(OnArrival, 4, 2), row.user) << row.keys;
    }
    EXPECT_EQ(UseIni("[OnArrival4]\nsystem=1\n")->GetUserTypeFromCfg(OnArrival, 4, 10), UserType::system);
}

} // namespace
