// One run of a described machine under a given configuration, without a report: what the product looked at when it
// chose a section for a port, in the words of its log, and how the ports stand at the end. The log's level is raised
// for that, so the run is not the one that a rehearsal reports; times and decisions are the same. Host side, one
// thread; one run after the other.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/host/Options.h"
#include "rehearse/watch/CheckLog.h"
#include "rehearse/watch/MachineFacts.h"

#include <string>
#include <vector>

namespace rehearse {

struct QuietRun {
    std::string outcome;                 // "" in good order, else what it ended as
    std::vector<SectionSearch> searches; // in the order of the log
    std::vector<PortFacts> ports;
};

// ini: the bytes of the file that the product finds, in place of the described one; events that edit the file do not
// happen. Throws InputError, also if the machine keeps its configuration in the registry.
// isOfRegistry: the bytes say what that machine's registry says, and take its place.
QuietRun RunQuietly(const TomlTable& description, const Options& options, const std::string& ini,
                    bool isOfRegistry = false);

} // namespace rehearse
