// What follows the timeline: the table of ports, then everything that an administrator has to know before the
// configuration goes to a real machine; the verdict in one sentence is the last line. UTF-8.
#pragma once

#include "rehearse/report/Verdict.h"
#include "rehearse/watch/Balloons.h"

#include <nlohmann/json.hpp>

#include <string>

namespace rehearse {

// width: columns of the terminal, 0 for a file.
std::string EndOfRun(const Verdict& verdict, const Balloons& balloons, std::size_t width);

// The same facts for programs.
nlohmann::ordered_json VerdictJson(const Verdict& verdict);

} // namespace rehearse
