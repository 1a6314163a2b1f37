#include "rehearse/report/Verdict.h"

#include "simwin/devices/drivers/Holders.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/devices/tree/DeviceWatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <tuple>

namespace rehearse {

constexpr unsigned ProblemDisabled = 22;

static std::string Utf8(const std::string& text) {
    return machine::Utf8FromAnsi(text);
}

static bool Has(const std::vector<unsigned>& numbers, unsigned number) {
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

static bool IsComName(const std::string& name) {
    return machine::ComNumberOf(name) != 0;
}

// By number; ports without one by that of their registry, absent ones last.
static std::tuple<bool, unsigned, std::string> OrderOf(const PortVerdict& port) {
    const unsigned registered = machine::ComNumberOf(port.facts.registryName);
    const unsigned number = port.facts.number ? port.facts.number : registered ? registered : UINT_MAX;
    return {!port.facts.isPresent, number, port.facts.device};
}

static bool IsNumberMissing(const PortVerdict& port) {
    return port.facts.isPresent && !port.wanted.empty() && !Has(port.wanted, port.facts.number);
}

static Shortfall ShortfallOf(const PortVerdict& port) {
    const bool isPrinter = !port.facts.registryName.empty() && !IsComName(port.facts.registryName);
    if (!port.facts.isPresent || isPrinter || port.facts.problem == ProblemDisabled) {
        return Shortfall::None;
    }
    if (port.facts.dosName.empty()) {
        return Shortfall::NoName;
    }
    if (!IsNumberMissing(port)) {
        return Shortfall::None;
    }
    return Has(port.wanted, machine::ComNumberOf(port.facts.registryName)) ? Shortfall::NextPlug
                                                                           : Shortfall::NotObtained;
}

// The port that has a number now; null if none.
static const PortVerdict* HolderOfNumber(const std::vector<PortVerdict>& ports, unsigned number) {
    for (const PortVerdict& port : ports) {
        if (port.facts.isPresent && port.facts.number == number && number) {
            return &port;
        }
    }
    return nullptr;
}

// Follows first choices from one port to the holder of its number; a ring if that leads back.
static std::vector<const PortVerdict*> RingFrom(const std::vector<PortVerdict>& ports, const PortVerdict& first) {
    std::vector<const PortVerdict*> ring;
    const PortVerdict* port = &first;
    while (port && port->shortfall == Shortfall::NotObtained) {
        ring.push_back(port);
        port = HolderOfNumber(ports, port->wanted.front());
        if (port == &first) {
            return ring;
        }
        if (std::find(ring.begin(), ring.end(), port) != ring.end()) {
            return {}; // a ring, but this port only leads to it
        }
    }
    return {};
}

static std::string NamesOf(const std::vector<const PortVerdict*>& ports, const PortVerdict* without) {
    std::vector<unsigned> numbers;
    for (const PortVerdict* port : ports) {
        if (port != without) {
            numbers.push_back(port->facts.number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    std::string text;
    for (const unsigned number : numbers) {
        text += fmt::format("{}COM{}", text.empty() ? "" : ", ", number);
    }
    return text;
}

static std::string WhyRefused(const PortVerdict& port) {
    const std::string name = fmt::format("COM{}", port.wanted.front());
    for (const Refusal& one : port.refused) {
        if (one.name == name) {
            return fmt::format("{} {}", name, Utf8(one.reason));
        }
    }
    return fmt::format("{} not obtained", name);
}

static void AddShortfall(const std::vector<PortVerdict>& ports, PortVerdict& port) {
    if (port.shortfall == Shortfall::NoName) {
        port.states.emplace_back("no name");
    }
    if (port.shortfall != Shortfall::None && Has(port.wanted, machine::ComNumberOf(port.facts.registryName))) {
        port.states.emplace_back("number at next plug");
    }
    if (port.shortfall != Shortfall::NotObtained) {
        return;
    }
    const std::vector<const PortVerdict*> ring = RingFrom(ports, port);
    if (!ring.empty()) {
        port.states.push_back("ring with " + NamesOf(ring, &port));
    } else if (HolderOfNumber(ports, port.wanted.front())) {
        port.states.push_back(fmt::format("COM{} is taken", port.wanted.front()));
    } else {
        port.states.push_back(WhyRefused(port));
    }
}

// Other ports that did not get the number of this port.
static void AddRivals(const std::vector<PortVerdict>& ports, PortVerdict& port) {
    std::string rivals;
    for (const PortVerdict& other : ports) {
        if (&other != &port && port.facts.number && other.shortfall == Shortfall::NotObtained &&
            RingFrom(ports, other).empty() && Has(other.wanted, port.facts.number)) {
            rivals += (rivals.empty() ? "" : ", ") + Utf8(NameOfPort(other.facts));
        }
    }
    if (!rivals.empty()) {
        port.states.push_back(fmt::format("wanted by {}{}", rivals, Has(port.wanted, port.facts.number) ? " too" : ""));
    }
}

static void AddStates(const std::vector<PortVerdict>& ports, PortVerdict& port) {
    if (!port.facts.isPresent) {
        port.states.emplace_back("not there");
        return;
    }
    if (port.facts.problem) {
        port.states.push_back(fmt::format("problem {}", port.facts.problem));
    }
    AddShortfall(ports, port);
    if (!port.heldBy.empty()) {
        port.states.push_back("held by " + Utf8(port.heldBy));
    }
    AddRivals(ports, port);
    if (port.states.empty() && Has(port.wanted, port.facts.number)) {
        port.states.emplace_back("ok");
    }
}

static std::vector<PortVerdict> PortsOf(const StartFacts& start, const LogFacts& log) {
    std::vector<PortVerdict> ports;
    for (const PortFacts& facts : AllPorts()) {
        PortVerdict port;
        port.facts = facts;
        for (const PortFacts& before : start.ports) {
            if (machine::EqualNoCase(before.device, facts.device)) {
                port.nameBefore = before.dosName;
            }
        }
        if (const machine::DeviceNode* node = machine::TheDeviceTree().FindById(facts.device)) {
            port.heldBy = machine::HolderOf(*node);
        }
        if (const auto checked = log.ports.find(facts.device); checked != log.ports.end()) {
            const PortCheck& check = checked->second.last;
            port.section = check.section;
            port.wanted = check.wanted;
            port.lastResort = check.lastResort;
            port.refused = check.refused;
        }
        port.shortfall = ShortfallOf(port);
        ports.push_back(std::move(port));
    }
    std::sort(ports.begin(), ports.end(), [](const auto& a, const auto& b) { return OrderOf(a) < OrderOf(b); });
    for (PortVerdict& port : ports) {
        AddStates(ports, port);
    }
    return ports;
}

static std::vector<Ring> RingsOf(const std::vector<PortVerdict>& ports) {
    std::vector<Ring> rings;
    std::vector<const PortVerdict*> seen;
    for (const PortVerdict& port : ports) {
        if (std::find(seen.begin(), seen.end(), &port) != seen.end()) {
            continue;
        }
        Ring ring;
        for (const PortVerdict* one : RingFrom(ports, port)) {
            ring.devices.push_back(one->facts.device);
            seen.push_back(one);
        }
        if (!ring.devices.empty()) {
            rings.push_back(std::move(ring));
        }
    }
    return rings;
}

// --- Rules

// The rows of a section by key, forms of one key together: "UsbPort" for "UsbPort3".
static bool IsFormOf(std::string_view form, std::string_view key) {
    if (form.size() == key.size() + 1 && form.back() >= '1' && form.back() <= '9') {
        form.remove_suffix(1);
    }
    return machine::EqualNoCase(form, key);
}

// Whether the section would fit a port that an earlier one took, by the values that were compared there.
static bool WouldFit(const ConfiguredSection& section, const CheckedPort& port) {
    bool hasRow = false;
    for (const auto& [key, value] : port.values) {
        bool isConfigured = false, fits = false;
        for (const auto& [form, pattern] : section.values) {
            if (!pattern.empty() && IsFormOf(form, key)) {
                isConfigured = true;
                fits = fits || (!value.empty() && machine::MatchesWildcard(value, pattern));
            }
        }
        if (isConfigured && !fits) {
            return false;
        }
        hasRow = hasRow || isConfigured;
    }
    return hasRow;
}

static void FindNearest(const ConfiguredSection& section, const LogFacts& log, bool isAction, RuleVerdict& rule) {
    const SectionTrial* nearest = nullptr;
    for (const auto& [device, port] : log.ports) {
        const auto trial = port.trials.find(section.name);
        if (trial == port.trials.end()) {
            if (!isAction && !port.last.section.empty() && WouldFit(section, port)) {
                rule.nearest = device;
                rule.takenBy = port.last.section;
                return;
            }
            continue;
        }
        if (!nearest || IsNearer(trial->second, *nearest)) {
            nearest = &trial->second;
            rule.nearest = device;
        }
    }
    if (!nearest) {
        return;
    }
    rule.rowsMet = nearest->rowsMet;
    rule.failedKey = nearest->failedKey;
    rule.portValue = nearest->portValue;
    rule.patterns = nearest->patterns;
}

static std::vector<RuleVerdict> RulesOf(const LogFacts& log, bool areActions) {
    std::vector<RuleVerdict> rules;
    for (const ConfiguredSection& section : areActions ? log.actions : log.sections) {
        RuleVerdict rule;
        rule.section = section.name;
        rule.wanted = NumbersOfSection(section);
        if (const auto taken = log.takenBy.find(section.name); taken != log.takenBy.end()) {
            rule.took.assign(taken->second.begin(), taken->second.end());
        }
        if (rule.took.empty()) {
            FindNearest(section, log, areActions, rule);
        }
        rules.push_back(std::move(rule));
    }
    return rules;
}

// --- What restarts as a whole

static std::string WhatIs(const machine::DeviceNode& node) {
    if (node.IsHub()) {
        return "the hub";
    }
    if (node.kind == machine::DeviceKind::Composite) {
        return "the composite device";
    }
    if (machine::EqualNoCase(machine::ClassNameOf(node), "Bluetooth")) {
        return "the whole Bluetooth radio";
    }
    return "the device";
}

// Ports, and devices without anything below them that would represent them.
static void AddBelow(const machine::DeviceNode& node, Together& group) {
    for (const machine::DeviceNode* child : node.children) {
        if (!child->IsPresent()) {
            continue;
        }
        if (child->IsPort()) {
            group.ports.push_back(child->id);
        } else if (child->children.empty()) {
            group.others.push_back(child->id);
        }
        AddBelow(*child, group);
    }
}

static std::vector<Together> TogetherOf() {
    std::vector<Together> groups;
    for (const machine::DeviceRestart& restart : machine::DeviceRestarts()) {
        const machine::DeviceNode* top = machine::TheDeviceTree().FindById(restart.device);
        if (!restart.ok || !top) {
            continue;
        }
        const auto known = std::find_if(groups.begin(), groups.end(), [&](const Together& group) {
            return machine::EqualNoCase(group.device, restart.device);
        });
        if (known != groups.end()) {
            ++known->times;
            continue;
        }
        Together group{top->id, WhatIs(*top), restart.means, 1, {}, {}};
        AddBelow(*top, group);
        if (group.ports.size() + group.others.size() > 1) {
            groups.push_back(std::move(group));
        }
    }
    return groups;
}

const char* ShortfallName(Shortfall shortfall) {
    switch (shortfall) {
    case Shortfall::NoName:
        return "no name";
    case Shortfall::NotObtained:
        return "not obtained";
    case Shortfall::NextPlug:
        return "next plug";
    case Shortfall::None:
        break;
    }
    return "";
}

StartFacts FactsAtStart() {
    return {AllPorts(), ComDatabase()};
}

Verdict MakeVerdict(const StartFacts& start, const LogFacts& log, const Timeline& timeline) {
    Verdict verdict;
    verdict.isObserved = log.isThere;
    verdict.ports = PortsOf(start, log);
    verdict.databaseBefore = start.database;
    verdict.databaseAfter = ComDatabase();
    verdict.rules = RulesOf(log, /*areActions=*/false);
    verdict.actions = RulesOf(log, /*areActions=*/true);
    verdict.together = TogetherOf();
    verdict.rings = RingsOf(verdict.ports);
    for (const TimelineEntry& entry : timeline.Entries()) {
        if (entry.isDanger) {
            verdict.dangers.push_back(entry);
        }
    }
    return verdict;
}

std::vector<std::string> Verdict::Shortcomings() const {
    std::vector<std::string> lines;
    for (const PortVerdict& port : ports) {
        const std::string device = Utf8(port.facts.device);
        if (port.shortfall == Shortfall::NoName) {
            lines.push_back(fmt::format("{} has no name", device));
        } else if (port.shortfall != Shortfall::None) {
            lines.push_back(fmt::format("{} has {}, [{}] wants {}", device, Utf8(port.facts.dosName), port.section,
                                        NumbersText(port.wanted, "COM")));
        }
    }
    for (const RuleVerdict& rule : rules) {
        if (rule.took.empty()) {
            lines.push_back(fmt::format("[{}] matched nothing", Utf8(rule.section)));
        }
    }
    if (!isObserved) {
        lines.emplace_back("what the rules took could not be observed");
    }
    return lines;
}

std::string Verdict::Sentence() const {
    const auto count = [this](auto isMeant) { return std::count_if(ports.begin(), ports.end(), isMeant); };
    const auto ruled = count([](const auto& port) { return port.facts.isPresent && !port.wanted.empty(); });
    const auto satisfied =
        count([](const auto& port) { return port.facts.isPresent && Has(port.wanted, port.facts.number); });
    const auto nameless = count([](const auto& port) { return port.shortfall == Shortfall::NoName; });
    const auto idle = std::count_if(rules.begin(), rules.end(), [](const auto& rule) { return rule.took.empty(); });
    std::string text;
    if (!isObserved) {
        text = "What the rules took could not be observed";
    } else if (ruled == 0) {
        text = "No port that is there has a rule with a number";
    } else if (satisfied == ruled) {
        text = ruled == 1   ? "The one port with a rule has a number that it wants"
               : ruled == 2 ? "Both ports with a rule have a number that they want"
                            : fmt::format("All {} ports with a rule have a number that they want", ruled);
    } else if (satisfied == 0) {
        text = ruled == 1 ? "The one port with a rule has no number that it wants"
                          : fmt::format("None of the {} ports with a rule has a number that it wants", ruled);
    } else {
        text = fmt::format("{} of {} ports with a rule {}", satisfied, ruled,
                           satisfied == 1 ? "has a number that it wants" : "have a number that they want");
    }
    const auto add = [&text](std::size_t many, const char* one, const char* several) {
        if (many) {
            text += fmt::format("; {} {}", many, many == 1 ? one : several);
        }
    };
    add(rings.size(), "ring of ports that want each other's numbers", "rings of ports that want each other's numbers");
    add(nameless, "port has no name", "ports have no name");
    add(idle, "rule matched nothing", "rules matched nothing");
    add(dangers.size(), "danger to a port that is in use", "dangers to ports that are in use");
    return text + ".";
}

std::string NameOfPort(const PortFacts& port) {
    return !port.dosName.empty() ? port.dosName : !port.registryName.empty() ? port.registryName : port.device;
}

std::string NumbersText(const std::vector<unsigned>& numbers, const char* prefix) {
    std::string text;
    for (std::size_t i = 0; i < numbers.size();) {
        std::size_t last = i;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) {
            ++last;
        }
        if (last - i < 2) {
            last = i; // two neighbours read better as a list
        }
        text += fmt::format("{}{}{}", text.empty() ? "" : ", ", prefix, numbers[i]);
        if (last != i) {
            text += fmt::format("-{}{}", prefix, numbers[last]);
        }
        i = last + 1;
    }
    return text;
}

} // namespace rehearse
