// Storms on simulated machines of their own, each in a host process, several at a time: a crash of the product ends
// one, and the exit code says how. Also reduces a failing one to the smallest that still fails.
#pragma once

#include "tests/storms/Judge.h"
#include "tests/storms/Plan.h"

#include <array>
#include <functional>
#include <string>
#include <vector>

namespace storm {

constexpr std::uint64_t TwiceEach = 20; // every so manieth seed runs twice and must be the same

// What is counted of a storm, in the order in which it is printed.
constexpr const char* CountNames[] = {"events",        "looks at rest", "ports",  "restarts", "swapped ports",
                                      "failing calls", "slow calls",    "sleeps", "boots",    "fast startups"};
using Counts = std::array<std::uint64_t, std::size(CountNames)>;

struct RunResult {
    std::vector<Violation> violations;
    Counts counts = {};
    UseTable excuses;
    std::uint64_t digest = 0; // of report and log of a seed that runs twice
};

std::uint64_t DigestOf(const std::string& text);

class Runner {
public:
    explicit Runner(unsigned jobs) : m_jobs(jobs) {}

    // Runs the plans, `jobs` at a time, and passes each result on as it comes, with the plan's index.
    void RunAll(std::size_t count, const std::function<Plan(std::size_t)>& plan,
                const std::function<void(std::size_t, const RunResult&)>& done) const;
    RunResult Run(const Plan& plan) const;

    // The smallest part of the plan that still breaks the same statement: fewer events, units, faults, rules.
    Plan Shrink(const Plan& plan, const std::string& what) const;

private:
    RunResult RunHere(const Plan& plan) const;
    bool StillFails(const Plan& plan, const std::string& what) const;

    unsigned m_jobs;
};

} // namespace storm
