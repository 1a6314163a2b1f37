// faults: each call that can fail fails in its turn, once and from then on, over chosen scenarios, and whatever follows
// must leave the machine in order. A round is a run of its own; a run without a fault shows which calls there are,
// and up to its fault a round is the same run.
#include "rehearse/description/DescriptionReader.h"
#include "tests/storms/Children.h"
#include "tests/storms/Trial.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

constexpr std::uint64_t SettlingMs = 60 * 60'000; // as a rehearsal waits after the last event
constexpr std::uint64_t CalmAfterMs = 2 * 60'000; // what fails from then on fails so long, or through the last stop
constexpr std::uint64_t ForEver = 0;
// What fails in a way of its own.
constexpr const char* OutOfMemory = "HeapAlloc"; // its callers try again until there is memory
constexpr const char* EndOfList = "SetupDiDestroyDeviceInfoList";
constexpr const char* ReportOfState = "SetServiceStatus";
constexpr const char* EntryOfHandler = "RegisterServiceCtrlHandlerExA";
constexpr const char* MakingOfEvent = "CreateEventA";
constexpr const char* NoRest = "a calm machine comes to rest";

// The wanted number by a cycle and by a property change, the swap, disable and enable, what is put off, the problem
// scan, access lists, the collision, the resume, two names, programs of each kind of user and through execute mode,
// balloons.
constexpr const char* Chosen[] = {
    "engine/wanted-number",    "restarts/cycle-refused",
    "engine/swap-at-start",    "engine/protected-keys",
    "engine/two-names",        "restarts/disable-enable",
    "restarts/collision",      "restarts/upper-device-later",
    "restarts/problem-scan",   "host/resume-checks-ports",
    "actions/every-user-type", "actions/remote-sessions",
    "actions/execute-mode",    "balloon/shown",
    "balloon/ports",
};

namespace {
struct Line {
    std::vector<std::string> scenarios;
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
    std::size_t every = 1;
    std::string folder;
};

struct Scenario {
    std::string name, file;
    std::vector<machine::Fault> calls; // all that can fail, in their order
    std::size_t bytesByDesign = 0;     // what the product leaves of its heap without a fault
};
} // namespace

static std::string FaultText(const machine::Fault& fault) {
    return fmt::format("{} fails with {}{}", fault.call, fault.error, fault.times == ForEver ? " from then on" : "");
}

// A fault that has not acted yet belongs to the last stop and acts there.
static void EndActingFaults() {
    for (machine::Fault& fault : machine::Faults()) {
        fault.isOver = fault.acted != 0;
    }
}

// A list that its destruction leaves there cannot be closed in another way.
static std::size_t HandlesLeftByFault(const machine::Fault* fault) {
    return fault && fault->call == EndOfList ? machine::Faults().back().acted : 0;
}

// What follows from the failure itself. A service manager that hears of no state, or has no handler to tell,
// waits forever, and the machine says so; the log's closer polls the clock if it has no event; a list that
// cannot be set at any attempt is not restored.
static bool IsExcused(const machine::Fault* fault, const storm::Violation& violation) {
    if (!fault) {
        return false;
    }
    if (fault->call == ReportOfState || fault->call == EntryOfHandler) {
        return (violation.what.starts_with("deadlock") && violation.how.find("stays in ") != std::string::npos) ||
               violation.what == "the last stop ends";
    }
    return fault->call == MakingOfEvent && violation.what == NoRest;
}

// A round: the scenario with one more fault, or with none to learn which calls there are. In a process of its own;
// returns lines that ReadResult takes apart.
static std::string RunRound(const Scenario& scenario, const machine::Fault* fault) {
    rehearse::Options options;
    const rehearse::TomlTable description = rehearse::ReadDescription(scenario.file);
    storm::Trial trial(description);
    storm::Rest judge(trial.stage);
    std::string text;
    trial.Run(
        options, SettlingMs, judge,
        [&] {
            fault ? machine::AddFault(*fault) : machine::NoteCallsThatCanFail();
            machine::At(rehearse::LastEventMs(description) + CalmAfterMs, machine::Due::Outside, EndActingFaults);
        },
        [&] {
            if (!machine::IsAtRest()) {
                judge.Complain(NoRest, machine::WhoWaits());
            }
            judge.JudgeRest();
        },
        [&] {
            const std::size_t handles = trial.leaks.HandlesOf(trial.stage.product.Get());
            judge.AfterStop(handles - std::min(handles, HandlesLeftByFault(fault)), /*isSlow=*/false);
            // One that refuses to run, by another exit code, ends without taking its tables down.
            const machine::Process* product = trial.stage.product.Get();
            const std::size_t bytes = product && product->exitCode == 0 ? product->leakedBytes : 0;
            if (!fault) {
                text += fmt::format("#bytes {}\n", bytes);
            } else if (bytes > scenario.bytesByDesign) {
                judge.Complain("nothing is leaked", fmt::format("{} bytes", bytes - scenario.bytesByDesign));
            }
            if (fault && machine::Faults().back().acted == 0) {
                judge.Complain("each call comes again until it fails", FaultText(*fault));
            }
            for (const machine::Fault& call : machine::NotedCalls()) {
                text += fmt::format("#call {} {} {}\n", call.call, call.error, call.after);
            }
        });
    std::vector<storm::Violation> violations = judge.Violations();
    std::erase_if(violations, [&](const storm::Violation& violation) { return IsExcused(fault, violation); });
    return text + storm::EndOf(violations);
}

