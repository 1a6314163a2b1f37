// Threads as fibers on one host thread, the virtual clock, and what is due when. Time stands still while anything is
// runnable and jumps to the next deadline when nothing is. Without a seed the next thread is the one that has waited
// longest; with a seed it is drawn, and each call into the machine may yield.
//
// At one instant: what the machine has due, then outside events in the order of the description, then everything
// that is runnable without time passing, then the expectations of that time.
#pragma once

#include "simwin/kernel/Fiber.h"
#include "simwin/kernel/Objects.h"
#include "simwin/kernel/Room.h"
#include "simwin/kernel/Rules.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

enum class WaitKind : std::uint8_t {
    None,
    Sleep,
    Object,          // WaitForSingleObject
    CriticalSection, // never idle: a deadlock if nothing else can happen
    Message,         // GetMessageA: idle
    Dispatcher,      // the service control dispatcher: idle
    Pipe,            // a pipe's connect: idle
    Answer,          // another thread's window
    Machine          // the machine works for the caller: a device starts, a message is answered
};

enum class ThreadState : std::uint8_t { Suspended, Ready, Running, Waiting, Ended };

struct Thread : Waitable {
    Thread() : Waitable(ObjectKind::Thread) {}
    ~Thread() override;

    simwin::DWORD id = 0;
    Process* process = nullptr;
    std::function<simwin::DWORD()> entry;
    ThreadState state = ThreadState::Suspended;
    int suspendCount = 0;
    int priority = 0; // data only: no effect on scheduling
    simwin::DWORD lastError = 0;
    Ref<Object> impersonated;     // the token that it acts with; null: its process's
    simwin::DWORD exitCode = 259; // STILL_ACTIVE

    WaitKind waitKind = WaitKind::None;
    const char* waitWhat = "";      // for the report of who waits for what
    WaitQueue* waitQueue = nullptr; // its place in line; removed when the wait ends, for whatever reason
    Ref<Object> waitHold;           // kept alive for the length of the wait, whoever closes its handle
    std::uint64_t waitDue = 0;      // the deadline of the wait, 0 for none
    simwin::DWORD waitResult = 0;

    const char* call = ""; // the operation that it is in, or was in last
    unsigned callDepth = 0;

    void* context = nullptr; // saved fiber context
    Stack stack;             // none once it has ended: a handle may keep the object for long
    bool started = false;
    void* fakeStack = nullptr; // address sanitizer's
};

// Virtual time since the start of the machine, in milliseconds.
std::uint64_t Now();
// Windows' 32-bit tick count: the described uptime plus Now(), wrapping.
simwin::DWORD TickCount();

enum class Due : std::uint8_t { Machine = 0, Outside = 1, Expectation = 2 };
using DueId = std::uint64_t;

// Runs `action` in the scheduler's own context at virtual time `atMs` (not before now). It must not block.
DueId At(std::uint64_t atMs, Due due, std::function<void()> action);
inline DueId After(std::uint64_t delayMs, std::function<void()> action) {
    return At(Now() + delayMs, Due::Machine, std::move(action));
}
void CancelDue(DueId id);

// The whole machine sleeps: no thread runs and nothing of its own becomes due, only what happens outside and what is
// judged. What was due is suspended; what is requested meanwhile counts from the time it wakes.
void FallAsleep();
bool IsAsleep();
// What was due is delayed by the length of the sleep. A thread's wait with a limit differs: on Windows below 6.2 its
// limit counts the time asleep, and one that has passed ends at once.
void WakeMachine();

// The power is gone: nothing of the machine's own is due any more.
void ForgetDue();
// From now on nothing of the machine runs, until a boot.
void SwitchOff();
bool IsOff();
bool IsMachineDown(); // off or asleep: it cannot notice what happens to it
void NoteBoot();      // it is on again, and what the start of the run found is history
bool HasBooted();     // since the start of the run, at which a user may be logged on
// The tick count restarts at this value.
void SetTickCount(std::uint64_t tickMs);

Thread* CurrentThread(); // null in the scheduler's own context
std::vector<Thread*> AllThreads();

// Makes a thread of `process`; it starts when resumed. The entry's result is the exit code.
Thread* CreateThreadOf(Process* process, std::function<simwin::DWORD()> entry, std::size_t stackBytes = 0);
void ResumeThreadOf(Thread* thread);
// Ends it wherever it is. If it is the running one this does not return.
void EndThread(Thread* thread, simwin::DWORD exitCode);

// Blocks the running thread until Wake or until `timeoutMs` of virtual time have passed (INFINITE: no limit).
// `what` names what it waits for and outlives the wait; with `queue` it is at the end of that line while it waits.
// Returns: the value from Wake, or WAIT_TIMEOUT.
simwin::DWORD Block(WaitKind kind, const char* what, std::uint64_t timeoutMs, WaitQueue* queue = nullptr);
// Ends the wait of a blocked thread; it runs when its turn comes. Removes it from its line.
void Wake(Thread* thread, simwin::DWORD result);
// Yields once; returns at the same virtual time.
void Yield();
// Sleeps in virtual time.
void SleepMs(std::uint64_t ms);
inline constexpr std::uint64_t NoLimit = 0xFFFFFFFF;

// A number below `bound` from the seed; 0 without a seed.
std::uint64_t Chance(std::uint64_t bound);
bool IsSeeded();

// Rooms with open requests (a control, a notification, a pending service state) report them at the end: a text for each
// that will never be answered, empty for none. Called when nothing is runnable and nothing is due.
void AddEndCheck(std::function<std::string()> check);

struct RunLimits {
    std::uint64_t untilMs = ~0ull;
};
// Runs until nothing is runnable and nothing is due, or until the limit. Returns at the first verdict.
RunOutcome RunMachine(const RunLimits& limits);

// Nothing is runnable and nothing of the machine's own is due: everything that began has settled. Outside events and
// expectations may still be to come. Never while it sleeps. Call it in the scheduler's context.
bool IsAtRest();

// True once a verdict has been reached: clean-up afterwards raises no second one.
bool IsRunStopped();

// Who waits for what, a line for each thread that is not ended.
std::string WhoWaits();

struct SchedulerCounts {
    std::uint64_t switches = 0, threadsStarted = 0, callsSinceTimeMoved = 0;
};
SchedulerCounts& Counts();
inline constexpr std::uint64_t LivelockCalls = 10'000'000;

RoomPtr MakeScheduler();

} // namespace machine
