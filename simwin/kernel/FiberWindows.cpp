// The fibers of the simulated threads on Windows: Fiber.h on what simwin/host offers.
#include "simwin/kernel/Fiber.h"

#include "simwin/host/Fibers.h"
#include "simwin/kernel/Scheduler.h"

#include <cstdlib>
#include <map>
#include <vector>

namespace machine {

static std::map<std::size_t, std::vector<host::Fiber*>> g_freeFibers; // by size
static std::vector<host::Fiber*> g_allFibers;
static void (*g_threadMain)(Thread*);

static host::Fiber* FiberOf(const Thread* thread) {
    return static_cast<host::Fiber*>(thread->stack.get());
}

Stack TakeStack(std::size_t bytes) {
    auto& free = g_freeFibers[bytes];
    if (!free.empty()) {
        host::Fiber* fiber = free.back();
        free.pop_back();
        return Stack(fiber, {bytes});
    }
    host::Fiber* fiber = host::MakeFiber(bytes);
    if (!fiber) {
        StopRun(Verdict::Crash, "the host has no memory for a stack");
    }
    g_allFibers.push_back(fiber);
    return Stack(fiber, {bytes});
}

void ReturnStack::operator()(void* stack) const {
    g_freeFibers[bytes].push_back(static_cast<host::Fiber*>(stack));
}

void FreeStacks() {
    for (host::Fiber* fiber : g_allFibers) {
        host::FreeFiber(fiber);
    }
    g_allFibers.clear();
    g_freeFibers.clear();
}

bool IsStackGuard(const void*) {
    return false; // the system says so itself
}

static void Begin(void* thread) {
    g_threadMain(static_cast<Thread*>(thread));
}

void SwitchToFiber(Thread* thread, void (*main)(Thread*)) {
    g_threadMain = main;
    if (thread->started) {
        host::ContinueFiber(FiberOf(thread));
        return;
    }
    thread->started = true;
    host::RunFiber(FiberOf(thread), Begin, thread);
}

void SwitchToScheduler(Thread* thread) {
    host::LeaveFiber(FiberOf(thread));
}

void LeaveFiberForEver(Thread* thread) {
    host::LeaveFiber(FiberOf(thread));
    std::abort();
}

} // namespace machine
