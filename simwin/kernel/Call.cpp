#include "simwin/kernel/Call.h"

#include "simwin/kernel/Livelock.h"
#include "simwin/kernel/Text.h"

#include <array>
#include <cstring>

extern "C" {
extern machine::Operation* __start_simops[];
extern machine::Operation* __stop_simops[];
}

namespace machine {

// With a seed one call in this many yields: often enough to hit every race in a few dozen seeds.
constexpr std::uint64_t TurnOdds = 8;
constexpr std::size_t TraceLength = 16;

namespace {
struct Gate {
    std::vector<Fault> faults;
    std::array<TracedCall, TraceLength> trace{};
    std::size_t traced = 0;
    CallWatcher watcher;
    bool isNoting = false;
    std::uint64_t callsWithoutTime = LivelockCalls;
    std::vector<Fault> noted;
};
} // namespace
static Gate* g_gate;

static Gate& TheGate() {
    return *g_gate;
}

// The first described fault that fits the call and is neither waiting nor used up. Counts the call for all that fit.
static Fault* MatchFault(const char* name, const char* object) {
    Fault* hit = nullptr;
    for (Fault& fault : TheGate().faults) {
        if (fault.isOver || fault.call != name || !MatchesWildcard(object, fault.on)) {
            continue;
        }
        ++fault.seen;
        if (!hit && fault.seen > fault.after && (fault.times == 0 || fault.acted < fault.times)) {
            ++fault.acted;
            hit = &fault;
        }
    }
    return hit;
}

static void NoteCall(const Operation& operation) {
    if (operation.errorCount < 2) {
        return;
    }
    Fault fault;
    fault.call = operation.name;
    fault.on = "*";
    fault.after = operation.count - 1;
    fault.error = operation.errors[1 + fault.after % (operation.errorCount - 1)];
    TheGate().noted.push_back(fault);
}

static std::string LivelockText(const char* name) {
    return std::string("ten million calls without time moving, the last ") + name + "\n" + WhoWaits();
}

Call::Call(Operation& operation, const char* object) {
    Thread* thread = CurrentThread();
    if (!thread) {
        StopRun(Verdict::BrokenRule, std::string(operation.name) + ": called outside a simulated thread");
    }
    ++operation.count;
    thread->call = operation.name;
    Gate& gate = TheGate();
    gate.trace[gate.traced++ % TraceLength] = {Now(), thread->id, operation.name};
    if (++Counts().callsSinceTimeMoved > gate.callsWithoutTime) {
        StopRun(Verdict::Livelock, LivelockText(operation.name));
    }
    if (gate.watcher) {
        gate.watcher(operation.name, object ? object : "");
    }
    if (IsSeeded() && Chance(TurnOdds) == 0) {
        Yield();
        thread->call = operation.name;
    }
    const Fault* fault = gate.faults.empty() ? nullptr : MatchFault(operation.name, object ? object : "");
    if (!fault && gate.isNoting) {
        NoteCall(operation);
    }
    if (!fault) {
        return;
    }
    error = fault->error;
    if (const std::uint64_t delay = fault->delayMs) {
        SleepMs(delay);
        thread->call = operation.name;
    }
}

void AllowCallsWithoutTime(std::uint64_t calls) {
    TheGate().callsWithoutTime = calls;
}

void AddFault(const Fault& fault) {
    TheGate().faults.push_back(fault);
}

std::span<Fault> Faults() {
    return TheGate().faults;
}

void NoteCallsThatCanFail() {
    TheGate().isNoting = true;
}

std::span<const Fault> NotedCalls() {
    return TheGate().noted;
}

void EndFaults() {
    for (Fault& fault : TheGate().faults) {
        fault.isOver = true;
    }
}

static void ClearCounts() {
    for (Operation** at = __start_simops; at != __stop_simops; ++at) {
        (*at)->count = 0;
    }
}

RoomPtr MakeGate() {
    return MakeRoom(g_gate, ClearCounts);
}

std::vector<const Operation*> AllOperations() {
    return {__start_simops, __stop_simops};
}

const Operation* FindOperation(std::string_view name) {
    for (Operation** at = __start_simops; at != __stop_simops; ++at) {
        if (name == (*at)->name) {
            return *at;
        }
    }
    return nullptr;
}

std::vector<TracedCall> RecentCalls() {
    const Gate& gate = TheGate();
    std::vector<TracedCall> calls;
    const std::size_t count = gate.traced < TraceLength ? gate.traced : TraceLength;
    for (std::size_t i = 0; i < count; ++i) {
        calls.push_back(gate.trace[(gate.traced - count + i) % TraceLength]);
    }
    return calls;
}

void WatchCalls(CallWatcher watcher) {
    TheGate().watcher = std::move(watcher);
}

} // namespace machine
