// The report of a run: as JSON for programs, as a timeline with a table of ports for people. Made after the run; reads
// the machine and the timeline, changes nothing. The same run gives the same bytes.
#pragma once

#include "rehearse/report/Verdict.h"
#include "rehearse/watch/Balloons.h"
#include "rehearse/watch/Timeline.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace machine {
struct Process;
}

namespace rehearse {

struct RunFacts {
    std::string title; // UTF-8
    std::optional<std::uint64_t> seed;
    const machine::Process* product = nullptr; // the process that the description starts, null if none was
};

// Keys in their fixed order, times in whole milliseconds. The leaks are 0 until SetLeaks.
nlohmann::ordered_json MakeReport(const RunFacts& facts, const Timeline& timeline, const Balloons& balloons,
                                  const Verdict& verdict);
void SetLeaks(nlohmann::ordered_json& report, std::size_t handles, std::size_t bytes);

// How standard output looks: colours, and columns of a terminal; neither for a file.
struct Look {
    bool hasColours = false;
    std::size_t width = 0;
};

// Timeline, table and verdict for standard output.
std::string ReportForPeople(const RunFacts& facts, const Timeline& timeline, const Balloons& balloons,
                            const Verdict& verdict, const Look& look);

} // namespace rehearse
