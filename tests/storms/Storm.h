// Runs one plan on a simulated machine of its own and tells what was broken. One storm a host process: a crash of the
// product ends it, and the caller sees by the exit code which way.
#pragma once

#include "tests/storms/Judge.h"
#include "tests/storms/Plan.h"

#include <string>
#include <vector>

namespace storm {

constexpr std::uint64_t TwiceEach = 20; // every so manieth seed runs twice and must be the same

struct Counts {
    unsigned events = 0, looks = 0, ports = 0, restarts = 0, swapped = 0, failed = 0,
             slow = 0, // calls made to fail or to take long
        sleeps = 0, boots = 0, fastStartups = 0;
};

struct Outcome {
    std::vector<Violation> violations;
    Counts counts;
    UseTable excuses;
    std::string everything; // report and log of a seed that runs twice
};

// imageFile, resourceFile: the product as a shared object and its compiled resources.
Outcome RunStorm(const Plan& plan, const std::string& imageFile, const std::string& resourceFile);

} // namespace storm
