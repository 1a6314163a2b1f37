// A configuration file as the product reads it, with the place of everything: the sections and values of its snapshot,
// what the system's profile functions find for the keys that are read straight from the file, and what gets lost on the
// way. Pure except for the one read of the host's file.
#pragma once

#include "rehearse/rules/Findings.h"

#include <string>
#include <string_view>
#include <vector>

namespace rehearse {

// A key with its value, in the machine's code page.
struct IniValue {
    std::string key, value;
    Position at, valueAt;
};

struct IniSection {
    unsigned type = 0; // index into SectionNames
    int number = 0;    // 100: without one
    std::string name;  // as it is written between the brackets
    Position at;
    std::vector<IniValue> values;
};

struct IniFile {
    std::vector<IniSection> sections; // those that were taken, in the order of the file
    std::vector<IniValue> settings;   // [Settings] and [BalloonTips] as the profile functions read them
    std::vector<IniValue> balloons;
};

inline constexpr int SectionWithoutNumber = 100;

// file: host path, as the findings show it. Throws InputError if it cannot be read.
IniFile ReadIniFile(const std::string& file, Findings& findings);
// The same of a text that was read already.
IniFile ParseIni(const std::string& file, std::string bytes, Findings& findings);

// "[ComPorts12]" as the log writes it.
std::string SectionText(const IniSection& section);

} // namespace rehearse
