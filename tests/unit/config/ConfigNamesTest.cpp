// The small parts of the reader: hash of names, keys with an index, durations.
#include "config/Durations.h"
#include "config/KeyIndex.h"
#include "config/NameHash.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

// Word by word, as it is told.
DWORD SlowHash(const std::string& text) {
    DWORD hash = static_cast<DWORD>(text.size()) << 24;
    for (size_t i = 0; i < text.size(); i += 2) {
        const auto low = static_cast<unsigned char>(text[i]);
        const auto high = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        hash += static_cast<DWORD>(high << 8 | low) & 0xDFDF;
    }
    return hash;
}

TEST(NameHash, EveryLengthAndByteGivesTheSumOfItsWords) {
    std::string text;
    for (int length = 0; length < 300; ++length) {
        EXPECT_EQ(NameHash(text), SlowHash(text)) << length;
        text += static_cast<char>(255 - length * 7);
    }
    EXPECT_EQ(NameHash("comports"), NameHash("COMPORTS"));
    EXPECT_NE(NameHash("ComPorts"), NameHash("ComPort"));
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
    EXPECT_EQ(std::string(SectionNumberSuffix(7)) + SectionNumberSuffix(99), "799");
    EXPECT_STREQ(SectionNumberSuffix(0), "0");
    EXPECT_STREQ(SectionNumberSuffix(100), "");
    EXPECT_STREQ(SectionNumberSuffix(-1), "");
}

TEST(Durations, TheFirstLetterIsTheUnit) {
    const std::pair<std::string, DWORD> rows[] = {{"1500", 1500},
                                                  {"5s", 5000},
                                                  {"5 S", 5000},
                                                  {"2m", 120'000},
                                                  {"3h", 10'800'000},
                                                  {"1d", 86'400'000},
                                                  {"500ms", 30'000'000},
                                                  {"1x", 1},
                                                  {"1xs", 1},
                                                  {"abc", 0},
                                                  {"", 0},
                                                  {"s5", 0},
                                                  {"\xC4"
                                                   "1s",
                                                   0},
                                                  {"50d", 50 * 86'400'000u},
                                                  {"1" + std::string(61, ' ') + "s", 1000},
                                                  {"1" + std::string(62, ' ') + "s", 0}};
    for (const auto& [text, milliseconds] : rows) {
        EXPECT_EQ(ParseDuration(text.c_str()), milliseconds) << text;
    }
}

} // namespace
