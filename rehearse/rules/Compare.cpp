#include "rehearse/rules/Compare.h"

#include "rehearse/description/Captures.h"
#include "rehearse/description/DescriptionReader.h"
#include "rehearse/host/Flow.h"
#include "rehearse/host/OutputFile.h"
#include "rehearse/machine/Exports.h"
#include "rehearse/rules/CriteriaCheck.h"
#include "rehearse/rules/QuietRun.h"
#include "rehearse/rules/SectionKeys.h"

#include "simwin/devices/drivers/Drivers.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>

namespace rehearse {

using Json = nlohmann::ordered_json;

namespace {
struct Side {
    IniFile ini;
    QuietRun run;
};
} // namespace

static std::string Utf8(std::string_view text) {
    return machine::Utf8FromAnsi(std::string(text));
}

static std::string RuleText(const RuleId& rule) {
    return SectionText({rule.first, rule.second, {}, {}, {}});
}

static const IniSection* FindSection(const IniFile& ini, const RuleId& rule) {
    for (const IniSection& section : ini.sections) {
        if (RuleId(section.type, section.number) == rule) {
            return &section;
        }
    }
    return nullptr;
}

// What counts of a section, by its keys in small letters.
static std::map<std::string, std::string> ValuesOf(const IniSection& section) {
    std::map<std::string, std::string> values;
    for (const IniValue& value : section.values) {
        if (!value.value.empty()) {
            values[machine::Lower(value.key)] = value.key + "=" + value.value;
        }
    }
    return values;
}

static std::string DifferenceText(const IniSection& before, const IniSection& after) {
    const auto old = ValuesOf(before), now = ValuesOf(after);
    std::vector<std::string> parts;
    for (const auto& [key, text] : old) {
        if (const auto same = now.find(key); same == now.end()) {
            parts.push_back("without " + Utf8(text));
        } else if (same->second.substr(key.size()) != text.substr(key.size())) {
            parts.push_back(fmt::format("{} -> {}", Utf8(text), Utf8(same->second.substr(key.size() + 1))));
        }
    }
    for (const auto& [key, text] : now) {
        if (!old.contains(key)) {
            parts.push_back("with " + Utf8(text));
        }
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

static std::vector<RuleChange> CompareSections(const IniFile& before, const IniFile& after) {
    std::set<RuleId> rules;
    for (const IniFile* ini : {&before, &after}) {
        for (const IniSection& section : ini->sections) {
            rules.insert({section.type, section.number});
        }
    }
    std::vector<RuleChange> changes;
    const Coverage ofBefore(before), ofAfter(after);
    for (const RuleId& rule : rules) {
        const IniSection* old = FindSection(before, rule);
        const IniSection* now = FindSection(after, rule);
        if (!old) {
            changes.push_back({rule, "new", ""});
        } else if (!now) {
            changes.push_back({rule, "gone", ""});
        } else if (const std::string what = DifferenceText(*old, *now); !what.empty()) {
            changes.push_back({rule, "changed", what});
        }
        const IniSection* covering = now && IsRuleSection(rule.first) ? ofAfter.CoveringSection(*now) : nullptr;
        if (covering && !(old && ofBefore.CoveringSection(*old))) {
            changes.push_back({rule, "shadowed", "by " + SectionText(*covering)});
        }
    }
    return changes;
}

// The section that a port had in the end, as RuleText has it; "" if none fitted, or the product never looked for one.
static std::string LastChoice(const QuietRun& run, const std::string& device) {
    for (auto search = run.searches.rbegin(); search != run.searches.rend(); ++search) {
        if (search->type == SectionNames[PortSection] && machine::EqualNoCase(search->device, device)) {
            return search->section.empty() ? "" : "[" + search->section + "]";
        }
    }
    return "";
}

static std::vector<PortChange> ComparePorts(const Side& before, const Side& after,
                                            const std::vector<RuleChange>& rules) {
    const auto hasChanged = [&](const std::string& choice) {
        return std::any_of(rules.begin(), rules.end(), [&](const RuleChange& change) {
            return RuleText(change.rule) == choice && change.change != "shadowed";
        });
    };
    std::vector<PortChange> ports;
    for (const PortFacts& port : after.run.ports) {
        const auto old = std::find_if(before.run.ports.begin(), before.run.ports.end(),
                                      [&](const PortFacts& one) { return one.device == port.device; });
        const PortFacts was = old == before.run.ports.end() ? PortFacts() : *old;
        const std::string oldRule = LastChoice(before.run, port.device);
        const std::string newRule = LastChoice(after.run, port.device);
        const auto nameOf = [](const PortFacts& facts) {
            return facts.dosName.empty() ? facts.registryName : facts.dosName;
        };
        ports.push_back({port.device, nameOf(was), nameOf(port), oldRule, newRule, was.restarts, port.restarts,
                         hasChanged(oldRule) || hasChanged(newRule)});
    }
    std::stable_sort(ports.begin(), ports.end(), [](const PortChange& a, const PortChange& b) {
        return machine::ComNumberOf(a.newName) < machine::ComNumberOf(b.newName);
    });
    return ports;
}

static std::string SideBySide(const std::string& before, const std::string& after) {
    const auto shown = [](const std::string& text) { return text.empty() ? std::string("none") : text; };
    return before == after ? shown(after) : fmt::format("{} -> {}", shown(before), shown(after));
}

static std::string TextOf(const std::vector<RuleChange>& rules, const std::vector<PortChange>& ports) {
    std::string text = rules.empty() ? "No rule differs.\n" : "";
    for (const RuleChange& change : rules) {
        text += fmt::format("{:<9} {}{}{}\n", change.change, RuleText(change.rule), change.what.empty() ? "" : ": ",
                            change.what);
    }
    std::vector<std::array<std::string, 4>> rows;
    std::string unnamed;
    for (const PortChange& port : ports) {
        if (port.Differs()) {
            rows.push_back({SideBySide(port.oldName, port.newName), SideBySide(port.oldRule, port.newRule),
                            SideBySide(std::to_string(port.oldRestarts), std::to_string(port.newRestarts)),
                            Utf8(port.device)});
        }
        if (port.IsTouched() && !port.isNamed) {
            unnamed += fmt::format("{} is touched, and no changed rule names it ({})\n",
                                   port.newName.empty() ? "A port" : port.newName, Utf8(port.device));
        }
    }
    const std::size_t same = ports.size() - rows.size();
    if (!rows.empty()) {
        rows.insert(rows.begin(), {"Port", "Section", "Restarts", "Device"});
        std::array<std::size_t, 3> widths{};
        for (const auto& row : rows) {
            for (std::size_t i = 0; i < widths.size(); ++i) {
                widths[i] = std::max(widths[i], row[i].size());
            }
        }
        text += "\n";
        for (const auto& row : rows) {
            text += fmt::format("{:<{}}  {:<{}}  {:<{}}  {}\n", row[0], widths[0], row[1], widths[1], row[2], widths[2],
                                row[3]);
        }
    }
    text += fmt::format("\n{} port{} without a difference.\n", same, same == 1 ? "" : "s");
    return text + unnamed;
}

static Json JsonOf(const std::vector<RuleChange>& rules, const std::vector<PortChange>& ports) {
    Json ruleList = Json::array(), portList = Json::array();
    for (const RuleChange& change : rules) {
        ruleList.push_back({{"section", RuleText(change.rule)}, {"change", change.change}, {"what", change.what}});
    }
    for (const PortChange& port : ports) {
        portList.push_back({{"device", Utf8(port.device)},
                            {"old", port.oldName},
                            {"new", port.newName},
                            {"old_section", port.oldRule},
                            {"new_section", port.newRule},
                            {"old_restarts", port.oldRestarts},
                            {"new_restarts", port.newRestarts},
                            {"touched", port.IsTouched()},
                            {"named", port.isNamed}});
    }
    return {{"rules", std::move(ruleList)}, {"ports", std::move(portList)}};
}

static std::string NewBytes(const Options& options, const TomlTable& description) {
    if (options.ini) {
        return ReadHostFile(*options.ini, {*options.ini, 1, 1});
    }
    const TomlTable* product = description.TableOf("quillmarch");
    if (product && product->Has("ini")) {
        return ReadHostFile(product->TextOf("ini"), product->At("ini"));
    }
    if (product && product->Has("ini_text")) {
        return product->TextOf("ini_text");
    }
    throw InputError(description.at, "it has no configuration to compare with: name the new one with --ini");
}

static Side RunSide(const TomlTable& description, const Options& options, const std::string& bytes) {
    Findings unheeded;
    return {ParseIni("", bytes, unheeded), RunQuietly(description, options, bytes)};
}

Comparison CompareMachine(const Options& options) {
    const TomlTable description = ReadMachine(options);
    const std::string before = ReadHostFile(*options.compare, {*options.compare, 1, 1});
    const std::string after = NewBytes(options, description);
    const KeptExports forBothSides;
    const Side old = RunSide(description, options, before), now = RunSide(description, options, after);
    for (const Side* side : {&old, &now}) {
        if (!side->run.outcome.empty()) {
            return {side->run.outcome, {}, {}};
        }
    }
    const std::vector<RuleChange> rules = CompareSections(old.ini, now.ini);
    return {"", rules, ComparePorts(old, now, rules)};
}

int CompareRules(const Options& options) {
    Output json(options.json);
    const auto [stopped, rules, ports] = CompareMachine(options);
    if (!stopped.empty()) {
        fmt::print(stderr, "{}\n", Shown(stopped));
        return ExitStopped;
    }
    if (!options.quiet && !json.IsStandardOutput()) {
        fmt::print("{}", Shown(TextOf(rules, ports)));
    }
    if (json.IsWanted()) {
        json.Write(JsonOf(rules, ports).dump(2) + "\n");
    }
    const bool isBeside = std::any_of(ports.begin(), ports.end(),
                                      [](const PortChange& port) { return port.IsTouched() && !port.isNamed; });
    return options.strict && isBeside ? ExitNotMet : ExitDone;
}

} // namespace rehearse
