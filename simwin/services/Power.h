// The machine as a whole goes to sleep and wakes. Called in the scheduler's context; none of this blocks.
#pragma once

#include "simwin/types.h"

namespace machine {

// Sleep: `told` says PBT_APMSUSPEND to the services, and the machine stops when their handlers have returned, 2 s later
// at most. A critical suspension is told to nobody and stops it at once. Does nothing while it sleeps or is about to.
void SuspendMachine(bool told);
// It wakes, if it slept, and the services get the power event `code`; while they handle it, what was plugged in and
// pulled out meanwhile is noticed, and with `replugAll` every USB device leaves and comes back.
void ResumeMachine(simwin::DWORD code, bool replugAll);

// Nothing of it runs, so it cannot notice what is done to it.
bool IsMachineDown();

} // namespace machine
