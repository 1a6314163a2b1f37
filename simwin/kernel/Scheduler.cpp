#include "simwin/kernel/Scheduler.h"

#include "simwin/kernel/Image.h"
#include "simwin/kernel/Interrupt.h"
#include "simwin/kernel/Locks.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"

#include <algorithm>
#include <csignal>
#include <map>
#include <set>
#include <unordered_map>

#include <fmt/format.h>

namespace machine {

constexpr std::size_t DefaultStackBytes = 512 * 1024;

namespace {
struct DueKey {
    std::uint64_t atMs;
    Due due;
    DueId id; // counted up: within one instant and class, first come, first served
    auto operator<=>(const DueKey&) const = default;
};

struct Scheduler {
    std::uint64_t nowMs = 0;
    std::uint64_t uptimeMs = 0;
    std::uint64_t random = 0; // the state of the seed's generator
    bool seeded = false;
    Thread* current = nullptr;
    std::deque<Thread*> ready;
    std::vector<Ref<Thread>> threads; // that have not ended, in the order of their start
    std::vector<Ref<Thread>> ended;   // whose stacks are still to be released
    std::map<DueKey, std::function<void()>> due;
    std::map<DueKey, std::function<void()>> frozen; // the machine's own, while it sleeps
    bool asleep = false;
    bool isOff = false, hasBooted = false;
    std::uint64_t asleepSinceMs = 0;
    std::unordered_map<DueId, DueKey> dueById;
    DueId nextDue = 1;
    simwin::DWORD nextThreadId = 1000;
    std::vector<std::function<std::string()>> endChecks;
    RunOutcome outcome;
    bool stopped = false;
    SchedulerCounts counts;
};
} // namespace
static Scheduler* g_scheduler;

static void ReapEnded() {
    while (!g_scheduler->ended.empty()) {
        const Ref<Thread> thread = std::move(g_scheduler->ended.back());
        g_scheduler->ended.pop_back();
        thread->stack.reset();
    }
}

static void EndScheduler() {
    ReapEnded();
    for (const Ref<Thread>& abandoned : g_scheduler->threads) {
        abandoned->stack.reset(); // the object may outlive the scheduler, and with it all stacks
    }
    FreeStacks();
}

RoomPtr MakeScheduler() {
    RoomPtr room = MakeRoom(g_scheduler, EndScheduler);
    const Setup& setup = TheSetup();
    g_scheduler->uptimeMs = setup.uptimeMs;
    g_scheduler->seeded = setup.seed.has_value();
    g_scheduler->random = setup.seed.value_or(0);
    return room;
}

// SplitMix64: small, and the same on every host.
static std::uint64_t NextRandom() {
    std::uint64_t z = g_scheduler->random += 0x9E3779B97F4A7C15ull;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ z >> 27) * 0x94D049BB133111EBull;
    return z ^ z >> 31;
}

static void LeaveQueue(Thread* thread) {
    if (thread->waitQueue) {
        std::erase(*thread->waitQueue, thread);
    }
    thread->waitQueue = nullptr;
    if (thread->waitDue) {
        CancelDue(thread->waitDue);
    }
    thread->waitDue = 0;
    thread->waitHold = {};
}

static void MakeReady(Thread* thread) {
    thread->state = ThreadState::Ready;
    g_scheduler->ready.push_back(thread);
}

// The scheduler lets go of a thread only after it has left its stack: it may be the running one.
static void KeepUntilReaped(const Thread* thread) {
    auto& threads = g_scheduler->threads;
    const auto found =
        std::find_if(threads.begin(), threads.end(), [&](const auto& one) { return one.Get() == thread; });
    g_scheduler->ended.push_back(std::move(*found));
    threads.erase(found);
}

// Removes a thread from all of the scheduler's lists; its stack is released once it no longer runs.
static void Retire(Thread* thread, simwin::DWORD exitCode) {
    LeaveQueue(thread);
    if (thread->state == ThreadState::Ready) {
        std::erase(g_scheduler->ready, thread);
    }
    thread->state = ThreadState::Ended;
    thread->exitCode = exitCode;
    thread->impersonated = {};
    KeepUntilReaped(thread);
    std::erase(thread->process->threads, thread);
    thread->autoReset = false;
    thread->Signal();
}

