#include "simwin/host/Fibers.h"

#include <memory>

#include <windows.h>

namespace host {

struct Fiber {
    void* handle = nullptr;
    void (*main)(void*) = nullptr;
    void* argument = nullptr;
    bool beginsAgain = false;
    bool hasBegun = false;
    void* start[5] = {}; // where it begins again
};

static void* g_own; // the program's own stack, as a fiber

constexpr std::size_t CommittedBytes = 64 * 1024;
constexpr ULONG OverflowBytes = 32 * 1024; // for the report of an overflow

static void CALLBACK Main(void* parameter) {
    auto* fiber = static_cast<Fiber*>(parameter);
    ULONG bytes = OverflowBytes;
    SetThreadStackGuarantee(&bytes);
    (void)__builtin_setjmp(fiber->start);
    fiber->beginsAgain = false;
    fiber->main(fiber->argument);
}

Fiber* MakeFiber(std::size_t stackBytes) {
    if (!g_own) {
        g_own = ConvertThreadToFiberEx(nullptr, FIBER_FLAG_FLOAT_SWITCH);
    }
    auto fiber = std::make_unique<Fiber>();
    fiber->handle = CreateFiberEx(CommittedBytes, stackBytes, FIBER_FLAG_FLOAT_SWITCH, Main, fiber.get());
    return fiber->handle ? fiber.release() : nullptr;
}

void FreeFiber(Fiber* fiber) {
    const std::unique_ptr<Fiber> owned(fiber);
    DeleteFiber(owned->handle);
}

void RunFiber(Fiber* fiber, void (*main)(void*), void* argument) {
    fiber->main = main;
    fiber->argument = argument;
    fiber->beginsAgain = fiber->hasBegun; // a jump costs nothing, a fresh fiber 20 us
    fiber->hasBegun = true;
    SwitchToFiber(fiber->handle);
}

void ContinueFiber(Fiber* fiber) {
    SwitchToFiber(fiber->handle);
}

void LeaveFiber(Fiber* fiber) {
    SwitchToFiber(g_own);
    if (fiber->beginsAgain) {
        __builtin_longjmp(fiber->start, 1);
    }
}

} // namespace host
