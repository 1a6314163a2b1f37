// Counts calls into the machine from inside a benchmark, and keeps the machine from taking a benchmark for an endless
// loop. On the one thread of the benchmarks.
#pragma once

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Scheduler.h"

#include <cstdint>
#include <map>
#include <string>

namespace bench {

using CallCounts = std::map<std::string, std::uint64_t>;

// Calls so far, by operation.
inline CallCounts CountCalls() {
    CallCounts counts;
    for (const machine::Operation* operation : machine::AllOperations()) {
        counts[operation->name] += operation->count;
    }
    return counts;
}

inline std::uint64_t CountAllCalls() {
    std::uint64_t sum = 0;
    for (const machine::Operation* operation : machine::AllOperations()) {
        sum += operation->count;
    }
    return sum;
}

// Between two iterations: a machine whose time does not move stops the run after ten million calls.
inline void GoOnCalling() {
    machine::Counts().callsSinceTimeMoved = 0;
}

} // namespace bench
