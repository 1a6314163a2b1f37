#include "rehearse/run/Observer.h"

#include "rehearse/description/Captures.h"
#include "rehearse/events/Events.h"
#include "rehearse/expectations/Expectations.h"
#include "rehearse/host/Durations.h"
#include "rehearse/machine/MachineBuilder.h"
#include "rehearse/run/MachineLife.h"
#include "rehearse/run/Stories.h"
#include "rehearse/watch/Balloons.h"
#include "rehearse/watch/LogOutput.h"
#include "rehearse/watch/MachineFacts.h"

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace rehearse {

using Json = nlohmann::json;

// --- Across the pipe, in the machine's code page: such bytes would not survive JSON, so texts are converted to UTF-8
// and back.
static std::string Out(const std::string& ansi) {
    return machine::Utf8FromAnsi(ansi);
}

static std::string In(const Json& text) {
    return machine::AnsiFromUtf8(text.get<std::string>());
}

static Json TrialJson(const SectionTrial& trial) {
    Json patterns = Json::array();
    for (const std::string& pattern : trial.patterns) {
        patterns.push_back(Out(pattern));
    }
    return {trial.fits, trial.rowsMet, Out(trial.failedKey), Out(trial.portValue), patterns};
}

static SectionTrial TrialOf(const Json& json) {
    SectionTrial trial{json[0], json[1], In(json[2]), In(json[3]), {}};
    for (const Json& pattern : json[4]) {
        trial.patterns.push_back(In(pattern));
    }
    return trial;
}

static Json CheckJson(const PortCheck& check) {
    Json refused = Json::array();
    for (const Refusal& one : check.refused) {
        refused.push_back({Out(one.name), Out(one.reason)});
    }
    return {check.atMs, Out(check.section), check.wanted, check.lastResort, refused, Out(check.conclusion)};
}

static PortCheck CheckOf(const Json& json) {
    PortCheck check{json[0], In(json[1]), json[2], json[3], {}, In(json[5])};
    for (const Json& one : json[4]) {
        check.refused.push_back({In(one[0]), In(one[1])});
    }
    return check;
}

static Json SectionsJson(const std::vector<ConfiguredSection>& sections) {
    Json json = Json::array();
    for (const ConfiguredSection& section : sections) {
        Json values = Json::array();
        for (const auto& [key, value] : section.values) {
            values.push_back({Out(key), Out(value)});
        }
        json.push_back({Out(section.name), values});
    }
    return json;
}

static std::vector<ConfiguredSection> SectionsOf(const Json& json) {
    std::vector<ConfiguredSection> sections;
    for (const Json& section : json) {
        sections.push_back({In(section[0]), {}});
        for (const Json& value : section[1]) {
            sections.back().values.emplace_back(In(value[0]), In(value[1]));
        }
    }
    return sections;
}

static Json FactsJson(const LogFacts& facts) {
    Json ports = Json::array(), taken = Json::array();
    for (const auto& [device, port] : facts.ports) {
        Json trials = Json::array(), values = Json::array();
        for (const auto& [section, trial] : port.trials) {
            trials.push_back({Out(section), TrialJson(trial)});
        }
        for (const auto& [key, value] : port.values) {
            values.push_back({Out(key), Out(value)});
        }
        ports.push_back({Out(device), CheckJson(port.last), trials, values});
    }
    for (const auto& [section, devices] : facts.takenBy) {
        for (const std::string& device : devices) {
            taken.push_back({Out(section), Out(device)});
        }
    }
    return {{"there", facts.isThere},
            {"sections", SectionsJson(facts.sections)},
            {"actions", SectionsJson(facts.actions)},
            {"ports", ports},
            {"taken", taken}};
}

static LogFacts FactsOfJson(const Json& json) {
    LogFacts facts;
    facts.isThere = json["there"];
    facts.sections = SectionsOf(json["sections"]);
    facts.actions = SectionsOf(json["actions"]);
    for (const Json& one : json["ports"]) {
        CheckedPort& port = facts.ports[In(one[0])];
        port.last = CheckOf(one[1]);
        for (const Json& trial : one[2]) {
            port.trials[In(trial[0])] = TrialOf(trial[1]);
        }
        for (const Json& value : one[3]) {
            port.values[In(value[0])] = In(value[1]);
        }
    }
    for (const Json& one : json["taken"]) {
        facts.takenBy[In(one[0])].insert(In(one[1]));
    }
    return facts;
}

namespace {
// --- The second run

class LogKeeper {
public:
    LogKeeper(ObservedLog& log, const Timeline& timeline) : m_log(log), m_timeline(timeline) {}

    void Keep(std::uint32_t thread, std::string_view message) {
        if (m_log.isCut) {
            return;
        }
        NoteEntries();
        std::string line = fmt::format("{:>12} {:>5}  {}\n", TimeText(machine::Now()), thread,
                                       machine::Utf8FromAnsi(OnOneLine(message)));
        m_log.isCut = m_log.text.size() + line.size() > MostLogBytes;
        if (m_log.isCut) {
            return;
        }
        m_log.text += line;
        ++m_lines;
    }

    void NoteEntries() { m_log.linesBefore.resize(m_timeline.Entries().size(), m_lines); }

private:
    static std::string OnOneLine(std::string_view message) {
        std::string line(message);
        std::replace(line.begin(), line.end(), '\n', ' ');
        std::replace(line.begin(), line.end(), '\r', ' ');
        return line;
    }

    ObservedLog& m_log;
    const Timeline& m_timeline;
    std::size_t m_lines = 0;
};
} // namespace

static std::string SecondRun(TomlTable description, const Options& options) {
    Timeline timeline;
    Balloons balloons;
    Leaks leaks;
    Stage stage{&description, &timeline, &balloons};
    Expectations expectations(stage);
    CheckLog log;
    const MachineLife machine(SetupOf(description, options), timeline, balloons, leaks);
    FillMachine(description, options);
    AddStories(description, options);
    timeline.Watch();
    balloons.Watch(timeline);
    leaks.Watch();
    expectations.Check();
    if (options.log) {
        ForceLog(options.logLevel);
    }
    ObservedLog whole;
    LogKeeper keeper(whole, timeline);
    WatchLog(log, [&](std::uint32_t thread, std::string_view message) {
        if (options.html) {
            keeper.Keep(thread, message);
        }
    });
    expectations.Schedule();
    ScheduleEvents(stage);
    (void)machine::RunMachine({UntilMs(description, options)});
    log.Finish();
    timeline.CatchUp();
    keeper.NoteEntries();
    return Json{{"end", EndOfMachine()},
                {"facts", FactsJson(log.Facts())},
                {"log", whole.text},
                {"lines_before", whole.linesBefore},
                {"cut", whole.isCut}}
        .dump();
}

Observer::Observer(const TomlTable& description, const Options& options) : m_process(description, options, SecondRun) {
}

void Observer::Abandon() {
    m_process.Abandon();
}

int Observe(const Options& options) {
    fmt::print("{}", SecondRun(ReadMachine(options), options));
    return ExitDone;
}

LogFacts Observer::Take(const std::string& ended) {
    const Json json = Json::parse(m_process.Output(), nullptr, false);
    if (json.is_discarded() || json["end"] != ended) {
        return {};
    }
    m_log = {json["log"], json["lines_before"], json["cut"]};
    return FactsOfJson(json["facts"]);
}

std::string EndOfMachine() {
    Json ports = Json::array();
    for (const PortFacts& port : AllPorts()) {
        ports.push_back(
            {Out(port.device), port.isPresent, Out(port.registryName), Out(port.dosName), port.problem, port.restarts});
    }
    return Json{ports, ComDatabase()}.dump();
}

} // namespace rehearse
