// The lines as administrators write them, which the reader's fuzzer begins with: the good ones give the values that are
// written beside them, the bad ones give nothing.
#include "config/CCfgReader.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Text.h"

#include "tests/harness/Harness.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr char IniFile[] = "C:\\Program Files\\Quillmarch\\Quillmarch.INI";
constexpr char Expected[] = ";= ";

// A block of the file, as a settings file of its own.
struct Block {
    int line = 0; // of its first line in the corpus
    std::vector<std::string> lines;
};

std::vector<Block> BlocksOf(const char* name) {
    const std::filesystem::path folder = std::filesystem::path(__FILE__).parent_path() / "../../../fuzz/corpus";
    std::ifstream file(folder / name, std::ios::binary);
    EXPECT_TRUE(file) << folder / name;
    std::stringstream text;
    text << file.rdbuf();
    std::vector<Block> blocks(1);
    int number = 0;
    // The file is kept as UTF-8, the machine's settings are in its own code page.
    for (const std::string& line : machine::Split(machine::AnsiFromUtf8(text.str()), '\n')) {
        ++number;
        if (line.empty()) {
            blocks.emplace_back();
            continue;
        }
        if (blocks.back().lines.empty()) {
            blocks.back().line = number;
        }
        blocks.back().lines.push_back(line);
    }
    std::erase_if(blocks, [](const Block& block) { return block.lines.empty(); });
    return blocks;
}

CCfgReader* ReaderOf(const Block& block) {
    std::string text;
    for (const std::string& line : block.lines) {
        text += line + "\r\n";
    }
    machine::TheFiles().Write(IniFile, text);
    static CCfgReader* reader = new CCfgReader(IniFile, nullptr, nullptr); // one for all: a lock lives with its process
    EXPECT_EQ(1u, reader->CreateSnapshot("block")) << "line " << block.line;
    return reader;
}

// "ComPorts12" as type and number.
std::pair<CfgSectionType, LONG> SectionOf(const std::string& name) {
    const std::size_t digits = name.find_first_of("0123456789");
    for (LONG type = Settings; type < SectionTypeCount; ++type) {
        if (name.substr(0, digits) == SectionTypeName(static_cast<CfgSectionType>(type))) {
            return {static_cast<CfgSectionType>(type),
                    digits == std::string::npos ? NoSectionNumber : std::stoi(name.substr(digits))};
        }
    }
    ADD_FAILURE() << "no section " << name;
    return {Settings, 0};
}

TEST(Corpus, GoodLinesGiveTheValuesBesideThem) {
    int checked = 0;
    for (const Block& block : BlocksOf("good_lines.ini")) {
        CCfgReader* reader = ReaderOf(block);
        for (const std::string& line : block.lines) {
            if (!line.starts_with(Expected)) {
                continue;
            }
            const std::size_t blank = line.find(' ', sizeof(Expected)), colon = line.find(": ", blank);
            ASSERT_NE(colon, std::string::npos) << line;
            const auto [type, number] = SectionOf(line.substr(sizeof(Expected) - 1, blank - sizeof(Expected) + 1));
            const std::string key = line.substr(blank + 1, colon - blank - 1);
            char value[260];
            reader->GetString(type, number, key.c_str(), "(absent)", value, sizeof(value));
            EXPECT_EQ(line.substr(colon + 2), value) << "the block at line " << block.line << ", " << line;
            ++checked;
        }
    }
    EXPECT_GT(checked, 20);
}

TEST(Corpus, BadLinesGiveNothing) {
    int asked = 0;
    for (const Block& block : BlocksOf("bad_lines.ini")) {
        CCfgReader* reader = ReaderOf(block);
        for (const std::string& line : block.lines) {
            // Whatever stands in front of what an administrator may have meant as the end of a key.
            const std::size_t begin = line.find_first_not_of(" \t;#\"-");
            const std::size_t end = line.find_first_of("\" :>\t=", begin);
            if (begin == std::string::npos || end == begin) {
                continue;
            }
            const std::string key = line.substr(begin, end == std::string::npos ? end : end - begin);
            for (LONG type = Settings; type < SectionTypeCount; ++type) {
                for (LONG number = 0; number <= MaxSectionNumber; ++number) {
                    char value[260];
                    const DWORD length = reader->GetString(static_cast<CfgSectionType>(type), number, key.c_str(), "",
                                                           value, sizeof(value));
                    EXPECT_EQ(0u, length) << "the block at line " << block.line << ", " << line << " gives " << value;
                }
            }
            ++asked;
        }
    }
    EXPECT_GT(asked, 40);
}

} // namespace
