// `--compare`: the same machine and history under two configurations, side by side. Host side, one thread.
#pragma once

#include "rehearse/host/Options.h"

#include <string>
#include <utility>
#include <vector>

namespace rehearse {

using RuleId = std::pair<unsigned, int>; // type and number

struct RuleChange {
    RuleId rule;
    std::string change; // new, gone, changed, shadowed
    std::string what;
};

struct PortChange {
    std::string device, oldName, newName, oldRule, newRule;
    unsigned oldRestarts = 0, newRestarts = 0;
    bool isNamed = false; // by a rule that has changed
    bool IsTouched() const { return oldName != newName || newRestarts > oldRestarts; }
    bool Differs() const { return oldName != newName || newRestarts != oldRestarts; }
};

struct Comparison {
    std::string stopped; // why one of the runs did not end in good order; "" it did
    std::vector<RuleChange> rules;
    std::vector<PortChange> ports; // all of the machine
};

// options: as below. Throws InputError.
Comparison CompareMachine(const Options& options);

// options.compare: the old file; the new one is options.ini, else the described one.
// Returns: ExitDone; with options.strict ExitNotMet if a port is touched that no changed rule names; ExitStopped if a
// run does not end in good order. Throws InputError.
int CompareRules(const Options& options);

} // namespace rehearse
