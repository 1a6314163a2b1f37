// One simulated machine, as a whole: created from a Setup, filled by a description, run, queried, destroyed. The rooms
// keep their state private; they are created and destroyed here, in order.
#pragma once

#include "simwin/kernel/Room.h"
#include "simwin/kernel/Rules.h"
#include "simwin/kernel/Setup.h"

#include <functional>
#include <span>
#include <vector>

namespace machine {

// Owns the rooms. With its construction the clock stands at 0, the registry is empty, there are no devices; with its
// end everything is gone, and the next machine begins like the first. One at a time: a second one ends the host
// program.
class Machine {
public:
    explicit Machine(const Setup& setup);
    // Of these rooms alone, in this order, which must have what they use: a test of one room.
    Machine(const Setup& setup, std::span<const RoomMaker> makers);
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine();

private:
    std::vector<RoomPtr> m_rooms;
};

// Host signals that a crash of simulated code raises end the run with exit code 3 and a line "crash: ...".
void InstallCrashHandler();

// One hosted process on a machine of its own, started by the system: unit tests, benchmarks. `entry` runs as its first
// thread, with the host's own copy of the product. Returns: the exit code, CrashExitCode if the process did not end. A
// run that stops ends the host with that code and a line.
inline constexpr int CrashExitCode = 3;
int RunHosted(const Setup& setup, std::function<int()> entry);

} // namespace machine
