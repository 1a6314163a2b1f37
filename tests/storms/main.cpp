// storm: random histories from seeds. Prints what each failing seed broke, and writes the smallest description that
// still breaks it.
#include "tests/storms/Runner.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include <unistd.h>

// The range of derived seeds: apart from those that people name, and short enough to be typed.
constexpr std::uint64_t DerivedStart = 1'000'000, DerivedSeeds = 1'000'000'000;

namespace {
struct Line {
    std::size_t seeds = 0;
    std::uint64_t first = 1;
    std::string from;
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
    std::string folder;
    bool verbose = false, print = false;
};
} // namespace

static void Describe(CLI::App& app, Line& line) {
    app.add_option("SEEDS", line.seeds, "how many seeds")->required();
    app.add_option("--first", line.first, "the first of them")
        ->excludes(app.add_option("--from", line.from, "derive the first of them from this text, as a commit's id"));
    app.add_option("--jobs", line.jobs, "so many at a time")->check(CLI::Range(1, 64));
    app.add_option("--write", line.folder, "write shrunk descriptions of failing seeds there")->type_name("DIR");
    app.add_flag("--verbose", line.verbose, "a line for each seed");
    app.add_flag("--print", line.print, "print the descriptions of the seeds, run nothing");
}

// Endless output would fill the screen.
static std::string ViolationsText(const std::string& start, const std::vector<storm::Violation>& violations) {
    constexpr std::size_t Most = 12;
    std::string text;
    for (std::size_t i = 0; i < violations.size() && i < Most; ++i) {
        text += fmt::format("{}{}: {}\n", start, violations[i].what, violations[i].how);
    }
    return violations.size() > Most ? text + fmt::format("{}and {} more\n", start, violations.size() - Most) : text;
}

static void TellFailure(const storm::Plan& plan, const storm::RunResult& result) {
    fmt::print("seed {} ({}):\n{}", plan.seed, storm::SwitchesText(plan.switches),
               ViolationsText("  ", result.violations));
    std::fflush(stdout);
}

static void WriteShrunk(const storm::Runner& runner, const Line& line, const storm::Plan& plan,
                        const storm::Violation& violation) {
    const storm::Plan small = runner.Shrink(plan, violation.what);
    const std::string file = fmt::format("{}/storm-{}.toml", line.folder, plan.seed);
    std::string title = fmt::format("# Storm {} breaks: {}.\n", plan.seed, violation.what);
    title += ViolationsText("#   ", runner.Run(small).violations);
    title += fmt::format("# Run it with: quillmarch-rehearse --seed {} --log - FILE\n\n", plan.seed);
    std::ofstream(file, std::ios::binary) << title << storm::Description(small);
    fmt::print("  written: {}\n", file);
}

namespace {
class Total {
public:
    void Add(const storm::RunResult& result) {
        for (std::size_t i = 0; i < m_counts.size(); ++i) {
            m_counts[i] += result.counts[i];
        }
        for (const auto& [reason, uses] : result.excuses) {
            m_excuses[reason].all += uses.all;
            m_excuses[reason].alone += uses.alone;
        }
        if (result.violations.empty()) {
            return;
        }
        ++m_failed;
        std::map<std::string, unsigned> once;
        for (const storm::Violation& violation : result.violations) {
            once[violation.what] = 1;
        }
        for (const auto& [what, one] : once) {
            m_broken[what] += one;
        }
    }
    void Tell(std::size_t seeds) {
        fmt::print("{} storms", seeds);
        for (std::size_t i = 0; i < m_counts.size(); ++i) {
            fmt::print("{} {} {}", i == 0 ? ":" : ",", m_counts[i], storm::CountNames[i]);
        }
        fmt::print("; {} failed\n", m_failed);
        for (const auto& [what, count] : m_broken) {
            fmt::print("  {} x {}\n", count, what);
        }
        fmt::print("broken statements that were excused, and by this alone:\n");
        for (const storm::Reason reason : storm::Excuses) {
            fmt::print("  {:6} {:6}  ({}) {}, until {}\n", m_excuses[reason].all, m_excuses[reason].alone,
                       reason->letter, reason->who, reason->until);
        }
    }
    bool HasFailed() const { return m_failed != 0; }

private:
    storm::Counts m_counts = {};
    storm::UseTable m_excuses;
    unsigned m_failed = 0;
    std::map<std::string, unsigned> m_broken;
};
} // namespace

static int RunSeeds(const Line& line) {
    const storm::Runner runner(line.jobs);
    // A seed that runs twice has two places, one after the other.
    std::vector<std::uint64_t> places;
    for (std::uint64_t seed = line.first; seed < line.first + line.seeds; ++seed) {
        places.insert(places.end(), seed % storm::TwiceEach == 0 ? 2 : 1, seed);
    }
    Total total;
    std::map<std::uint64_t, std::uint64_t> digests;
    std::vector<std::pair<storm::Plan, storm::Violation>> failures;
    runner.RunAll(
        places.size(), [&](std::size_t place) { return storm::PlanOf(places[place]); },
        [&](std::size_t place, storm::RunResult result) {
            const storm::Plan plan = storm::PlanOf(places[place]);
            const auto [known, isFirst] = digests.emplace(plan.seed, result.digest);
            if (!isFirst && known->second != result.digest) {
                result.violations.push_back({"the same seed is the same run", "report or log differ"});
            }
            if (line.verbose) {
                fmt::print("seed {}: {}\n", plan.seed, storm::SwitchesText(plan.switches));
            }
            if (isFirst || !result.violations.empty()) {
                total.Add(result);
            }
            if (result.violations.empty()) {
                return;
            }
            TellFailure(plan, result);
            failures.emplace_back(plan, result.violations.front());
        });
    if (!line.folder.empty()) {
        std::filesystem::create_directories(line.folder);
        for (const auto& [plan, violation] : failures) {
            WriteShrunk(runner, line, plan, violation);
        }
    }
    total.Tell(line.seeds);
    return total.HasFailed() ? 1 : 0;
}

int main(int count, char** arguments) {
    CLI::App app("Random histories under seeded schedules, judged by what must always hold.", "storm");
    Line line;
    Describe(app, line);
    CLI11_PARSE(app, count, arguments);
    if (!line.from.empty()) {
        line.first = DerivedStart + storm::DigestOf(line.from) % DerivedSeeds;
        fmt::print("seeds from {} on\n", line.first);
    }
    if (!line.print) {
        return RunSeeds(line);
    }
    for (std::uint64_t seed = line.first; seed < line.first + line.seeds; ++seed) {
        fmt::print("# {}\n{}", storm::SwitchesText(storm::PlanOf(seed).switches),
                   storm::Description(storm::PlanOf(seed)));
    }
    return 0;
}
