#include "rehearse/report/EndOfRun.h"

#include "rehearse/host/Durations.h"
#include "rehearse/host/Flow.h"
#include "rehearse/report/PortsTable.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

using Json = nlohmann::ordered_json;

constexpr std::size_t ListIndent = 4;
constexpr std::size_t MostLines = 12; // of one list; the rest is only counted

static std::string Utf8(const std::string& text) {
    return machine::Utf8FromAnsi(text);
}

// A heading and its lines; nothing at all without lines.
static std::string List(const std::string& heading, const std::vector<std::string>& lines) {
    if (lines.empty()) {
        return "";
    }
    std::string text = "\n" + heading + "\n";
    for (std::size_t i = 0; i < lines.size() && i < MostLines; ++i) {
        text += "  " + lines[i] + "\n";
    }
    if (lines.size() > MostLines) {
        text += fmt::format("  and {} more\n", lines.size() - MostLines);
    }
    return text;
}

// The first line of a text.
static std::string FirstLine(const std::string& text) {
    const std::size_t end = text.find_first_of("\r\n");
    return Utf8(end == std::string::npos ? text : text.substr(0, end) + " …");
}

static std::string Joined(const std::vector<std::string>& texts, const char* between) {
    std::string text;
    for (const std::string& one : texts) {
        text += (text.empty() ? "" : between) + Utf8(one);
    }
    return text;
}

// "COM20" for a device, its id if it is not a port of the table.
static std::string NameOf(const Verdict& verdict, const std::string& device) {
    for (const PortVerdict& port : verdict.ports) {
        if (machine::EqualNoCase(port.facts.device, device)) {
            return Utf8(NameOfPort(port.facts));
        }
    }
    return Utf8(device);
}

static std::string NamesOf(const Verdict& verdict, const std::vector<std::string>& devices) {
    std::string text;
    for (const std::string& device : devices) {
        text += (text.empty() ? "" : ", ") + NameOf(verdict, device);
    }
    return text;
}

static std::string Database(const Verdict& verdict) {
    const auto text = [](const std::vector<unsigned>& numbers) {
        return numbers.empty() ? "none" : NumbersText(numbers, "");
    };
    const std::string before = text(verdict.databaseBefore), after = text(verdict.databaseAfter);
    if (before == after) {
        return fmt::format("\nNumbers taken in the database, unchanged: {}\n", after);
    }
    return fmt::format("\nNumbers taken in the database\n  before: {}\n  after:  {}\n", before, after);
}

static std::string IdleRule(const Verdict& verdict, const RuleVerdict& rule) {
    const std::string name = fmt::format("[{}]", Utf8(rule.section));
    if (rule.nearest.empty()) {
        return name + ": no port was compared with it";
    }
    const std::string port = NameOf(verdict, rule.nearest);
    if (!rule.takenBy.empty()) {
        return fmt::format("{}: fits {}, but [{}] takes it first", name, port, rule.takenBy);
    }
    if (rule.failedKey.empty()) {
        return name + ": it has no criterion";
    }
    return fmt::format("{}: nearest {}, {} is '{}' there, not {}", name, port, rule.failedKey, Utf8(rule.portValue),
                       Joined(rule.patterns, " or "));
}

static std::vector<std::string> IdleRules(const Verdict& verdict) {
    std::vector<std::string> lines;
    for (const std::vector<RuleVerdict>* rules : {&verdict.rules, &verdict.actions}) {
        for (const RuleVerdict& rule : *rules) {
            if (rule.took.empty()) {
                lines.push_back(IdleRule(verdict, rule));
            }
        }
    }
    return lines;
}

