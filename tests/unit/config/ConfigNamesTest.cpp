// The small parts of the reader: keys with an index, durations.
#include "config/Durations.h"
#include "config/KeyIndex.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

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
          Row{"50d", 50 * 86'400'000u}, Row{"1" + blanks + "s", 1000}, Row{"1 " + blanks + "s", 0}})
        EXPECT_EQ(ParseDuration(text.c_str()), milliseconds) << text;
}

} // namespace
