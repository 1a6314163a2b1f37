// The lines as administrators write them, which the reader's fuzzer begins with: the good ones give the values that are
// written beside them, the bad ones give nothing.
#include "tests/unit/config/ConfigOnMachine.h"

#include "simwin/kernel/Text.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

constexpr char Expected[] = ";= ";

// The lines of a settings file of its own.
using Block = std::vector<std::string>;

// The file is kept as UTF-8, the machine's settings are in its own code page.
static std::vector<Block> BlocksOf(const char* name) {
    const std::filesystem::path folder = std::filesystem::path(__FILE__).parent_path() / "../../../fuzz/corpus";
    std::ifstream file(folder / name, std::ios::binary);
    EXPECT_TRUE(file) << folder / name;
    std::stringstream text;
    text << file.rdbuf();
    std::vector<Block> blocks(1);
    for (const std::string& line : machine::Split(machine::AnsiFromUtf8(text.str()), '\n')) {
        if (line.empty()) {
            blocks.emplace_back();
        } else {
            blocks.back().push_back(line);
        }
    }
    return blocks;
}

static CCfgReader* ReaderOf(const Block& block) {
    std::string text;
    for (const std::string& line : block) {
        text += (text.empty() ? "" : "\r\n") + line;
    }
    configtest::WriteIni(text);
    static CCfgReader* reader = new CCfgReader(configtest::IniPath, nullptr, nullptr); // a lock lives with its process
    EXPECT_EQ(1u, reader->CreateSnapshot("block")) << text;
    return reader;
}

// "ComPorts12" as type and number.
static std::pair<CfgSectionType, LONG> SectionOf(const std::string& name) {
    const std::size_t digits = name.find_first_of("0123456789");
    LONG type = Settings;
    while (type < SectionTypeCount && name.substr(0, digits) != SectionTypeName(static_cast<CfgSectionType>(type))) {
        ++type;
    }
    EXPECT_LT(type, SectionTypeCount) << name;
    return {static_cast<CfgSectionType>(type),
            digits == std::string::npos ? NoSectionNumber : std::stoi(name.substr(digits))};
}

TEST(Corpus, GoodLinesGiveTheValuesBesideThem) {
    int checked = 0;
    for (const Block& block : BlocksOf("good_lines.ini")) {
        CCfgReader* reader = ReaderOf(block);
        for (const std::string& line : block) {
            if (!line.starts_with(Expected)) {
                continue;
            }
            const std::size_t blank = line.find(' ', sizeof(Expected)), colon = line.find(": ", blank);
            ASSERT_NE(colon, std::string::npos) << line;
            const auto [type, number] = SectionOf(line.substr(sizeof(Expected) - 1, blank - sizeof(Expected) + 1));
            const std::string key = line.substr(blank + 1, colon - blank - 1);
            EXPECT_EQ(line.substr(colon + 2), configtest::Get(*reader, type, number, key.c_str())) << line;
            ++checked;
        }
    }
    EXPECT_GT(checked, 30);
}

TEST(Corpus, BadLinesGiveNothing) {
    int asked = 0;
    for (const Block& block : BlocksOf("bad_lines.ini")) {
        CCfgReader* reader = ReaderOf(block);
        for (const std::string& line : block) {
            // Whatever precedes what an administrator may have meant as the end of a key.
            const std::size_t begin = line.find_first_not_of(" \t;#\"-"), end = line.find_first_of("\" :>\t=", begin);
            if (begin == std::string::npos || end == begin) {
                continue;
            }
            const std::string key = line.substr(begin, end - begin);
            for (LONG type = Settings; type < SectionTypeCount; ++type) {
                for (LONG number = 0; number <= MaxSectionNumber; ++number) {
                    const std::string value =
                        configtest::Get(*reader, static_cast<CfgSectionType>(type), number, key.c_str());
                    EXPECT_TRUE(value.empty() || value == configtest::Absent) << line << " gives " << value;
                }
            }
            ++asked;
        }
    }
    EXPECT_GT(asked, 40);
}
