// Switching between the scheduler and the fibers, and the stacks that they run on. Only the scheduler uses it.
// An abandoned fiber runs no destructors: the machine must clean up what its frames held.
#pragma once

#include <cstddef>
#include <memory>

namespace machine {

struct Thread;

struct ReturnStack {
    std::size_t bytes = 0;
    void operator()(void* stack) const;
};
// A stack with a guard page below it; released stacks are reused. Its owner is an object of the machine, never a frame
// on a fiber, and lets go of it when the fiber has been left for the last time.
using Stack = std::unique_ptr<void, ReturnStack>;
Stack TakeStack(std::size_t bytes);
void FreeStacks(); // all have been released
// True if the address lies in the guard page of some stack: a thread that used too much of it.
bool IsStackGuard(const void* address);

// From the scheduler: runs the thread until it yields; `main` on its first turn.
void SwitchToFiber(Thread* thread, void (*main)(Thread*));
// From the thread: back to the scheduler until its next turn.
void SwitchToScheduler(Thread* thread);
[[noreturn]] void LeaveFiberForEver(Thread* thread);

} // namespace machine
