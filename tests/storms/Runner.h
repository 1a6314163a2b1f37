// Storms in processes of their own, several at a time, and the way from a failing one to the smallest that still fails.
#pragma once

#include "tests/storms/Storm.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace storm {

struct RunResult {
    std::vector<Violation> violations;
    Counts counts;
    UseTable excuses;
    std::uint64_t digest = 0; // of report and log
};

std::uint64_t DigestOf(const std::string& text);

class Runner {
public:
    Runner(std::string imageFile, std::string resourceFile, unsigned jobs)
        : m_imageFile(std::move(imageFile)), m_resourceFile(std::move(resourceFile)), m_jobs(jobs) {}

    // Runs the plans, `jobs` at a time, and hands each result over as it comes, with the plan's place.
    void RunAll(std::size_t count, const std::function<Plan(std::size_t)>& plan,
                const std::function<void(std::size_t, const RunResult&)>& done) const;
    RunResult Run(const Plan& plan) const;

    // The smallest part of the plan that still breaks the same statement: fewer events, units, faults, rules.
    Plan Shrink(const Plan& plan, const std::string& what) const;

private:
    bool StillFails(const Plan& plan, const std::string& what) const;

    std::string m_imageFile, m_resourceFile;
    unsigned m_jobs;
};

} // namespace storm
