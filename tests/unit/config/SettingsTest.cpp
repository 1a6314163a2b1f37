// The settings: limits, what depends on what; and whom an entry's keys name.
#include "tests/unit/config/ConfigOnMachine.h"

#include "support/OsVersion.h"

using namespace configtest;

namespace {

TEST(Settings, TimesAreClampedAndTheRemovalsFollowsTheArrivals) {
    using Row = std::tuple<const char*, LONG, LONG>;
    for (const auto& [keys, timeout, timeoutOnRemoval] :
         {Row{"Timeout=999", 1000, 1000}, Row{"Timeout=1000", 1000, 1000}, Row{"Timeout=60000", 60000, 30000},
          Row{"Timeout=60001", 60000, 30000}, Row{"Timeout=-5", 1000, 1000}, Row{"Timeout=1500", 1500, 1000},
          Row{"Timeout=5s", 1000, 1000}, Row{"TimeoutOnRemoval=", 5500, 2750},
          Row{"Timeout=2001\nTimeoutOnRemoval=99999", 2001, 60000}}) {
        UseIni(std::string("[BalloonTips]\n") + keys + "\n");
        EXPECT_EQ(g_pSettings->Timeout, timeout) << keys;
        EXPECT_EQ(g_pSettings->TimeoutOnRemoval, timeoutOnRemoval) << keys;
    }
}

TEST(Settings, AnEmptyTextOrOneWithoutRoomIsNone) {
    UseIni("[Settings]\nMaxPortNumber=\nComNameArbiterClean=1-9\n[BalloonTips]\nEnabled=1\nTextRemoved=" +
           std::string(64, 'x') + "\n");
    EXPECT_EQ(g_pSettings->MaxPortNumber, 255);
    EXPECT_EQ(g_pSettings->EnabledOnRemoval, 1) << "as on arrival";
    EXPECT_STREQ(g_pSettings->ComNameArbiterClean, "1-9");
    EXPECT_STREQ(g_pSettings->TextRemoved, "Removed");
}

TEST(Settings, TheNarrowestUserWins) {
    using Row = std::tuple<DWORD, const char*, UserType>;
    for (const auto& [major, keys, user] :
         {Row{6, "open2=x", UserType::normal}, Row{6, "elevated2=1", UserType::elev},
          Row{5, "elevated2=1", UserType::normal}, Row{6, "elevated2=1\nsystem2=1", UserType::system},
          Row{6, "elevated2=1\nsystem2=1\nrestricted2=1", UserType::restr},
          Row{6, "elevated2=0\nsystem3=1\nrestricted=1", UserType::normal}}) {
        g_Os.MajorVersion = major;
        CCfgReader* reader = UseIni(std::string("[OnArrival4]\n") + keys + "\n");
        EXPECT_EQ(reader->GetUserTypeFromCfg(OnArrival, 4, 2), user) << keys;
    }
    EXPECT_EQ(UseIni("[OnArrival4]\nsystem=1\n")->GetUserTypeFromCfg(OnArrival, 4, 10), UserType::system);
}

} // namespace
