// Runs in host processes of their own, several at a time: a crash of one ends it alone, and its caller hears of it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace storm {

// Does `work` for each place below `count`, `jobs` at a time; `done` gets what it returned, what the crash handler said
// and the wait status of the process.
void RunInChildren(std::size_t count, unsigned jobs, const std::function<std::string(std::size_t)>& work,
                   const std::function<void(std::size_t, const std::string&, int)>& done);

} // namespace storm
