#include "rehearse/rules/PortRules.h"

#include "rehearse/machine/Exports.h"
#include "rehearse/watch/Patterns.h"

#include "simwin/devices/drivers/Drivers.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace rehearse {

constexpr std::size_t LineWidth = 100;
constexpr std::size_t MostCells = 600; // a table above that helps nobody
constexpr std::size_t MostNumbersShown = 6;
constexpr const char* LookAtAll = "[Settings]\r\nCheckPortsOnStartup=1\r\n[ComPorts1]\r\nPortName=COM1\r\n";

static std::string Utf8(std::string_view text) {
    return machine::Utf8FromAnsi(std::string(text));
}

static unsigned NumberOfName(const std::string& name) {
    const unsigned number = machine::ComNumberOf(name);
    return number ? number : ~0u;
}

// The first search of each port for a section of rules.
static std::vector<const SectionSearch*> FirstSearches(const QuietRun& run) {
    std::vector<const SectionSearch*> first;
    for (const SectionSearch& search : run.searches) {
        if (search.type == SectionNames[PortSection] &&
            std::none_of(first.begin(), first.end(),
                         [&](const SectionSearch* one) { return machine::EqualNoCase(one->device, search.device); })) {
            first.push_back(&search);
        }
    }
    return first;
}

static std::string NameOf(const QuietRun& run, const std::string& device) {
    for (const PortFacts& port : run.ports) {
        if (machine::EqualNoCase(port.device, device)) {
            return port.dosName.empty() ? port.registryName : port.dosName;
        }
    }
    return "";
}

static QuietRun RunOrThrow(const TomlTable& description, const Options& options, const std::string& ini,
                           bool isOfRegistry) {
    Options asItStands = options;
    asItStands.stories = {"none"}; // they bring no port of another kind
    QuietRun run = RunQuietly(description, asItStands, ini, isOfRegistry);
    if (!run.outcome.empty()) {
        throw std::runtime_error("quillmarch-rehearse: " + run.outcome);
    }
    return run;
}

static void FillChoices(RuleTable& table, const QuietRun& run) {
    for (const SectionSearch& search : run.searches) {
        const auto port = std::find_if(table.ports.begin(), table.ports.end(), [&](const RulePort& one) {
            return machine::EqualNoCase(one.device, search.device);
        });
        if (port == table.ports.end()) {
            continue;
        }
        if (search.type == SectionNames[PortSection] && !port->chosen) {
            port->chosen = search.section;
        }
        if (search.type != SectionNames[PortSection] && !search.section.empty()) {
            const std::string name = "[" + search.section + "]";
            if (std::find(port->actions.begin(), port->actions.end(), name) == port->actions.end()) {
                port->actions.push_back(name);
            }
        }
    }
    for (RulePort& port : table.ports) {
        const std::string expected = port.taker ? SectionText(*table.rules[*port.taker]) : "";
        const std::string took = port.chosen && !port.chosen->empty() ? "[" + *port.chosen + "]" : "";
        if (port.chosen && took != expected) {
            table.differences.push_back(fmt::format("{} {}: the product took {}, by what it looked at first {} fits",
                                                    port.name, Utf8(port.device), took.empty() ? "no section" : took,
                                                    expected.empty() ? "none" : expected));
        }
    }
}

static std::string LabelOf(const RulePort& port) {
    return port.name.empty() ? "no name" : port.name;
}

static std::string CellOf(const RulePort& port, std::size_t rule) {
    const RuleFit& fit = port.fits[rule];
    if (port.taker == rule) {
        return "takes it";
    }
    if (fit.Fits()) {
        return "fits too";
    }
    return fit.failed ? NameOfKey(*fit.failed, 0) : "-";
}

