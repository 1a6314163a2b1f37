// What a switch between two simulated threads costs: the bare jump, and the turn that the scheduler gives.
#include "bench/Calls.h"
#include "bench/Marks.h"

#include "simwin/kernel/Scheduler.h"

#include "platform/win32.h"

#include <boost/context/detail/fcontext.hpp>

#include <cstddef>
#include <vector>

namespace bench {
using boost::context::detail::fcontext_t;
using boost::context::detail::jump_fcontext;
using boost::context::detail::transfer_t;

constexpr std::size_t StackBytes = 64 * 1024;

static void JumpBack(transfer_t turn) {
    for (;;) {
        turn = jump_fcontext(turn.fctx, nullptr);
    }
}

// There and back.
static void Jump(benchmark::State& state) {
    std::vector<char> stack(StackBytes);
    fcontext_t other = boost::context::detail::make_fcontext(stack.data() + stack.size(), stack.size(), JumpBack);
    for (auto _ : state) {
        other = jump_fcontext(other, nullptr).fctx;
    }
}

// The scheduler has no other thread to run.
static void YieldAlone(benchmark::State& state) {
    for (auto _ : state) {
        machine::Yield();
    }
}

static DWORD WINAPI GiveTurnsBack(LPVOID isOver) {
    while (!*static_cast<const bool*>(isOver)) {
        machine::Yield();
    }
    return 0;
}

// One iteration: this thread, the other, this thread again.
static void YieldBetweenTwo(benchmark::State& state) {
    bool isOver = false;
    const HANDLE thread = CreateThread(nullptr, 0, GiveTurnsBack, &isOver, 0, nullptr);
    for (auto _ : state) {
        machine::Yield();
    }
    isOver = true;
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    GoOnCalling();
}

BENCHMARK(Jump)->Name("Fiber/JumpThereAndBack")->Apply(Repeated);
BENCHMARK(YieldAlone)->Name("Fiber/YieldAlone")->Apply(Repeated);
BENCHMARK(YieldBetweenTwo)->Name("Fiber/YieldBetweenTwo")->Apply(Repeated);

const Mark JumpMark(
    "nanoseconds for a bare jump there and back",
    [](const Measured& measured) {
        const double time = measured.Nanoseconds("Fiber/JumpThereAndBack");
        return time > 0 ? time : NotMeasured;
    },
    Wanted::Nothing, 0);
const Mark TurnMark(
    "nanoseconds for one turn between two threads",
    [](const Measured& measured) {
        const double time = measured.Nanoseconds("Fiber/YieldBetweenTwo");
        return time > 0 ? time / 2 : NotMeasured;
    },
    Wanted::Nothing, 0);
const Mark ShareMark("a turn through the scheduler against its two bare jumps",
                     TimeRatio("Fiber/YieldAlone", "Fiber/JumpThereAndBack"), Wanted::Nothing, 0);
} // namespace bench
