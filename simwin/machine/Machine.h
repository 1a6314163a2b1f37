// One simulated machine, as a whole: created from a Setup, filled by a description, run, queried, destroyed. The rooms
// keep their state private; they are created and destroyed here, in order.
#pragma once

#include "simwin/kernel/Rules.h"
#include "simwin/kernel/Setup.h"

#include <functional>

namespace machine {

// Creates the machine: clock at 0, empty registry, no devices. One at a time.
void CreateMachine(const Setup& setup);
void DestroyMachine();

// Host signals that a crash of simulated code raises end the run with exit code 3 and a line "crash: ...".
void InstallCrashHandler();

// One hosted process on a machine of its own, started by the system: unit tests, benchmarks. `entry` runs as its first
// thread, with the host's own copy of the product. Returns: the exit code, CrashExitCode if the process did not end. A
// run that stops ends the host with that code and a line.
inline constexpr int CrashExitCode = 3;
int RunHosted(const Setup& setup, std::function<int()> entry);

// A room's own start and end, called by CreateMachine in the order of registration and by DestroyMachine in the
// reverse order. Registered by a static `Room` object in the room's source.
struct Room {
    Room(int order, void (*create)(), void (*destroy)());
    int order;
    void (*create)();
    void (*destroy)();
    Room* next;
};

// Pointers as numbers that are the same in each run, for %p: inside an image, inside a heap, else the value itself.
std::uint64_t StableAddress(const void* address);

} // namespace machine
