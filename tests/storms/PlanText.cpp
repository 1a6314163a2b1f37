#include "tests/storms/Plan.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

namespace storm {

static std::string IniText(const Configuration& configuration) {
    std::string text = "[Settings]\n";
    for (const auto& [key, value] : configuration.settings) {
        text += fmt::format("{}={}\n", key, value);
    }
    text += configuration.balloons ? "[BalloonTips]\nEnabled=1\nEnabledOnRemoval=1\n" : "";
    for (const Section& section : configuration.sections) {
        text += section.number == 100 ? "[ComPorts]\n" : fmt::format("[ComPorts{}]\n", section.number);
        text += fmt::format("{}={}\n", section.key, section.pattern);
        if (!section.quick.empty()) {
            text += fmt::format("QuickAndDirtyMode={}\n", section.quick);
        }
        for (std::size_t i = 0; i < section.wants.size(); ++i) {
            text += fmt::format("PortName{}=COM{}\n", i + 1, section.wants[i]);
        }
    }
    return text + configuration.actions;
}

// Drops events that pull out what is already out, which is wrong input: random histories contain them, and so may a
// reduced one.
static std::vector<Event> WithoutVainPulls(const Plan& plan, std::vector<Event> events) {
    std::map<std::string, bool> isOut;
    for (const Device& device : plan.devices) {
        isOut[device.id] = std::find(device.lines.begin(), device.lines.end(), "plugged = false") != device.lines.end();
    }
    std::erase_if(events, [&](const Event& event) {
        const std::vector<std::string> quoted = machine::Split(event.text, '\'');
        if (event.text.starts_with("plug = ")) {
            isOut[quoted[1]] = false;
        }
        return event.text.starts_with("unplug = ") && std::exchange(isOut[quoted[1]], true);
    });
    return events;
}

static std::string EventText(const Plan& plan, const Event& event) {
    std::string text = fmt::format("[[event]]\nat = \"{}ms\"\n", event.atMs);
    if (event.configuration >= 0) {
        text += fmt::format("edit_ini = '''\n{}'''\n",
                            IniText(plan.configurations[static_cast<std::size_t>(event.configuration)]));
    }
    return text + event.text + "\n\n";
}

std::vector<Event> CalmEvents(const Plan& plan, CalmTimes* times) {
    constexpr std::uint64_t UnitPauseMs = 12'000, CheckPauseMs = 40'000;
    std::vector<Event> events;
    std::uint64_t at = plan.calmAtMs;
    if (plan.switches.power) { // whatever is left of the history, the machine runs
        events.push_back({at - 20, "resume = \"automatic\"", -1, -1});
    }
    if (plan.switches.power && !plan.switches.debugRole) {
        events.push_back({at - 10, "start = true", -1, -1});
    }
    events.push_back({at, "calm = true", -1, -1});
    // A start under failing calls may have ended at once.
    if ((plan.switches.stops || plan.switches.power) && !plan.switches.debugRole) {
        events.push_back({at + 10, "start = true", -1, -1});
    }
    events.push_back({at + 20, "", static_cast<int>(plan.configurations.size()) - 1, -1});
    at += 2000;
    for (std::size_t unit = 0; unit < plan.units.size(); ++unit) {
        if (!plan.units[unit].empty()) {
            events.push_back({at, fmt::format("plug = '{}'", plan.units[unit]), -1, static_cast<int>(unit)});
        }
    }
    at += Minute;
    // A debug run hears of no power events: there only arrivals check.
    const unsigned rounds = plan.switches.debugRole ? 4 : 2, checks = plan.switches.debugRole ? 0 : 5;
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t unit = 1; unit < plan.units.size(); ++unit, at += UnitPauseMs) {
            if (!plan.units[unit].empty()) {
                events.push_back({at, fmt::format("replug = {{ device = '{}', off = \"3s\" }}", plan.units[unit]), -1,
                                  static_cast<int>(unit)});
            }
        }
    }
    times->settledAtMs = at;
    for (unsigned check = 0; check < checks; ++check, at += CheckPauseMs) {
        events.push_back({at, "resume = \"automatic\"", -1, -1});
        times->lastCheckMs = at;
    }
    return events;
}

std::string Description(const Plan& plan) {
    std::string text = "[windows]\n";
    for (const std::string& line : plan.windows) {
        text += line + "\n";
    }
    text += fmt::format("\n[quillmarch]\nrole = \"{}\"\nini_text = '''\n{}'''\n\n",
                        plan.switches.debugRole ? "debug" : "service", IniText(plan.configurations.front()));
    for (const Device& device : plan.devices) {
        text += fmt::format("[[device]]\nid = '{}'\n", device.id);
        if (!device.parent.empty()) {
            text += fmt::format("parent = '{}'\n", device.parent);
        }
        for (const std::string& line : device.lines) {
            text += line + "\n";
        }
        text += "\n";
    }
    for (const std::string& name : plan.dosNames) {
        text += "[[dos_name]]\n" + name + "\n\n";
    }
    for (const std::string& table : plan.people) {
        text += table + "\n";
    }
    for (const std::string& fault : plan.faults) {
        text += "[[fault]]\n" + fault + "\n\n";
    }
    for (const Event& event : WithoutVainPulls(plan, plan.events)) {
        text += EventText(plan, event);
    }
    CalmTimes times;
    for (const Event& event : CalmEvents(plan, &times)) {
        text += EventText(plan, event);
    }
    return text;
}

} // namespace storm
