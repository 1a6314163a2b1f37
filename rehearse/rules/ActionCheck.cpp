#include "rehearse/rules/ActionCheck.h"

#include "rehearse/description/Manners.h"
#include "rehearse/rules/SectionKeys.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

constexpr unsigned EntryCount = 10;
constexpr const KnownKey& OpenKey = KeyRow("open_");
constexpr const KnownKey& DelayKey = KeyRow("delay_");
constexpr const KnownKey& ForceKey = KeyRow("force_");

static std::string Utf8(std::string_view text) {
    return machine::Utf8FromAnsi(std::string(text));
}

static bool IsLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (machine::LowerChar(c) >= 'a' && machine::LowerChar(c) <= 'z') || c == '_';
}

// The name between the percent sign at `at` and the next one; "" if there is none.
static std::string_view NameBetweenSigns(std::string_view text, std::size_t at) {
    std::size_t end = at + 1;
    while (end < text.size() && IsLetterOrDigit(text[end])) {
        ++end;
    }
    const bool isName =
        end < text.size() && text[end] == '%' && end > at + 1 && (text[at + 1] < '0' || text[at + 1] > '9');
    return isName ? text.substr(at + 1, end - at - 1) : std::string_view();
}

// Where the program's own parameters begin. A command interpreter expands variables itself, so for one the whole line
// counts as the program.
static std::size_t ParametersOf(std::string_view line) {
    for (const std::string_view script : {".cmd", ".bat", "cmd.exe", "cmd ", "powershell"}) {
        if (machine::FindNoCase(line, script) != std::string::npos) {
            return line.size();
        }
    }
    const std::size_t quote = line.starts_with('"') ? line.find('"', 1) : 0;
    return std::min(line.find(' ', quote == std::string_view::npos ? 0 : quote), line.size());
}

static void CheckPlaceholders(const IniSection& section, const IniValue& open, Findings& findings) {
    const std::vector<std::string> names(std::begin(PlaceholderNames), std::end(PlaceholderNames));
    const std::string_view line = open.value;
    for (std::size_t at = line.find('%'); at != std::string_view::npos; at = line.find('%', at + 1)) {
        const std::string_view name = NameBetweenSigns(line, at);
        if (name.empty()) {
            continue;
        }
        Position place = open.valueAt;
        place.column += static_cast<unsigned>(at);
        const bool isKnown = std::any_of(names.begin(), names.end(),
                                         [&](const std::string& known) { return machine::EqualNoCase(known, name); });
        const std::string near = NearestName(name, names);
        const auto isEmptyOnRemoval = [&] {
            return machine::EqualNoCase(name, "PortName") || machine::EqualNoCase(name, "ComPort") ||
                   machine::EqualNoCase(name, "KernelName");
        };
        if (isKnown && section.type == RemovalSection && isEmptyOnRemoval()) {
            findings.push_back({Fault::EmptyPlaceholder, place,
                                fmt::format("%{}% is always empty in {}", Utf8(name), SectionText(section)),
                                "%PortNumber% still is what it was"});
        } else if (!isKnown && (!near.empty() || at >= ParametersOf(line))) {
            findings.push_back(
                {Fault::UnknownPlaceholder, place,
                 fmt::format("no placeholder has the name %{}%, the text stays", Utf8(name)),
                 near.empty() ? "variables count in the program alone" : fmt::format("did you mean %{}%?", near)});
        }
        at += name.size() + 1;
    }
}

static void CheckEntry(const IniSection& section, unsigned form, const IniValue& open, Findings& findings) {
    if (NumberOf(section, ForceKey, form, 1) == 0) {
        findings.push_back({Fault::EntrySkipped, ValueOf(section, ForceKey, form)->at,
                            fmt::format("{} 0: the entry never runs", NameOfKey(ForceKey, form)), "remove the key"});
    }
    const IniValue* delay = ValueOf(section, DelayKey, form);
    if (delay && section.type == RemovalSection && ReadTimeMs(delay->value) > 0) {
        findings.push_back({Fault::DelayOnRemoval, delay->at,
                            fmt::format("{} in {}: the port has gone by then, the entry never runs",
                                        NameOfKey(DelayKey, form), SectionText(section)),
                            "use afterdelay of the entry before it"});
    }
    CheckPlaceholders(section, open, findings);
}

static void CheckSection(const IniSection& section, Findings& findings) {
    bool hasOpen = false;
    for (unsigned form = 0; form < EntryCount; ++form) {
        if (const IniValue* open = ValueOf(section, OpenKey, form)) {
            hasOpen = true;
            CheckEntry(section, form, *open, findings);
            continue;
        }
        const auto stray = std::find_if(section.values.begin(), section.values.end(), [&](const IniValue& value) {
            const KeyUse use = UseOfKey(section.type, value.key);
            return use.row && use.form == form && use.row != &OpenKey && use.row->kind != KeyKind::Pattern &&
                   !value.value.empty();
        });
        if (stray != section.values.end()) {
            findings.push_back(
                {Fault::EntryWithoutOpen, stray->at,
                 fmt::format("{} is not read, there is no {}", Utf8(stray->key), NameOfKey(OpenKey, form)),
                 fmt::format("add {}, or mind the digit", NameOfKey(OpenKey, form))});
        }
    }
    if (!hasOpen) {
        findings.push_back({Fault::NoEntry, section.at,
                            fmt::format("{} has no entry and runs nothing", SectionText(section)), "add open1"});
    }
}

// The balloon's key also controls the programs of a removal; without it, the key of the arrival's balloon does.
static void CheckRemovalSwitch(const IniFile& ini, Findings& findings) {
    const IniSection* removal = nullptr;
    int isEnabled = 0;
    for (const IniSection& section : ini.sections) {
        if (section.type == RemovalSection && section.number > 0 && !removal) {
            removal = &section;
        }
        if (section.type == BalloonSection && section.number == SectionWithoutNumber) {
            isEnabled = NumberOf(section, KeyRow("EnabledOnRemoval"), 0, NumberOf(section, KeyRow("Enabled"), 0, 0));
        }
    }
    if (removal && !isEnabled) {
        findings.push_back({Fault::RemovalOff, removal->at,
                            fmt::format("{} never runs: EnabledOnRemoval of [BalloonTips] is 0", SectionText(*removal)),
                            "write EnabledOnRemoval=1 below [BalloonTips]"});
    }
}

void CheckActions(const IniFile& ini, Findings& findings) {
    for (const IniSection& section : ini.sections) {
        if (IsRuleSection(section.type) && section.type != PortSection && section.number > 0) {
            CheckSection(section, findings);
        }
    }
    CheckRemovalSwitch(ini, findings);
}

} // namespace rehearse
