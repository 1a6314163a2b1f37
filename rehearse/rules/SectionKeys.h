// The keys that a section may have, and which of its values count. Pure.
#pragma once

#include "rehearse/rules/IniFile.h"

#include "src/keys/ConfigurationKeys.h"

#include <string>
#include <string_view>
#include <vector>

namespace rehearse {

// Index into SectionNames.
enum SectionKind : unsigned {
    SettingsSection = 0,
    PortSection = 1,
    ArrivalSection = 2,
    RemovalSection = 3,
    BalloonSection = 6,
};
inline bool IsActionSection(unsigned type) {
    return type > PortSection && type < BalloonSection;
}
// Whether its criteria choose ports.
inline bool IsRuleSection(unsigned type) {
    return type >= PortSection && type <= RemovalSection;
}

// A row of the tables and its form: 0 the plain name, else the appended digit. row null: the section has no such key.
struct KeyUse {
    const KnownKey* row = nullptr;
    unsigned form = 0;
};
KeyUse UseOfKey(unsigned type, std::string_view key);

// "PortName1" for PortName_ and 1.
std::string NameOfKey(const KnownKey& row, unsigned form);
// All names that a section of this type knows.
std::vector<std::string> NamesOfKeys(unsigned type);

// The value that counts, the last of equal keys; null if there is none, it is empty, or too long to be taken.
const IniValue* ValueOf(const IniSection& section, const KnownKey& row, unsigned form = 0);

struct CriterionValue {
    const KnownKey* row;
    const IniValue* value;
};
// The criteria that count, in the order of the test.
std::vector<CriterionValue> CriteriaOf(const IniSection& section);

struct WantedNumber {
    int number;
    const IniValue* value;
};
// In the order of preference, including those beyond the maximum that a section can want.
std::vector<WantedNumber> NumbersOf(const IniSection& section);

// A decimal number as the product reads it: an optional minus, digits, what does not fit wraps. length: what was read.
int ReadNumber(std::string_view text, std::size_t* length = nullptr);
// Milliseconds of an entry's key, with its limits.
std::int64_t ReadTimeMs(std::string_view text);

// The number of a key, or its default.
int NumberOf(const IniSection& section, const KnownKey& row, unsigned form, int otherwise);

} // namespace rehearse
