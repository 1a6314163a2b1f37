#include "rehearse/rules/SectionKeys.h"

#include "simwin/kernel/Text.h"

#include <algorithm>
#include <cstdint>
#include <span>

namespace rehearse {

constexpr unsigned Forms = 10; // plain, and the digits 1 to 9

using KeyTable = std::span<const KnownKey>;

static std::vector<KeyTable> TablesOf(unsigned type) {
    if (type == SettingsSection) {
        return {SettingsKeys};
    }
    if (type == BalloonSection) {
        return {BalloonKeys};
    }
    if (type == PortSection) {
        return {CriterionKeys, PortKeys};
    }
    return {CriterionKeys, EntryKeys};
}

static bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string NameOfKey(const KnownKey& row, unsigned form) {
    std::string name = row.name;
    if (row.forms == KeyForms::Ten) {
        name.pop_back();
    }
    return form == 0 ? name : name + static_cast<char>('0' + form);
}

KeyUse UseOfKey(unsigned type, std::string_view key) {
    for (const KeyTable table : TablesOf(type)) {
        for (const KnownKey& row : table) {
            for (unsigned form = 0; form < (row.forms == KeyForms::Ten ? Forms : 1); ++form) {
                if (machine::EqualNoCase(key, NameOfKey(row, form))) {
                    return {&row, form};
                }
            }
        }
    }
    return {};
}

std::vector<std::string> NamesOfKeys(unsigned type) {
    std::vector<std::string> names;
    for (const KeyTable table : TablesOf(type)) {
        for (const KnownKey& row : table) {
            for (unsigned form = 0; form < (row.forms == KeyForms::Ten ? Forms : 1); ++form) {
                names.push_back(NameOfKey(row, form));
            }
        }
    }
    return names;
}

const IniValue* ValueOf(const IniSection& section, const KnownKey& row, unsigned form) {
    const std::string name = NameOfKey(row, form);
    const auto last = std::find_if(section.values.rbegin(), section.values.rend(),
                                   [&](const IniValue& value) { return machine::EqualNoCase(value.key, name); });
    if (last == section.values.rend() || last->value.empty() || last->value.size() > row.longest) {
        return nullptr;
    }
    return &*last;
}

std::vector<CriterionValue> CriteriaOf(const IniSection& section) {
    std::vector<CriterionValue> criteria;
    for (const KnownKey& row : CriterionKeys) {
        for (unsigned form = 0; form < Forms; ++form) {
            if (const IniValue* value = ValueOf(section, row, form)) {
                criteria.push_back({&row, value});
            }
        }
    }
    return criteria;
}

std::vector<WantedNumber> NumbersOf(const IniSection& section) {
    std::vector<WantedNumber> numbers;
    const auto add = [&](const KnownKey& row, unsigned form) {
        const IniValue* value = ValueOf(section, row, form);
        if (!value) {
            return;
        }
        const std::string& text = value->value;
        for (std::size_t at = machine::FindNoCase(text, "COM"); at != std::string::npos;
             at = machine::FindNoCase(text, "COM", at)) {
            at += 3;
            if (const int number = ReadNumber(std::string_view(text).substr(at));
                number >= 1 && number <= HighestPortNumber) {
                numbers.push_back({number, value});
            }
        }
    };
    add(PortKeys[0], 0);
    for (unsigned form = 0; form < Forms; ++form) {
        add(PortKeys[1], form);
    }
    return numbers;
}

int ReadNumber(std::string_view text, std::size_t* length) {
    const bool isNegative = text.starts_with('-');
    std::size_t at = isNegative ? 1 : 0;
    std::uint32_t number = 0;
    for (; at < text.size() && IsDigit(text[at]); ++at) {
        number = number * 10 + static_cast<std::uint32_t>(text[at] - '0');
    }
    if (length) {
        *length = at;
    }
    return static_cast<int>(isNegative ? 0 - number : number);
}

std::int64_t ReadTimeMs(std::string_view text) {
    const int number = ReadNumber(text);
    if (number < 0) {
        return 0;
    }
    std::uint32_t unit = 1;
    for (const char c : text) {
        const char letter = machine::LowerChar(c);
        if (letter < 'a' || letter > 'z') {
            continue;
        }
        unit = letter == 's' ? 1000 : letter == 'm' ? 60000 : letter == 'h' ? 3600000 : letter == 'd' ? 86400000 : 1;
        break;
    }
    const std::uint32_t ms = static_cast<std::uint32_t>(number) * unit; // wraps, as the product's does
    return std::min<std::int64_t>(ms, LongestDurationMs);
}

int NumberOf(const IniSection& section, const KnownKey& row, unsigned form, int otherwise) {
    const IniValue* value = ValueOf(section, row, form);
    return value ? ReadNumber(value->value) : otherwise;
}

} // namespace rehearse
