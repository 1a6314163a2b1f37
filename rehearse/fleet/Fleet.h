// `--fleet`: one configuration rehearsed on every machine below a folder, each in a process of its own, and what they
// have in common. Host side; the machines themselves run elsewhere.
#pragma once

#include "rehearse/host/Options.h"

#include <cstdint>
#include <optional>
#include <string>

namespace rehearse::fleet {

inline constexpr std::uint64_t UsualLimitMs = 30'000;

struct Call {
    std::string folder;                   // of the fleet
    std::string out;                      // where results are kept, "" nowhere
    unsigned jobs = 0;                    // machines at a time; 0: as many as there are processors
    std::uint64_t limitMs = UsualLimitMs; // of the host's time, for each machine
    bool resume = false;                  // keep results in `out` that are still right
    bool merge = false;                   // only put together what the shards left in `out`
    std::string shard;                    // "3/10", "/10", "" as the surroundings say
    std::string version;                  // of this tool
    Options options;                      // ini, compare, json, html, check, strict and the like
};

// Returns ExitDone, ExitNotMet if a machine failed or has findings, or the configuration has; 130 after Ctrl-C. Throws
// InputError for a call that is wrong or an output that cannot be written.
int RunFleet(const Call& call);

} // namespace rehearse::fleet