// Ports other than COM ports, such as printer ports, are ignored.
static std::string Ruleless(const Verdict& verdict) {
    std::vector<unsigned> numbers;
    std::string nameless;
    for (const PortVerdict& port : verdict.ports) {
        const bool mayHaveRule = port.facts.registryName.empty() || machine::ComNumberOf(port.facts.registryName);
        if (!verdict.isObserved || !port.facts.isPresent || !mayHaveRule || !port.section.empty()) {
            continue;
        }
        if (port.facts.number) {
            numbers.push_back(port.facts.number);
        } else {
            nameless += ", " + Utf8(port.facts.device);
        }
    }
    const std::string all = NumbersText(numbers, "COM") + nameless;
    return all.empty() ? "" : fmt::format("\nPorts without a rule: {}\n", numbers.empty() ? all.substr(2) : all);
}

// The lowest free number, from where Windows begins.
static unsigned FreeNumber(const Verdict& verdict) {
    unsigned number = 3;
    const std::vector<unsigned>& taken = verdict.databaseAfter;
    while (std::find(taken.begin(), taken.end(), number) != taken.end()) {
        ++number;
    }
    return number;
}

static std::vector<std::string> Rings(const Verdict& verdict) {
    std::vector<std::string> lines;
    for (const Ring& ring : verdict.rings) {
        lines.push_back(NamesOf(verdict, ring.devices) + ": none can move first");
        for (const PortVerdict& port : verdict.ports) {
            if (port.facts.device == ring.devices.front()) {
                lines.push_back(
                    fmt::format("  way out: one of their rules names a free number too, as [{}] PortNames={},"
                                "COM{}",
                                port.section, NumbersText(port.wanted, "COM"), FreeNumber(verdict)));
            }
        }
    }
    return lines;
}

static std::vector<std::string> RestartsTogether(const Verdict& verdict) {
    std::vector<std::string> lines;
    for (const Together& group : verdict.together) {
        std::string line = NamesOf(verdict, group.ports);
        if (!group.others.empty()) {
            line += fmt::format("{}{} and {} more", line.empty() ? "" : ", ", Utf8(group.others.front()),
                                group.others.size() - 1);
        }
        if (group.others.size() == 1) {
            line.resize(line.size() - std::string_view(" and 0 more").size());
        }
        lines.push_back(fmt::format("{}: {} {} ({}, {})", line, group.what, Utf8(group.device), group.means,
                                    group.times == 1 ? "once" : fmt::format("{} times", group.times)));
    }
    return lines;
}

static std::vector<std::string> Dangers(const Verdict& verdict) {
    std::vector<std::string> lines;
    for (const TimelineEntry& entry : verdict.dangers) {
        lines.push_back(fmt::format("{}  {} {}", TimeText(entry.atMs), Utf8(entry.what), Utf8(entry.device)));
        lines.emplace_back(
            entry.means == "cycle"
                ? "  the program gets errors until it opens the port by its new name"
                : "  its old name may go; it has its number when the program has let go and it is plugged");
    }
    return lines;
}

static std::vector<std::string> Boxes() {
    std::vector<std::string> lines;
    for (const machine::MessageBoxRecord& box : machine::MessageBoxes()) {
        lines.push_back(fmt::format("{}  {}: {}", TimeText(box.atMs), Utf8(box.title), FirstLine(box.text)));
    }
    return lines;
}

static std::vector<std::string> BalloonLines(const Balloons& balloons) {
    std::vector<std::string> lines;
    for (const Balloon& balloon : balloons.All()) {
        std::string text = Utf8(balloon.first.title);
        for (const std::string& part : {balloon.first.text1, balloon.first.text2}) {
            text += part.empty() ? "" : " | " + FirstLine(part);
        }
        lines.push_back(fmt::format("{}  {}", TimeText(balloon.atMs), text));
    }
    return lines;
}

static bool IsProduct(const machine::Process& process) {
    const machine::Setup& setup = machine::TheSetup();
    return machine::EqualNoCase(process.imagePath, setup.directory + "\\" + setup.executable);
}

