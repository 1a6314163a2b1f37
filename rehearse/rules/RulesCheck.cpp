#include "rehearse/rules/RulesCheck.h"

#include "rehearse/description/Manners.h"
#include "rehearse/rules/ActionCheck.h"
#include "rehearse/rules/CriteriaCheck.h"
#include "rehearse/rules/SectionKeys.h"
#include "rehearse/rules/ValueCheck.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

namespace rehearse {

static std::string Utf8(const std::string& text) {
    return machine::Utf8FromAnsi(text);
}

// What to do about a key that a section does not know.
static std::string SuggestionFor(const IniSection& section, const std::string& key) {
    std::string base = key;
    while (!base.empty() && base.back() >= '0' && base.back() <= '9') {
        base.pop_back();
    }
    if (const KeyUse use = UseOfKey(section.type, base); use.row && base != key) {
        const std::string name = NameOfKey(*use.row, 0);
        return use.row->forms == KeyForms::Ten ? fmt::format("{} takes no number, or one digit from 1 to 9", name)
                                               : fmt::format("{} takes no number", name);
    }
    for (const unsigned type : {SettingsSection, PortSection, ArrivalSection, BalloonSection}) {
        if (const KeyUse use = UseOfKey(type, key); use.row) {
            return fmt::format("it belongs into [{}]", SectionNames[type]);
        }
    }
    const std::string near = NearestName(key, NamesOfKeys(section.type));
    return near.empty() ? "" : fmt::format("did you mean {}?", near);
}

static void TellOfTwice(const IniSection& section, std::size_t at, const KnownKey& row, Findings& findings) {
    for (std::size_t i = 0; i < at; ++i) {
        if (machine::EqualNoCase(section.values[i].key, section.values[at].key)) {
            const bool isFirst = row.source == KeySource::Profile;
            findings.push_back({Fault::KeyTwice, section.values[at].at,
                                fmt::format("{} is in line {} already, {} counts", Utf8(section.values[at].key),
                                            section.values[i].at.line, isFirst ? "that one" : "this one"),
                                "remove one"});
            return;
        }
    }
}

// A key without effect is not a fault as long as it requests nothing.
static bool AsksForSomething(const KnownKey& row, const IniValue& value) {
    return row.kind == KeyKind::Flag ? ReadNumber(value.value) != 0 : !value.value.empty();
}

static void CheckKeys(const IniSection& section, Findings& findings) {
    for (std::size_t i = 0; i < section.values.size(); ++i) {
        const IniValue& value = section.values[i];
        const KeyUse use = UseOfKey(section.type, value.key);
        if (!use.row) {
            findings.push_back({Fault::UnknownKey, value.at,
                                fmt::format("{} has no key {}", SectionText(section), Utf8(value.key)),
                                SuggestionFor(section, value.key)});
            continue;
        }
        TellOfTwice(section, i, *use.row, findings);
        if (use.row->isWithoutEffect && AsksForSomething(*use.row, value)) {
            findings.push_back({Fault::KeyWithoutEffect, value.at,
                                fmt::format("{} is read and logged, without any effect", Utf8(value.key)),
                                "remove it"});
        }
        if (use.row->source != KeySource::Profile) {
            CheckValue(SectionText(section), *use.row, value, findings);
        }
    }
}

// The keys that are read straight from the file; of equal ones the first is used.
static void CheckProfile(unsigned type, const std::vector<IniValue>& values, Findings& findings) {
    for (const IniValue& value : values) {
        if (const KeyUse use = UseOfKey(type, value.key); use.row && use.row->source == KeySource::Profile) {
            CheckValue(SectionNames[type], *use.row, value, findings);
        }
    }
}

void CheckIni(const IniFile& ini, Findings& findings) {
    for (const IniSection& section : ini.sections) {
        CheckKeys(section, findings);
    }
    CheckProfile(SettingsSection, ini.settings, findings);
    CheckProfile(BalloonSection, ini.balloons, findings);
    CheckCriteria(ini, findings);
    CheckActions(ini, findings);
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return std::tie(a.at.line, a.at.column) < std::tie(b.at.line, b.at.column);
    });
}

} // namespace rehearse