// Ports against sections, in blocks as wide as a line.
static std::string MatrixText(const RuleTable& table) {
    std::string text = "\nWhich section takes each port; else the first criterion that the port does not meet.\n";
    for (std::size_t from = 0; from < table.rules.size();) {
        std::vector<std::size_t> widths;
        std::size_t width = 8, to = from;
        for (; to < table.rules.size(); ++to) {
            std::size_t column = SectionText(*table.rules[to]).size();
            for (const RulePort& port : table.ports) {
                column = std::max(column, CellOf(port, to).size());
            }
            if (to > from && width + column + 2 > LineWidth) {
                break;
            }
            width += column + 2;
            widths.push_back(column);
        }
        std::string header = fmt::format("\n{:<8}", "Port");
        for (std::size_t i = from; i < to; ++i) {
            header += fmt::format("  {:<{}}", SectionText(*table.rules[i]), widths[i - from]);
        }
        text += header + "\n";
        for (const RulePort& port : table.ports) {
            std::string line = fmt::format("{:<8}", LabelOf(port));
            for (std::size_t i = from; i < to; ++i) {
                line += fmt::format("  {:<{}}", CellOf(port, i), widths[i - from]);
            }
            line.erase(line.find_last_not_of(' ') + 1);
            text += line + "\n";
        }
        from = to;
    }
    return text;
}

// What the port has where the rule wants something else: "BusType is PCI, not USB". The id of the adapter in place of
// its port's is the usual slip.
static std::string ReasonText(const RulePort& port, const IniSection& rule, const RuleFit& fit) {
    if (!fit.failed) {
        return "it has no criterion";
    }
    const std::string key = NameOfKey(*fit.failed, 0);
    const auto value = port.values.find(key);
    std::string wanted;
    for (const CriterionValue& criterion : CriteriaOf(rule)) {
        if (criterion.row == fit.failed) {
            wanted += (wanted.empty() ? "" : " or ") + Utf8(criterion.value->value);
        }
    }
    const bool isEmpty = value == port.values.end() || value->second.empty();
    const std::string meant = fit.meant ? fmt::format("; did you mean {}?", NameOfKey(*fit.meant, 0)) : "";
    return fmt::format("{} is {}, not {}{}", key, isEmpty ? "empty" : Utf8(value->second), wanted, meant);
}

// The port that meets the most criteria of the rule, or was probably meant by it.
static const RulePort* NearestPort(const RuleTable& table, std::size_t rule) {
    const auto nearest =
        std::max_element(table.ports.begin(), table.ports.end(), [&](const RulePort& a, const RulePort& b) {
            return a.fits[rule].Nearness() < b.fits[rule].Nearness();
        });
    return nearest == table.ports.end() ? nullptr : &*nearest;
}

static std::size_t NearestRule(const RulePort& port) {
    const auto nearest = std::max_element(port.fits.begin(), port.fits.end(), [](const RuleFit& a, const RuleFit& b) {
        return a.Nearness() < b.Nearness();
    });
    return static_cast<std::size_t>(nearest - port.fits.begin());
}

static std::vector<const RulePort*> PortsOf(const RuleTable& table, std::size_t rule) {
    std::vector<const RulePort*> ports;
    for (const RulePort& port : table.ports) {
        if (port.fits[rule].Fits()) {
            ports.push_back(&port);
        }
    }
    return ports;
}

static std::string NumbersText(const IniSection& rule) {
    const std::vector<WantedNumber> numbers = NumbersOf(rule);
    std::string text;
    for (std::size_t i = 0; i < std::min(numbers.size(), MostNumbersShown); ++i) {
        text += fmt::format("{}COM{}", text.empty() ? "" : ", ", numbers[i].number);
    }
    if (numbers.size() > MostNumbersShown) {
        text += fmt::format(" and {} more", numbers.size() - MostNumbersShown);
    }
    return text.empty() ? "no number" : text;
}