[[noreturn]] static void ThreadMain(Thread* thread) {
    const simwin::DWORD exitCode = thread->entry();
    EndThread(thread, exitCode);
    StopRun(Verdict::BrokenRule, "a thread came back from its end");
}

static void RunThread(Thread* thread) {
    g_scheduler->current = thread;
    thread->state = ThreadState::Running;
    ++g_scheduler->counts.switches;
    EnterImage(thread->process);
    SwitchToFiber(thread, ThreadMain);
    g_scheduler->current = nullptr;
    if (!g_scheduler->ended.empty()) {
        ReapEnded();
    }
}

static void RunNextReady() {
    auto& ready = g_scheduler->ready;
    std::size_t pick = 0;
    if (g_scheduler->seeded && ready.size() > 1) {
        pick = static_cast<std::size_t>(NextRandom() % ready.size());
    }
    Thread* thread = ready[pick];
    ready.erase(ready.begin() + static_cast<std::ptrdiff_t>(pick));
    RunThread(thread);
}

// Runs the first thing of at most this class that is due now. False if there is none.
static bool RunDue(Due last) {
    auto& due = g_scheduler->due;
    if (due.empty()) {
        return false;
    }
    const auto first = due.begin();
    if (first->first.atMs > g_scheduler->nowMs || first->first.due > last) {
        return false;
    }
    const std::function<void()> action = std::move(first->second);
    g_scheduler->dueById.erase(first->first.id);
    due.erase(first);
    action();
    return true;
}

// What can never happen when nothing is runnable and nothing is due; empty if all waiting threads are idle.
static std::string NeverComes() {
    std::string text;
    for (const auto& thread : g_scheduler->threads) {
        if (thread->state == ThreadState::Waiting &&
            (thread->waitKind == WaitKind::CriticalSection || thread->waitKind == WaitKind::Machine ||
             thread->waitKind == WaitKind::Answer)) {
            text += fmt::format("thread {} waits forever for {}\n", thread->id, thread->waitWhat);
        }
    }
    for (const auto& check : g_scheduler->endChecks) {
        if (const std::string found = check(); !found.empty()) {
            text += found + "\n";
        }
    }
    return text;
}

static RunOutcome EndOfRun() {
    if (g_scheduler->asleep) {
        return {}; // it would continue if something woke it
    }
    if (const std::string never = NeverComes(); !never.empty()) {
        return {Verdict::Deadlock, never + WhoWaits()};
    }
    return {};
}

static void AdvanceTo(std::uint64_t atMs) {
    g_scheduler->nowMs = atMs;
    g_scheduler->counts.callsSinceTimeMoved = 0;
}

static volatile std::sig_atomic_t g_isInterrupted;

static RunOutcome RunLoop(const RunLimits& limits) {
    Scheduler& s = *g_scheduler;
    while (!s.stopped) {
        if (g_isInterrupted) {
            return {};
        }
        if (RunDue(Due::Outside)) {
            continue;
        }
        if (!s.asleep && !s.ready.empty()) {
            RunNextReady();
            continue;
        }
        if (RunDue(Due::Expectation)) {
            continue;
        }
        if (s.due.empty()) {
            return EndOfRun();
        }
        const std::uint64_t next = s.due.begin()->first.atMs;
        if (next > limits.untilMs) {
            AdvanceTo(std::max(s.nowMs, limits.untilMs));
            return {};
        }
        AdvanceTo(next);
    }
    return s.outcome;
}

void InterruptRun() noexcept {
    g_isInterrupted = 1;
}

bool WasRunInterrupted() {
    return g_isInterrupted != 0;
}

Thread::~Thread() = default;

std::uint64_t Now() {
    return g_scheduler->nowMs;
}

simwin::DWORD TickCount() {
    return static_cast<simwin::DWORD>(g_scheduler->uptimeMs + g_scheduler->nowMs);
}

DueId At(std::uint64_t atMs, Due due, std::function<void()> action) {
    Scheduler& s = *g_scheduler;
    DueKey key = {std::max(atMs, s.nowMs), due, s.nextDue++};
    const bool isFrozen = s.asleep && due == Due::Machine;
    if (isFrozen) {
        key.atMs -= s.nowMs - s.asleepSinceMs; // as if requested when the sleep began
    }
    (isFrozen ? s.frozen : s.due).emplace(key, std::move(action));
    s.dueById.emplace(key.id, key);
    return key.id;
}

