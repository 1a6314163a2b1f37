// A machine of a generated fleet: its exports are parsed, the rules checked against it, the story `replug` rehearsed,
// each machine in a process of its own, as for a fleet of real ones. Measured is processor time, so that other work of
// the host counts for nothing. A program of its own: it makes its machines first.
#include "bench/Marks.h"

#include "rehearse/rules/Rules.h"
#include "rehearse/run/Run.h"

#include "simwin/registry/RegistryExport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {
constexpr char FleetName[] = "Fleet/Machine";
constexpr int Machines = 200, Seed = 1;
constexpr double NotRun = -1;

namespace {
// What one machine took.
struct Taken {
    double milliseconds = 0; // of its process and of those that it started
    double kilobytes = 0;    // the most that was resident
    bool isDone = false;     // it ended with a verdict
};
} // namespace

static std::string MakeFleet() {
    char folder[] = "/tmp/quillmarch-fleet-XXXXXX";
    if (!mkdtemp(folder)) {
        return "";
    }
    const std::string out = std::string(folder) + "/fleet";
    const std::string line = "python3 '" QM_SOURCE_FOLDER "/bench/fleet/make_fleet.py' '" QM_TOOL "' '" + out + "' " +
                             std::to_string(Machines) + " --seed " + std::to_string(Seed);
    return std::system(line.c_str()) == 0 ? out : "";
}

static std::vector<std::string> FoldersOf(const std::string& fleet) {
    std::vector<std::string> folders;
    for (const auto& entry : std::filesystem::directory_iterator(fleet + "/machines")) {
        folders.push_back(entry.path().string());
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

// The two questions of a fleet, in this order.
static bool AskBoth(const std::string& folder, const std::string& rules) {
    rehearse::Options options;
    options.description = folder + "/machine.toml";
    options.quiet = true;
    options.rules = rules;
    if (rehearse::CheckRules(options) > rehearse::ExitNotMet) {
        return false;
    }
    options.rules.reset();
    options.ini = rules;
    options.stories = {"replug"};
    options.json = "/dev/null";
    return rehearse::Rehearse(options) == rehearse::ExitDone;
}

static Taken RunMachine(const std::string& folder, const std::string& rules) {
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        try {
            _exit(AskBoth(folder, rules) ? 0 : 1);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            _exit(1);
        }
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        return {};
    }
    const auto ms = [](const timeval& time) {
        return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
    };
    return {ms(usage.ru_utime) + ms(usage.ru_stime), static_cast<double>(usage.ru_maxrss),
            WIFEXITED(status) && WEXITSTATUS(status) == 0};
}

// Reading and parsing the exports once, in milliseconds.
static double ParseOnce(const std::string& folder) {
    const std::clock_t start = std::clock();
    for (const char* name : {"/Enum.reg", "/Control.reg", "/Services.reg"}) {
        std::ifstream stream(folder + name, std::ios::binary);
        std::ostringstream bytes;
        bytes << stream.rdbuf();
        std::vector<machine::ExportedKey> keys;
        std::vector<machine::ExportNote> notes;
        if (machine::ReadExport(bytes.str(), keys, notes)) {
            return NotRun;
        }
    }
    return 1e3 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

static double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

static void FleetMachine(benchmark::State& state) {
    const std::string fleet = MakeFleet();
    if (fleet.empty()) {
        state.SkipWithError("the fleet was not made");
        return;
    }
    std::vector<double> times, parses, sizes;
    for (auto _ : state) {
        for (const std::string& folder : FoldersOf(fleet)) {
            const Taken taken = RunMachine(folder, fleet + "/fleet.ini");
            if (!taken.isDone) {
                state.SkipWithError(("no verdict for " + folder).c_str());
                return;
            }
            times.push_back(taken.milliseconds);
            sizes.push_back(taken.kilobytes);
            parses.push_back(ParseOnce(folder));
        }
    }
    std::filesystem::remove_all(std::filesystem::path(fleet).parent_path());
    double sum = 0;
    for (const double time : times) {
        sum += time;
    }
    state.counters["median"] = Median(times);
    state.counters["most"] = *std::max_element(times.begin(), times.end());
    state.counters["rate"] = 1e3 * static_cast<double>(times.size()) / sum;
    state.counters["parse"] = Median(parses);
    state.counters["kilobytes"] = *std::max_element(sizes.begin(), sizes.end());
}
BENCHMARK(FleetMachine)->Name(FleetName)->Unit(benchmark::kMillisecond)->Iterations(1);

static std::function<double(const Measured&)> CounterOf(const char* counter) {
    return [counter](const Measured& measured) {
        return measured.Nanoseconds(FleetName) > 0 ? measured.Counter(FleetName, counter) : NotMeasured;
    };
}

const Mark MedianMark("milliseconds of processor time for a machine of a fleet", CounterOf("median"), Wanted::AtMost,
                      50);
const Mark MostMark("the same for the slowest of 200", CounterOf("most"), Wanted::Nothing, 0);
const Mark RateMark("machines a second on one core", CounterOf("rate"), Wanted::Nothing, 0);
const Mark ParseMark("milliseconds for one parse of its exports, of which it takes three", CounterOf("parse"),
                     Wanted::Nothing, 0);
const Mark KilobytesMark("kilobytes resident, at most", CounterOf("kilobytes"), Wanted::Nothing, 0);
} // namespace bench

int main(int count, char** arguments) {
    return bench::TakeArguments(count, arguments) ? bench::RunAndJudge() : 2;
}