// More ports take the rule than it has numbers: at a time not all of them get one.
static std::string CrowdText(const RuleTable& table, std::size_t rule) {
    std::string ports;
    std::size_t count = 0;
    for (const RulePort& port : table.ports) {
        if (port.taker == rule) {
            ports += fmt::format("{}{}", ports.empty() ? "" : ", ", LabelOf(port));
            ++count;
        }
    }
    const std::size_t numbers = NumbersOf(*table.rules[rule]).size();
    if (numbers == 0 || count <= numbers) {
        return "";
    }
    return fmt::format(
        "{} takes {} ports ({}) and wants {} number{}: of those that are there at a time not all get one\n",
        SectionText(*table.rules[rule]), count, ports, numbers, numbers == 1 ? "" : "s");
}

static std::string PortLine(const RuleTable& table, const RulePort& port) {
    std::string line = fmt::format("{:<8}", LabelOf(port));
    if (port.taker) {
        const IniSection& rule = *table.rules[*port.taker];
        line += fmt::format("  {}, wants {}", SectionText(rule), NumbersText(rule));
        std::string others;
        for (std::size_t i = *port.taker + 1; i < table.rules.size(); ++i) {
            if (port.fits[i].Fits()) {
                others += fmt::format("{}{}", others.empty() ? "" : ", ", SectionText(*table.rules[i]));
            }
        }
        if (!others.empty()) {
            line += fmt::format("; fits {} too", others);
        }
    } else if (table.rules.empty()) {
        line += "  no section";
    } else {
        const std::size_t rule = NearestRule(port);
        line += fmt::format("  no section; nearest {}: {}", SectionText(*table.rules[rule]),
                            ReasonText(port, *table.rules[rule], port.fits[rule]));
    }
    for (const std::string& action : port.actions) {
        line += fmt::format("; {}", action);
    }
    return fmt::format("{}  ({})\n", line, Utf8(port.device));
}

static std::string IdleText(const RuleTable& table, std::size_t rule) {
    const IniSection& section = *table.rules[rule];
    const std::vector<const RulePort*> ports = PortsOf(table, rule);
    if (std::any_of(ports.begin(), ports.end(), [&](const RulePort* port) { return port->taker == rule; })) {
        return "";
    }
    if (!ports.empty()) {
        return fmt::format("{} takes no port: earlier sections take all that it fits\n", SectionText(section));
    }
    const RulePort* nearest = NearestPort(table, rule);
    if (!nearest) {
        return "";
    }
    return fmt::format("{} fits no port of this machine; nearest {}: {}\n", SectionText(section), LabelOf(*nearest),
                       ReasonText(*nearest, section, nearest->fits[rule]));
}

// What was probably meant where a criterion fails: how like its value is to the port's, and a related key whose value
// of the port fits, such as ParentDeviceID for DeviceID.
static void Guess(const std::vector<CriterionValue>& criteria, const std::map<std::string, std::string>& values,
                  RuleFit& fit) {
    const std::string failed = NameOfKey(*fit.failed, 0);
    for (const CriterionValue& criterion : criteria) {
        if (criterion.row != fit.failed) {
            continue;
        }
        const std::string_view pattern = criterion.value->value;
        for (const KnownKey& row : CriterionKeys) {
            const std::string key = NameOfKey(row, 0);
            const auto value = values.find(key);
            if (value == values.end()) {
                continue;
            }
            const bool isRelated = key.ends_with(failed) || failed.ends_with(key);
            if (&row == fit.failed) {
                fit.likeness = std::max(fit.likeness, Likeness(value->second, pattern));
            } else if (isRelated && !fit.meant && FitsPattern(value->second, pattern)) {
                fit.meant = &row;
            }
        }
    }
}

RuleFit FitOf(const std::vector<CriterionValue>& criteria, const std::map<std::string, std::string>& values) {
    RuleFit fit;
    for (const KnownKey& row : CriterionKeys) {
        bool isConfigured = false, isMet = false;
        const auto value = values.find(NameOfKey(row, 0));
        for (const CriterionValue& criterion : criteria) {
            if (criterion.row != &row) {
                continue;
            }
            isConfigured = true;
            isMet = isMet || (value != values.end() && FitsPattern(value->second, criterion.value->value));
        }
        fit.met += isMet;
        if (isConfigured && !isMet && !fit.failed) {
            fit.failed = &row;
        }
    }
    if (fit.failed) {
        Guess(criteria, values, fit);
    }
    return fit;
}

