#include "rehearse/rules/CriteriaCheck.h"

#include "rehearse/watch/Patterns.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

namespace rehearse {

constexpr std::string_view BusTypes[] = {"Unknown", "ISA", "PCI", "PCMCIA", "USB"};
constexpr std::size_t GuidLength = 38; // with its braces

static std::string Utf8(std::string_view text) {
    return machine::Utf8FromAnsi(std::string(text));
}

static bool IsOneOfKeys(const KnownKey& row, std::initializer_list<std::string_view> names) {
    return std::find(names.begin(), names.end(), row.name) != names.end();
}

static bool HoldsOnly(std::string_view text, std::string_view characters) {
    return text.find_first_not_of(characters) == std::string_view::npos;
}

// Why no port of any machine fits this pattern; "" if one may.
static std::string WhyNoneFits(const KnownKey& row, std::string_view pattern, unsigned sectionType) {
    const bool hasRun = pattern.find('*') != std::string_view::npos;
    if (IsOneOfKeys(row, {"BusType_"}) &&
        std::none_of(std::begin(BusTypes), std::end(BusTypes),
                     [&](std::string_view bus) { return FitsPattern(bus, pattern); })) {
        return "a bus is Unknown, ISA, PCI, PCMCIA or USB";
    }
    if (IsOneOfKeys(row, {"DeviceID_", "ParentDeviceID_", "GrandParentDeviceID_"}) && !hasRun &&
        std::count_if(pattern.begin(), pattern.end(), [](char c) { return c == '\\' || c == '|' || c == '?'; }) < 2) {
        return "a device's id has three parts, and the pattern means the whole of it: add \\*";
    }
    if (IsOneOfKeys(row, {"IRQ_", "Address_", "ParentAddress_"}) && !HoldsOnly(pattern, "0123456789?*")) {
        return "the value is a decimal number";
    }
    if (IsOneOfKeys(row, {"IoPort_"}) && !HoldsOnly(pattern, "0123456789abcdefABCDEF?*")) {
        return "the value is a hexadecimal number without a prefix, such as 3F8";
    }
    if (IsOneOfKeys(row, {"UsbPort_"}) && !HoldsOnly(pattern, "0123456789-?*")) {
        return "the value is made of numbers and dashes, such as 3-7-1";
    }
    if (IsOneOfKeys(row, {"ClassGuid_"}) &&
        (HoldsOnly(pattern.substr(0, 1), "*?{[") ? !hasRun && pattern.size() != GuidLength : true)) {
        return "the value is a GUID in braces";
    }
    if (IsOneOfKeys(row, {"KernelName_"})) {
        if (sectionType == RemovalSection) {
            return "at a removal the name is gone";
        }
        if (!HoldsOnly(pattern.substr(0, 1), "*?\\|")) {
            return "the value begins with a backslash, such as \\Device\\VCP0";
        }
    }
    return "";
}

static void CheckPatterns(const IniSection& section, Findings& findings) {
    for (const IniValue& value : section.values) {
        const KeyUse use = UseOfKey(section.type, value.key);
        if (!use.row || use.row->kind != KeyKind::Pattern) {
            continue;
        }
        if (value.value.empty()) {
            findings.push_back({Fault::EmptyCriterion, value.at,
                                fmt::format("{} is empty and counts as absent, {} fits more ports", Utf8(value.key),
                                            SectionText(section)),
                                "give it a value, or remove it"});
        } else if (const std::string why = WhyNoneFits(*use.row, value.value, section.type);
                   !why.empty() && ValueOf(section, *use.row, use.form) == &value && value.value[0] != '"' &&
                   value.value[0] != '\t') {
            findings.push_back({Fault::FitsNothing, value.valueAt,
                                fmt::format("no port fits {}={}", Utf8(value.key), Utf8(value.value)), why});
        }
    }
}

static void CheckNumbers(const IniSection& section, Findings& findings) {
    const std::vector<WantedNumber> numbers = NumbersOf(section);
    if (numbers.empty()) {
        findings.push_back(
            {Fault::NoNumber, section.at,
             fmt::format("{} wants no number that counts: its ports stay as they are", SectionText(section)),
             "add PortName"});
        return;
    }
    if (numbers.size() > static_cast<std::size_t>(MostPortNumbers)) {
        findings.push_back({Fault::TooManyNumbers, numbers[MostPortNumbers].value->valueAt,
                            fmt::format("{} wants {} numbers, the first {} count", SectionText(section), numbers.size(),
                                        MostPortNumbers),
                            "want fewer"});
    }
    std::set<int> seen;
    for (const WantedNumber& wanted : numbers) {
        if (!seen.insert(wanted.number).second) {
            findings.push_back({Fault::NumberTwice, wanted.value->valueAt,
                                fmt::format("{} wants COM{} twice", SectionText(section), wanted.number),
                                "remove one"});
            break;
        }
    }
}

// Whether each port that fits `narrow` by this criterion fits `wide` by it too.
static bool IsRowCovered(const KnownKey& row, const std::vector<CriterionValue>& narrow,
                         const std::vector<CriterionValue>& wide) {
    bool hasAny = false;
    for (const CriterionValue& criterion : narrow) {
        if (criterion.row != &row) {
            continue;
        }
        hasAny = true;
        if (std::none_of(wide.begin(), wide.end(), [&](const CriterionValue& other) {
                return other.row == &row && IsPatternWithin(criterion.value->value, other.value->value);
            })) {
            return false;
        }
    }
    return hasAny;
}

// One finding for each number, at the later section.
static void CheckWantedTwice(const IniFile& ini, const Coverage& coverage, Findings& findings) {
    std::vector<const IniSection*> rules;
    for (const IniSection& section : ini.sections) {
        if (section.type == PortSection && section.number > 0 && !CriteriaOf(section).empty() &&
            !coverage.CoveringSection(section)) {
            rules.push_back(&section);
        }
    }
    std::sort(rules.begin(), rules.end(), [](const auto* a, const auto* b) { return a->number < b->number; });
    std::map<int, const IniSection*> owners;
    for (const IniSection* rule : rules) {
        for (const WantedNumber& wanted : NumbersOf(*rule)) {
            const auto [owner, isNew] = owners.try_emplace(wanted.number, rule);
            if (!isNew && owner->second != rule) {
                findings.push_back({Fault::WantedTwice, wanted.value->valueAt,
                                    fmt::format("COM{} is wanted by {} of line {} too", wanted.number,
                                                SectionText(*owner->second), owner->second->at.line),
                                    "of two ports that are there at a time one will not get it"});
            }
        }
    }
}

Coverage::Coverage(const IniFile& ini) {
    for (const IniSection& section : ini.sections) {
        if (IsRuleSection(section.type) && section.number > 0) {
            m_rules.push_back({&section, CriteriaOf(section)});
        }
    }
    std::sort(m_rules.begin(), m_rules.end(),
              [](const Rule& a, const Rule& b) { return a.section->number < b.section->number; });
}

bool Coverage::Covers(const Rule& wide, const Rule& narrow) {
    return !wide.criteria.empty() &&
           std::all_of(wide.criteria.begin(), wide.criteria.end(), [&](const CriterionValue& criterion) {
               return IsRowCovered(*criterion.row, narrow.criteria, wide.criteria);
           });
}

const IniSection* Coverage::CoveringSection(const IniSection& section) const {
    const auto own =
        std::find_if(m_rules.begin(), m_rules.end(), [&](const Rule& rule) { return rule.section == &section; });
    const auto covering = std::find_if(m_rules.begin(), own, [&](const Rule& rule) {
        return rule.section->type == section.type && Covers(rule, *own);
    });
    return covering == own ? nullptr : covering->section;
}

void CheckCriteria(const IniFile& ini, Findings& findings) {
    const Coverage coverage(ini);
    for (const IniSection& section : ini.sections) {
        if (!IsRuleSection(section.type) || section.number == 0) {
            continue;
        }
        CheckPatterns(section, findings);
        if (CriteriaOf(section).empty()) {
            findings.push_back({Fault::NoCriterion, section.at,
                                fmt::format("{} has no criterion and fits no port", SectionText(section)),
                                "say which ports it means"});
        } else if (const IniSection* covering = coverage.CoveringSection(section)) {
            findings.push_back({Fault::NeverWins, section.at,
                                fmt::format("{} never wins: {} of line {} fits every port that it fits",
                                            SectionText(section), SectionText(*covering), covering->at.line),
                                "give this one the lower number"});
        }
        if (section.type == PortSection) {
            CheckNumbers(section, findings);
        }
    }
    CheckWantedTwice(ini, coverage, findings);
}

} // namespace rehearse