void CancelDue(DueId id) {
    const auto found = g_scheduler->dueById.find(id);
    if (found == g_scheduler->dueById.end()) {
        return;
    }
    g_scheduler->due.erase(found->second);
    g_scheduler->frozen.erase(found->second);
    g_scheduler->dueById.erase(found);
}

void FallAsleep() {
    Scheduler& s = *g_scheduler;
    if (s.asleep) {
        return;
    }
    s.asleep = true;
    s.asleepSinceMs = s.nowMs;
    for (auto entry = s.due.begin(); entry != s.due.end();) {
        if (entry->first.due == Due::Machine) {
            s.frozen.insert(s.due.extract(entry++));
        } else {
            ++entry;
        }
    }
}

bool IsAsleep() {
    return g_scheduler->asleep;
}

void SwitchOff() {
    g_scheduler->isOff = true;
}

bool IsOff() {
    return g_scheduler->isOff;
}

bool IsMachineDown() {
    return IsOff() || IsAsleep();
}

void NoteBoot() {
    g_scheduler->isOff = false;
    g_scheduler->hasBooted = true;
}

bool HasBooted() {
    return g_scheduler->hasBooted;
}

void WakeMachine() {
    Scheduler& s = *g_scheduler;
    if (!s.asleep) {
        return;
    }
    s.asleep = false;
    std::set<DueId> limits; // of waits that count the time asleep
    constexpr unsigned FirstWithoutSleep = 0x0602;
    if (TheSetup().version.Packed() < FirstWithoutSleep) {
        for (const auto& thread : s.threads) {
            limits.insert(thread->waitDue);
        }
    }
    for (auto& [key, action] : s.frozen) {
        DueKey later = key;
        if (limits.contains(key.id)) {
            later.atMs = std::max(key.atMs, s.nowMs);
        } else {
            later.atMs += s.nowMs - s.asleepSinceMs;
        }
        s.due.emplace(later, std::move(action));
        s.dueById.insert_or_assign(later.id, later);
    }
    s.frozen.clear();
}

void ForgetDue() {
    Scheduler& s = *g_scheduler;
    s.frozen.clear();
    std::erase_if(s.due, [](const auto& entry) { return entry.first.due == Due::Machine; });
    std::erase_if(s.dueById, [](const auto& entry) { return entry.second.due == Due::Machine; });
}

void SetTickCount(std::uint64_t tickMs) {
    g_scheduler->uptimeMs = tickMs - g_scheduler->nowMs;
}

Thread* CurrentThread() {
    return g_scheduler ? g_scheduler->current : nullptr;
}

std::vector<Thread*> AllThreads() {
    std::vector<Thread*> all;
    for (const auto& thread : g_scheduler->threads) {
        all.push_back(thread.Get());
    }
    return all;
}

Thread* CreateThreadOf(Process* process, std::function<simwin::DWORD()> entry, std::size_t stackBytes) {
    auto* thread = new Thread;
    g_scheduler->threads.emplace_back(thread);
    thread->id = g_scheduler->nextThreadId += 4;
    thread->process = process;
    thread->entry = std::move(entry);
    thread->suspendCount = 1;
    thread->stack = TakeStack(std::max(stackBytes, DefaultStackBytes));
    process->threads.push_back(thread);
    ++g_scheduler->counts.threadsStarted;
    return thread;
}

void ResumeThreadOf(Thread* thread) {
    if (thread->suspendCount > 0 && --thread->suspendCount == 0 && thread->state == ThreadState::Suspended) {
        MakeReady(thread);
    }
}

void EndThread(Thread* thread, simwin::DWORD exitCode) {
    if (thread->state == ThreadState::Ended) {
        return;
    }
    if (thread->impersonated && thread == g_scheduler->current) {
        StopRun(Verdict::BrokenRule, "a thread ends while it impersonates");
    }
    Retire(thread, exitCode);
    if (thread == g_scheduler->current) {
        LeaveFiberForEver(thread);
    }
}