// What a round printed; with scenario also the calls that the run without a fault printed.
static std::vector<storm::Violation> ReadResult(const std::string& text, int status, Scenario* scenario) {
    return storm::ReadViolations(text, status, [scenario](const char* line) {
        char name[64];
        machine::Fault fault;
        if (!scenario) {
            return false;
        }
        if (std::sscanf(line, "#call %63s %u %lu", name, &fault.error, &fault.after) != 3) {
            return std::sscanf(line, "#bytes %zu", &scenario->bytesByDesign) == 1;
        }
        fault.call = name;
        fault.on = "*";
        scenario->calls.push_back(fault);
        return true;
    });
}

// The rounds of a scenario: each call once and forever. With `every` only the first of each operation and every so
// manieth call, others in each scenario.
static std::vector<machine::Fault> RoundsOf(const Scenario& scenario, std::size_t place, std::size_t every) {
    std::vector<machine::Fault> rounds;
    std::set<std::string> met;
    for (std::size_t i = 0; i < scenario.calls.size(); ++i) {
        machine::Fault fault = scenario.calls[i];
        if (!met.insert(fault.call).second && (i + place) % every != 0) {
            continue;
        }
        fault.times = 1;
        rounds.push_back(fault);
        fault.times = ForEver;
        if (fault.call != OutOfMemory) {
            rounds.push_back(fault);
        }
    }
    return rounds;
}

static void TellViolations(const Scenario& scenario, const machine::Fault& fault, const Line& line,
                           const std::vector<storm::Violation>& violations) {
    for (const storm::Violation& violation : violations) {
        fmt::print("  {}: call {} of {}: {}: {}\n", scenario.name, fault.after + 1, FaultText(fault), violation.what,
                   violation.how);
    }
    if (violations.empty() || line.folder.empty()) {
        return;
    }
    std::string file = fmt::format("{}-{}-{}-{}", scenario.name, fault.call, fault.after + 1, fault.times);
    std::replace(file.begin(), file.end(), '/', '-');
    file = fmt::format("{}/{}.toml", line.folder, file);
    std::filesystem::create_directories(line.folder);
    std::ofstream(file, std::ios::binary)
        << fmt::format("# Breaks: {}.\n# Run it with: ./quill rehearse --json - FILE\ninclude = ['{}']\n\n"
                       "[[fault]]\ncall  = \"{}\"\nerror = {}\nafter = {}\ntimes = {}\n",
                       violations.front().what, std::filesystem::absolute(scenario.file).string(), fault.call,
                       fault.error, fault.after, fault.times);
    fmt::print("    written: {}\n", file);
}

namespace {
struct Total {
    std::size_t once = 0, lasting = 0, failed = 0;
    std::set<std::string> operations;
};
} // namespace

static void RunScenario(Scenario& scenario, std::size_t place, const Line& line, Total& total) {
    std::size_t failed = 0;
    const auto judge = [&](const machine::Fault& fault, const std::vector<storm::Violation>& violations) {
        failed += !violations.empty();
        TellViolations(scenario, fault, line, violations);
    };
    storm::RunInChildren(
        1, 1, [&](std::size_t) { return RunRound(scenario, nullptr); },
        [&](std::size_t, const std::string& text, int status) { judge({}, ReadResult(text, status, &scenario)); });
    const std::vector<machine::Fault> rounds = RoundsOf(scenario, place, line.every);
    storm::RunInChildren(
        rounds.size(), line.jobs, [&](std::size_t round) { return RunRound(scenario, &rounds[round]); },
        [&](std::size_t round, const std::string& text, int status) {
            judge(rounds[round], ReadResult(text, status, nullptr));
        });
    std::size_t once = 0;
    for (const machine::Fault& fault : rounds) {
        once += fault.times != ForEver;
        total.operations.insert(fault.call);
    }
    fmt::print("{:42} {:5} calls that can fail: {:5} once, {:5} lasting, {} rounds broken\n", scenario.name,
               scenario.calls.size(), once, rounds.size() - once, failed);
    std::fflush(stdout);
    total.once += once;
    total.lasting += rounds.size() - once;
    total.failed += failed + rounds.empty();
}

int main(int count, char** arguments) {
    CLI::App app("Each call that can fail fails in its turn, and the machine must be left in order.", "faults");
    Line line;
    app.add_option("SCENARIO", line.scenarios, "descriptions in place of the chosen ones")->check(CLI::ExistingFile);
    app.add_option("--every", line.every, "of each operation the first call, of all calls every Nth")
        ->check(CLI::PositiveNumber);
    app.add_option("--jobs", line.jobs, "so many at a time")->check(CLI::Range(1, 64));
    app.add_option("--write", line.folder, "write descriptions of broken rounds there")->type_name("DIR");
    CLI11_PARSE(app, count, arguments);
    const bool areChosen = line.scenarios.empty();
    if (areChosen) {
        for (const char* name : Chosen) {
            line.scenarios.push_back(fmt::format("{}/{}.toml", QM_SCENARIOS, name));
        }
    }
    Total total;
    for (std::size_t place = 0; place < line.scenarios.size(); ++place) {
        const std::filesystem::path file = line.scenarios[place];
        Scenario scenario{(file.parent_path().filename() / file.stem()).string(), file.string(), {}, 0};
        RunScenario(scenario, place, line, total);
    }
    for (const char* name : {OutOfMemory, EndOfList, ReportOfState, EntryOfHandler, MakingOfEvent}) {
        if (areChosen && !total.operations.contains(name)) { // a wrong name would change the rounds without a sign
            fmt::print("{}: no scenario calls it\n", name);
            ++total.failed;
        }
    }
    fmt::print("{} scenarios: {} calls of {} operations failed once, {} from then on; {} rounds broken\n",
               line.scenarios.size(), total.once, total.operations.size(), total.lasting, total.failed);
    return total.failed == 0 ? 0 : 1;
}
