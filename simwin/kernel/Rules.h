// How a run ends early: what the machine does not model, what breaks its rules, a crash, a deadlock, a livelock. The
// first of them is the run's verdict; the thread that caused it never runs again. Called from anywhere in the machine.
#pragma once

#include <string>

namespace machine {

enum class Verdict { Done, Crash, Deadlock, Livelock, BrokenRule, NotModelled };

struct RunOutcome {
    Verdict verdict = Verdict::Done;
    std::string text; // what happened, with the thread and the call that did it; empty for Done
};

// The last line of a run that did not end normally: "crash: ...", "deadlock: ...", "broken rule: ...".
std::string OutcomeLine(const RunOutcome& outcome);

// Ends the run; never returns. From a fiber the scheduler takes over, from the scheduler's own context RunStopped is
// thrown, which only the run loop catches.
// The texts are moved out, since the caller's frame is never unwound.
[[noreturn]] void StopRun(Verdict verdict, std::string text);

// A call, flag, class or structure that the machine does not model: what Windows would do is unknown.
[[noreturn]] void NotModelled(std::string call, std::string what);

// The product did what Windows forbids or leaves undefined (a lock not initialised, a heap block overrun).
[[noreturn]] void BrokenRule(std::string call, std::string what);

struct RunStopped {};

} // namespace machine
