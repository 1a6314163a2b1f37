// For a run that calls more than a machine does by itself, since what it logs is forced on.
#pragma once

#include <cstdint>

namespace machine {

// From now on this many calls without time moving are a livelock, in place of LivelockCalls; until the machine goes.
void AllowCallsWithoutTime(std::uint64_t calls);

} // namespace machine
