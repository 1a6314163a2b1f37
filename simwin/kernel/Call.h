// The gate: every operation that the product can call opens with SIM_CALL. It counts the call, notes it as the thread's
// current one, yields where a seed says so, and applies the described faults.
#pragma once

#include "simwin/kernel/Room.h"
#include "simwin/kernel/Scheduler.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct Operation {
    const char* name;
    const simwin::DWORD* errors; // those that a description may make it fail with, after a leading 0
    std::size_t errorCount;
    std::uint64_t count;
};

// One call into the machine. Trivially destructible: a fiber that is abandoned inside it leaves nothing behind.
struct Call {
    Call(Operation& operation, const char* object);
    Call(Operation& operation, const std::string& object) : Call(operation, object.c_str()) {}
    simwin::DWORD error = 0; // the error of a described fault; 0: continue
};

// A described failure or slowness of an operation.
struct Fault {
    std::string call, on; // `on`: a wildcard over what the call is applied to
    simwin::DWORD error = 0;
    std::uint64_t delayMs = 0;
    std::uint64_t after = 0, times = 1; // skips the first `after` matches, then acts `times` times; times 0: forever
    std::uint64_t seen = 0, acted = 0;
    bool isOver = false;
};
void AddFault(const Fault& fault);
std::span<Fault> Faults();

// From now on each call that could be made to fail, and is not by a described fault, is recorded as the fault that
// makes only it fail. Where an operation declares several errors its calls take them in turn.
void NoteCallsThatCanFail();
std::span<const Fault> NotedCalls();

void EndFaults(); // none acts any more; what they did stays recorded

// The gate itself: faults, watcher, trace. The counts of the operations go with it.
RoomPtr MakeGate();

// Every operation that the machine has, by name.
std::vector<const Operation*> AllOperations();
const Operation* FindOperation(std::string_view name);

// The last `count` calls, for the report of a run that stopped.
struct TracedCall {
    std::uint64_t atMs;
    simwin::DWORD threadId;
    const char* name;
};
std::vector<TracedCall> RecentCalls();

// Watches every call, after the count and before its effect: the timeline and the tests of order.
using CallWatcher = std::function<void(const char* name, const char* object)>;
void WatchCalls(CallWatcher watcher);

inline void SetError(simwin::DWORD error) {
    CurrentThread()->lastError = error;
}
// What most operations return when they fail, with the last error set.
inline simwin::BOOL Fail(simwin::DWORD error) {
    SetError(error);
    return FALSE;
}
inline simwin::HANDLE FailOpen(simwin::DWORD error) {
    SetError(error);
    return INVALID_HANDLE_VALUE;
}

} // namespace machine

// object: the text that the call is applied to (a path, a name), "" where there is none. Further arguments: the error
// codes that a description may inject.
#define SIM_CALL(name, object, ...)                                                                                    \
    static const ::simwin::DWORD simErrors[] = {0u __VA_OPT__(, ) __VA_ARGS__};                                        \
    static ::machine::Operation simOperation = {name, simErrors, sizeof(simErrors) / sizeof(simErrors[0]), 0};         \
    [[gnu::used, gnu::section("simops")]] static ::machine::Operation* simOperationEntry = &simOperation;              \
    ::machine::Call simCall(simOperation, object);                                                                     \
    (void)simCall