RuleTable MakeRuleTable(const TomlTable& description, const Options& options, const IniFile& ini,
                        const std::string& bytes, bool isOfRegistry) {
    RuleTable table;
    for (const IniSection& section : ini.sections) {
        if (section.type == PortSection && section.number > 0) {
            table.rules.push_back(&section);
        }
    }
    std::sort(table.rules.begin(), table.rules.end(),
              [](const auto* a, const auto* b) { return a->number < b->number; });
    std::vector<std::vector<CriterionValue>> criteria;
    for (const IniSection* rule : table.rules) {
        criteria.push_back(CriteriaOf(*rule));
    }
    const KeptExports forBothRuns;
    const QuietRun all = RunOrThrow(description, options, LookAtAll, isOfRegistry);
    for (const SectionSearch* search : FirstSearches(all)) {
        RulePort port{search->device, NameOf(all, search->device), search->values, {}, {}, {}, {}};
        for (const std::vector<CriterionValue>& ofRule : criteria) {
            port.fits.push_back(FitOf(ofRule, port.values));
            if (!port.taker && port.fits.back().Fits()) {
                port.taker = port.fits.size() - 1;
            }
        }
        table.ports.push_back(std::move(port));
    }
    std::stable_sort(table.ports.begin(), table.ports.end(),
                     [](const RulePort& a, const RulePort& b) { return NumberOfName(a.name) < NumberOfName(b.name); });
    FillChoices(table, RunOrThrow(description, options, bytes, isOfRegistry));
    return table;
}

bool HasIdleRule(const RuleTable& table) {
    for (std::size_t rule = 0; rule < table.rules.size(); ++rule) {
        if (!IdleText(table, rule).empty()) {
            return true;
        }
    }
    return false;
}

std::string RuleTableText(const RuleTable& table) {
    if (table.ports.empty()) {
        return "\nThe product looked at no port of this machine.\n";
    }
    std::string text = "\n";
    for (const RulePort& port : table.ports) {
        text += PortLine(table, port);
    }
    if (!table.rules.empty() && table.rules.size() * table.ports.size() <= MostCells) {
        text += MatrixText(table);
    }
    std::string idle;
    for (std::size_t rule = 0; rule < table.rules.size(); ++rule) {
        idle += IdleText(table, rule) + CrowdText(table, rule);
    }
    text += idle.empty() ? "" : "\n" + idle;
    for (const std::string& difference : table.differences) {
        text += "note: " + difference + "\n";
    }
    return text;
}

nlohmann::ordered_json RuleTableJson(const RuleTable& table) {
    nlohmann::ordered_json ports = nlohmann::ordered_json::array();
    for (const RulePort& port : table.ports) {
        nlohmann::ordered_json values = nlohmann::ordered_json::object(), sections = nlohmann::ordered_json::object();
        for (const KnownKey& row : CriterionKeys) {
            if (const auto value = port.values.find(NameOfKey(row, 0)); value != port.values.end()) {
                values[value->first] = Utf8(value->second);
            }
        }
        for (std::size_t i = 0; i < table.rules.size(); ++i) {
            sections[SectionText(*table.rules[i])] = CellOf(port, i);
        }
        ports.push_back({{"device", Utf8(port.device)},
                         {"port", port.name},
                         {"section", port.taker ? SectionText(*table.rules[*port.taker]) : ""},
                         {"values", std::move(values)},
                         {"sections", std::move(sections)},
                         {"actions", port.actions}});
    }
    return {{"ports", std::move(ports)}, {"differences", table.differences}};
}

} // namespace rehearse
