// The machine as a whole goes to sleep, wakes, goes off and starts again. Called in the scheduler's context; none of
// this blocks.
#pragma once

#include "simwin/kernel/Room.h"
#include "simwin/kernel/types.h"

#include <cstdint>
#include <functional>

namespace machine {

// Sleep: with `isAnnounced` the services get PBT_APMSUSPEND, and the machine stops when their handlers have returned, 2
// s later at most. A critical suspension is not announced and stops it at once. Does nothing while it sleeps or is
// about to.
void SuspendMachine(bool isAnnounced);
// It wakes, if it slept, and the services get the power event `code`; while they handle it, plugs and pulls during the
// sleep are noticed, and with `replugAll` every USB device leaves and comes back.
void ResumeMachine(simwin::DWORD code, bool replugAll);

// Users' sessions and programs end, the services get their control, and those that still run some time later are ended
// wherever they are; then the rest, and the power goes off. Does nothing while that is in progress or done.
void ShutDownMachine();
// Fast startup (from Windows 6.2 on): users' sessions and programs end, the services live through it with a suspend,
// and the machine sleeps without power until its start.
void ShutDownFast();
// It starts from that state: the services get their resume, and nobody is logged on.
void StartFast();
// The machine is off and starts: everything from the beginning except files and lasting keys. Services do not start by
// themselves.
void BootMachine();

struct PowerCounts {
    unsigned sleeps = 0, boots = 0, fastStartups = 0;
};
const PowerCounts& CountsOfPower();
// How much of a time it slept through, in ms; a sleep in progress does not count.
std::uint64_t AsleepBetweenMs(std::uint64_t fromMs, std::uint64_t toMs);

enum class PowerState : std::uint8_t { On, Asleep, ShuttingDown, FastOff, Off };
PowerState ThePowerState();
// The reports of a shutdown: "killed" services that did not end in time, and that the machine is "off".
enum class PowerEvent : std::uint8_t { ServicesKilled, Off };
void SetPowerObserver(std::function<void(PowerEvent)> observer);

RoomPtr MakePower();

} // namespace machine
