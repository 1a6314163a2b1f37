// One machine of a fleet, in a process of its own: what it read and what came of it go to standard output, a line each.
#pragma once

#include "rehearse/fleet/Result.h"
#include "rehearse/host/Options.h"

#include <optional>
#include <set>
#include <string>
#include <utility>

namespace rehearse::fleet {

// Rehearses as the options say, and compares if they name an older configuration. Returns ExitDone if there is a
// result, whatever it is.
int RunMember(Options options);

// What such a process wrote.
struct MemberOutput {
    std::set<std::pair<std::string, std::string>>
        inputs;                          // files, each with the fingerprint of its bytes, "" if not there
    std::optional<MachineResult> result; // nothing: it came to no end
};
MemberOutput ReadMember(const std::string& output);

// The fingerprint of a file as it is now; "" if it cannot be read.
std::string FingerprintOfFile(const std::string& file);

} // namespace rehearse::fleet
