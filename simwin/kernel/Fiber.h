// Switching between the scheduler and the fibers, and the stacks that they run on. Only the scheduler uses it.
// A fiber that is left for ever runs no destructors: what its frames held is the machine's to clean up.
#pragma once

#include <cstddef>

namespace machine {

struct Thread;

// A stack with a guard page below it; given back stacks are used again.
void* TakeStack(std::size_t bytes);
void ReturnStack(void* stack, std::size_t bytes);
void FreeStacks();
// True if the address lies in the guard page of some stack: a thread that used too much of it.
bool IsStackGuard(const void* address);

// From the scheduler: runs the thread until it comes back; `main` on its first turn.
void SwitchToFiber(Thread* thread, void (*main)(Thread*));
// From the thread: back to the scheduler until its next turn.
void SwitchToScheduler(Thread* thread);
[[noreturn]] void LeaveFiberForEver(Thread* thread);

} // namespace machine
