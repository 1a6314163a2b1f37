// The settings: limits, what depends on what; whom an entry's keys name; keys with an index, durations.
#include "config/Durations.h"
#include "config/KeyIndex.h"
#include "support/system/OsVersion.h"
#include "tests/unit/config/ConfigOnMachine.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

using namespace configtest;

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
        g_os.MajorVersion = major;
        CCfgReader* reader = UseIni(std::string("[OnArrival4]\n") + keys + "\n");
        EXPECT_EQ(reader->GetUserTypeFromCfg(OnArrival, 4, 2), user) << keys;
    }
    EXPECT_EQ(UseIni("[OnArrival4]\nsystem=1\n")->GetUserTypeFromCfg(OnArrival, 4, 10), UserType::system);
}

TEST(KeyIndex, TheUnderscoreBecomesADigitOrGoes) {
    char key[] = "open_";
    // One buffer for all rows: the place is found again after a key that was cut off.
    const std::pair<DWORD, const char*> rows[] = {{1, "open1"},   {10, "open"},   {9, "open9"}, {'0', "open"},
                                                  {'1', "open1"}, {'9', "open9"}, {0, "open"},  {11, "open"}};
    for (const auto& [index, expected] : rows) {
        SetKeyIndex(key, index);
        EXPECT_STREQ(key, expected) << index;
    }
}

TEST(KeyIndex, SuffixesOfTwoSectionsStandInOneLine) {
    EXPECT_EQ(std::string(SectionNumberSuffix(7)) + SectionNumberSuffix(99) + SectionNumberSuffix(0), "7990");
    EXPECT_STREQ(SectionNumberSuffix(100), "");
    EXPECT_STREQ(SectionNumberSuffix(-1), "");
}

TEST(Durations, TheFirstLetterIsTheUnit) {
    using Row = std::tuple<std::string, DWORD>;
    const std::string blanks(61, ' ');
    for (const auto& [text, milliseconds] :
         {Row{"1500", 1500}, Row{"5s", 5000}, Row{"5 S", 5000}, Row{"2m", 120'000}, Row{"3h", 10'800'000},
          Row{"1d", 86'400'000}, Row{"500ms", 30'000'000}, Row{"1x", 1}, Row{"1xs", 1}, Row{"abc", 0}, Row{"", 0},
          Row{"s5", 0},
          Row{"\xC4"
              "1s",
              0},
          Row{"50d", 50 * 86'400'000u}, Row{"1" + blanks + "s", 1000}, Row{"1 " + blanks + "s", 0}}) {
        EXPECT_EQ(ParseDuration(text.c_str()), milliseconds) << text;
    }
}