simwin::DWORD Block(WaitKind kind, const char* what, std::uint64_t timeoutMs, WaitQueue* queue) {
    Thread* thread = g_scheduler->current;
    if (!thread) {
        StopRun(Verdict::BrokenRule, fmt::format("the machine's own work would wait for {}", what));
    }
    thread->waitKind = kind;
    thread->waitWhat = what;
    thread->waitQueue = queue;
    thread->waitResult = simwin::WAIT_TIMEOUT;
    thread->state = ThreadState::Waiting;
    if (queue) {
        queue->push_back(thread);
    }
    thread->waitDue = timeoutMs == NoLimit ? 0 : At(g_scheduler->nowMs + timeoutMs, Due::Machine, [thread] {
        thread->waitDue = 0;
        Wake(thread, simwin::WAIT_TIMEOUT);
    });
    SwitchToScheduler(thread);
    thread->waitKind = WaitKind::None;
    return thread->waitResult;
}

void Wake(Thread* thread, simwin::DWORD result) {
    if (thread->state != ThreadState::Waiting) {
        return;
    }
    LeaveQueue(thread);
    thread->waitResult = result;
    MakeReady(thread);
}

void Yield() {
    Thread* thread = g_scheduler->current;
    MakeReady(thread);
    SwitchToScheduler(thread);
}

void SleepMs(std::uint64_t ms) {
    if (ms == 0) {
        Yield();
    } else {
        Block(WaitKind::Sleep, "the end of a sleep", ms);
    }
}

std::uint64_t Chance(std::uint64_t bound) {
    return g_scheduler->seeded ? NextRandom() % bound : 0;
}

bool IsSeeded() {
    return g_scheduler->seeded;
}

void AddEndCheck(std::function<std::string()> check) {
    g_scheduler->endChecks.push_back(std::move(check));
}

SchedulerCounts& Counts() {
    return g_scheduler->counts;
}

RunOutcome RunMachine(const RunLimits& limits) {
    try {
        return RunLoop(limits);
    } catch (const RunStopped&) {
        g_scheduler->current = nullptr;
        return g_scheduler->outcome;
    }
}

bool IsAtRest() {
    const auto isOfMachine = [](const auto& entry) { return entry.first.due == Due::Machine; };
    return !g_scheduler->asleep && g_scheduler->ready.empty() &&
           std::none_of(g_scheduler->due.begin(), g_scheduler->due.end(), isOfMachine);
}

bool IsRunStopped() {
    return g_scheduler->stopped;
}

std::string WhoWaits() {
    std::string text;
    for (const auto& thread : g_scheduler->threads) {
        const std::string& path = thread->process->imagePath;
        const std::string program = path.substr(path.rfind('\\') + 1);
        std::string doing = "can run";
        if (thread->state == ThreadState::Suspended) {
            doing = "is suspended";
        } else if (thread->state == ThreadState::Waiting) {
            doing = fmt::format("waits for {} in {}{}", thread->waitWhat, thread->call, DescribeHolder(thread.Get()));
        }
        text += fmt::format("  thread {} of {} (process {}) {}\n", thread->id, program, thread->process->id, doing);
    }
    return text;
}

std::string OutcomeLine(const RunOutcome& outcome) {
    static constexpr const char* Words[] = {"done", "crash", "deadlock", "livelock", "broken rule", "not modelled"};
    return fmt::format("{}: {}", Words[static_cast<unsigned>(outcome.verdict)], outcome.text);
}

// Moves the texts out of frames that are never unwound.
static std::string Joined(std::string& call, std::string& what) {
    std::string text = std::move(call);
    text += ": ";
    const std::string rest = std::move(what);
    return text + rest;
}

static void NoteVerdict(Verdict verdict, std::string text) {
    if (g_scheduler->stopped) {
        return;
    }
    if (const Thread* thread = g_scheduler->current) {
        text += fmt::format(" (thread {} in {}, at {} ms)", thread->id, thread->call, g_scheduler->nowMs);
    }
    g_scheduler->outcome = {verdict, std::move(text)};
    g_scheduler->stopped = true;
}

void StopRun(Verdict verdict, std::string text) {
    if (!g_scheduler) {
        throw RunStopped{};
    }
    NoteVerdict(verdict, std::move(text));
    if (Thread* thread = g_scheduler->current) {
        thread->state = ThreadState::Suspended; // never to run again
        LeaveFiberForEver(thread);
    }
    throw RunStopped{};
}

void NotModelled(std::string call, std::string what) {
    StopRun(Verdict::NotModelled, Joined(call, what));
}

void BrokenRule(std::string call, std::string what) {
    StopRun(Verdict::BrokenRule, Joined(call, what));
}

} // namespace machine
