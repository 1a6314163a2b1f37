// The check of a configuration reads a file by itself: it must give for each key what the product's reader gives.
// Random texts of the pieces that matter, in all encodings.
#include "tests/unit/config/ConfigOnMachine.h"

#include "rehearse/rules/SectionKeys.h"
#include "rehearse/watch/Patterns.h"

#include "config/Durations.h"
#include "engine/WildcardMatch.h"

#include <random>

constexpr const char* Lines[] = {"[ComPorts1]",
                                 "[comports01]",
                                 "[ComPorts]",
                                 "[ComPorts100]",
                                 "[ComPorts101]",
                                 " [ComPorts2]",
                                 "[ComPorts2] ; x",
                                 "[ComPorts2] ",
                                 "[Settings]",
                                 "[OnArrival7x]",
                                 "[mPCoorts3]",
                                 "[]",
                                 "[ComPorts2 of the workshop up]",
                                 "[BalloonTips]",
                                 "; comment",
                                 " PortName=COM1",
                                 "PortName=COM2 ",
                                 "portname =  COM3",
                                 "PortName",
                                 "PortName1=\tCOM4",
                                 "DeviceID=",
                                 "DeviceID=__SECTION__",
                                 "DeviceID9=__LINE__ __line__",
                                 "1=2",
                                 "Timeout=5s",
                                 "open=x=y",
                                 "[a=b",
                                 "\xC4=1",
                                 "TextRemoved=\xE4\xF6",
                                 "LogLevel=3",
                                 ""};
constexpr std::string_view Ends[] = {"\r\n", "\n", "\r", "\n\r", "\n\n", std::string_view("\0\n", 2)};

static std::string InUtf16(const std::string& text, bool isBigEndian) {
    std::string bytes = isBigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char c : text) {
        bytes.push_back(isBigEndian ? '\0' : c);
        bytes.push_back(isBigEndian ? c : '\0');
    }
    return bytes;
}

static void Compare(const std::string& text) {
    configtest::WriteIni(text);
    CCfgReader reader(configtest::IniPath, nullptr, nullptr);
    reader.CreateSnapshot("test");
    rehearse::Findings findings;
    const rehearse::IniFile ini = rehearse::ParseIni("my.ini", text, findings);
    for (unsigned type = 0; type < SectionNameCount; ++type) {
        for (int number = 0; number <= rehearse::SectionWithoutNumber; ++number) {
            const auto kind = static_cast<CfgSectionType>(type);
            const auto section = std::find_if(ini.sections.begin(), ini.sections.end(), [&](const auto& one) {
                return one.type == type && one.number == number;
            });
            ASSERT_EQ(reader.HasSection(kind, number) != 0, section != ini.sections.end()) << type << number << "\n"
                                                                                           << text;
            if (section == ini.sections.end()) {
                continue;
            }
            for (const std::string& key : rehearse::NamesOfKeys(type)) {
                const std::string came = configtest::Get(reader, kind, number, key.c_str());
                const rehearse::KeyUse use = rehearse::UseOfKey(type, key);
                const rehearse::IniValue* value = rehearse::ValueOf(*section, *use.row, use.form);
                ASSERT_EQ(came == configtest::Absent ? "" : came, value ? value->value : "") << key << "\n" << text;
            }
        }
    }
}

TEST(IniTwin, ReadsWhatTheReaderReads) {
    std::mt19937 random(7);
    for (int round = 0; round < 400; ++round) {
        std::string text = round % 9 == 0 ? "\xEF\xBB\xBF" : "";
        const std::string_view end = Ends[random() % std::size(Ends)];
        for (unsigned line = 0; line < 3 + random() % 20; ++line) {
            text.append(Lines[random() % std::size(Lines)])
                .append(random() % 8 ? end : Ends[random() % std::size(Ends)]);
        }
        Compare(round % 4 == 0 ? InUtf16(text, round % 8 == 0) : text);
        if (HasFatalFailure()) {
            return;
        }
    }
    std::string many = "[ComPorts1]\n";
    for (int i = 0; i < 300; ++i) {
        many += "x=1\r\n";
    }
    Compare(many + "[ComPorts2]\nPortName=COM1\n"); // exactly full
    Compare(many + "x=1\r\n[ComPorts2]\nPortName=COM1\n");
}

static std::string RandomText(std::mt19937& random, std::string_view letters, unsigned longest) {
    std::string text(random() % (longest + 1), ' ');
    for (char& c : text) {
        c = letters[random() % letters.size()];
    }
    return text;
}

// A pattern that is called the wider one must be: a section would be called superfluous that is not.
TEST(IniTwin, PatternsFitAsTheProductsDo) {
    std::mt19937 random(11);
    int within = 0;
    for (int round = 0; round < 60000; ++round) {
        const std::string text = RandomText(random, "aAb\\|", 6), pattern = RandomText(random, "aB\\*?", 5);
        const std::string wider = RandomText(random, "ab\\*?", 4);
        const bool fits = rehearse::FitsPattern(text, pattern);
        ASSERT_EQ(fits, WildcardMatch(text.c_str(), pattern.c_str()) != 0) << text << " " << pattern;
        if (rehearse::IsPatternWithin(pattern, wider)) {
            ++within;
            ASSERT_TRUE(!fits || WildcardMatch(text.c_str(), wider.c_str()) != 0)
                << text << " " << pattern << " " << wider;
        }
    }
    EXPECT_GT(within, 1000);
    EXPECT_TRUE(rehearse::IsPatternWithin("FTDIBUS\\VID_0403*A7?\\*", "ftdibus\\*\\*"));
    EXPECT_FALSE(rehearse::IsPatternWithin("FTDIBUS\\*", "FTDIBUS\\*\\*"));
}

TEST(IniTwin, TimesAreReadAsTheProductReadsThem) {
    std::mt19937 random(13);
    for (int round = 0; round < 20000; ++round) {
        const std::string text = RandomText(random, "0123456789-sSmhdx .", 12);
        const DWORD ms = StrToIntA(text.c_str()) < 0 ? 0 : ParseDuration(text.c_str());
        ASSERT_EQ(rehearse::ReadTimeMs(text), std::min<std::int64_t>(ms, LongestDurationMs)) << text;
    }
}
