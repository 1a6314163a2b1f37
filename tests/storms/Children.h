// Runs in host processes of their own, several at a time: a crash of one ends it alone and is reported to its caller.
#pragma once

#include "tests/storms/Rest.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace storm {

// Does `work` for each place below `count`, `jobs` at a time; `done` gets what it returned, what the crash handler said
// and the wait status of the process.
void RunInChildren(std::size_t count, unsigned jobs, const std::function<std::string(std::size_t)>& work,
                   const std::function<void(std::size_t, const std::string&, int)>& done);

// What a child reports at the end of its text, and that it got there.
std::string EndOf(const std::vector<Violation>& violations);
// The violations of a text. Lines before its end go to `take`, which says whether it knows them; without the end, with
// an unknown line or a bad status the run itself has failed.
std::vector<Violation> ReadViolations(const std::string& text, int status,
                                      const std::function<bool(const char* line)>& take);

} // namespace storm