static std::vector<std::string> Programs() {
    std::vector<std::string> lines;
    for (const machine::Process* process : machine::AllProcesses()) {
        const machine::Process* parent = process->parentId ? machine::FindProcess(process->parentId) : nullptr;
        if (IsProduct(*process) || !parent || !IsProduct(*parent)) {
            continue;
        }
        lines.push_back(fmt::format("{}  {} as {}, {}", TimeText(process->startedMs), Utf8(process->commandLine),
                                    Utf8(process->user),
                                    process->ended ? fmt::format("ended with {}", process->exitCode) : "running"));
    }
    return lines;
}

static Json Texts(const std::vector<std::string>& ansi) {
    Json list = Json::array();
    for (const std::string& text : ansi) {
        list.push_back(Utf8(text));
    }
    return list;
}

static Json PortJson(const PortVerdict& port) {
    Json refused = Json::array();
    for (const Refusal& one : port.refused) {
        refused.push_back({{"name", one.name}, {"reason", Utf8(one.reason)}});
    }
    return {{"device", Utf8(port.facts.device)},
            {"name_before", Utf8(port.nameBefore)},
            {"name", Utf8(port.facts.dosName)},
            {"rule", Utf8(port.section)},
            {"wanted", port.wanted},
            {"last_resort", port.lastResort},
            {"refused", std::move(refused)},
            {"shortfall", ShortfallName(port.shortfall)},
            {"held_by", Utf8(port.heldBy)},
            {"states", port.states}};
}

static Json RuleJson(const RuleVerdict& rule) {
    return {{"rule", Utf8(rule.section)},    {"wanted", rule.wanted},
            {"took", Texts(rule.took)},      {"nearest", Utf8(rule.nearest)},
            {"rows_met", rule.rowsMet},      {"failed", rule.failedKey},
            {"value", Utf8(rule.portValue)}, {"patterns", Texts(rule.patterns)},
            {"taken_by", Utf8(rule.takenBy)}};
}

std::string EndOfRun(const Verdict& verdict, const Balloons& balloons, std::size_t width) {
    std::string text = Database(verdict);
    text += List("Rules that matched nothing", IdleRules(verdict));
    text += Ruleless(verdict);
    text += List("Ports that want each other's numbers in a ring", Rings(verdict));
    text += List("Restarted together", RestartsTogether(verdict));
    text += List("Message boxes", Boxes());
    text += List("Balloons", BalloonLines(balloons));
    text += List("Programs", Programs());
    text += List("DANGER: ports that a program has open", Dangers(verdict));
    text += "\n" + verdict.Sentence() + "\n";
    std::string flowed = PortsTable(verdict.ports, width);
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        flowed += Flow(text.substr(start, end - start), width, ListIndent) + "\n";
        start = end + 1;
    }
    return flowed;
}

nlohmann::ordered_json VerdictJson(const Verdict& verdict) {
    Json ports = Json::array(), rules = Json::array(), actions = Json::array(), rings = Json::array(),
         together = Json::array();
    for (const PortVerdict& port : verdict.ports) {
        ports.push_back(PortJson(port));
    }
    for (const RuleVerdict& rule : verdict.rules) {
        rules.push_back(RuleJson(rule));
    }
    for (const RuleVerdict& rule : verdict.actions) {
        actions.push_back(RuleJson(rule));
    }
    for (const Ring& ring : verdict.rings) {
        rings.push_back(Texts(ring.devices));
    }
    for (const Together& group : verdict.together) {
        together.push_back({{"device", Utf8(group.device)},
                            {"what", group.what},
                            {"means", group.means},
                            {"times", group.times},
                            {"ports", Texts(group.ports)},
                            {"others", Texts(group.others)}});
    }
    return {{"sentence", verdict.Sentence()},
            {"shortcomings", verdict.Shortcomings()},
            {"observed", verdict.isObserved},
            {"ports", std::move(ports)},
            {"com_database_before", verdict.databaseBefore},
            {"rules", std::move(rules)},
            {"rings", std::move(rings)},
            {"restarted_together", std::move(together)},
            {"actions", std::move(actions)}};
}

} // namespace rehearse
