// The state behind CRITICAL_SECTION, for the reports: who holds what, and what is held at rest.
#pragma once

#include "simwin/kernel/Room.h"
#include "simwin/kernel/Scheduler.h"

#include <string>
#include <vector>

namespace machine {

struct Lock {
    Thread* owner = nullptr;
    int depth = 0;
    WaitQueue waiters;
    Process* process = nullptr;
    const void* section = nullptr; // the product's own structure
    const char* enteredIn = "";    // the operation before it was entered, for the report
};

// " held by thread 1012, which waits for ..." for a thread that waits for a lock; else empty.
std::string DescribeHolder(const Thread* waiter);

// Drops the locks of a process that has ended.
void ForgetLocks(const Process* process);

// Locks that some thread holds now.
std::vector<const Lock*> HeldLocks();

RoomPtr MakeLocks();

} // namespace machine
