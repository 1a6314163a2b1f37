// Which decisions the product made and why is only in its log, at a level that few machines have on, and a more
// detailed log would change the run: more calls, other bytes in the file. So the same description runs a second time,
// in a process of its own and parallel to the first run, with the product's debugger output on; the reported run is not
// affected. Both must end alike, or the observation is discarded.
#pragma once

#include "rehearse/CheckLog.h"
#include "rehearse/Description.h"
#include "rehearse/Run.h"
#include "rehearse/SecondProcess.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace rehearse {

// The log of the second run, for who wants to read what stood around an event.
struct ObservedLog {
    std::string text;                     // UTF-8, a line for each message: time, thread, message
    std::vector<std::size_t> linesBefore; // each entry of the second run's timeline: how many lines precede it
    bool isCut = false;                   // it was longer than MostLogBytes: the rest is not there
};
inline constexpr std::size_t MostLogBytes = 10'000'000;

class Observer {
public:
    // Starts the second run. Called before the machine is created.
    Observer(const TomlTable& description, const Options& options);

    // Waits for the second run. ended: how this run ended (EndOfMachine). Empty if the other one ended differently.
    LogFacts Take(const std::string& ended);
    void Abandon(); // ends the second run
    // After Take. Empty unless the options want a page.
    const ObservedLog& Log() const { return m_log; }

private:
    SecondProcess m_process;
    ObservedLog m_log;
};

// The second run alone, its result to standard output: for an observer that must start this program to have it.
int Observe(const Options& options);

// Feeds a log's messages from the product's debugger output, which is forced on. Called once for a machine. also: gets
// each message after that.
void WatchLog(CheckLog& log, std::function<void(std::uint32_t thread, std::string_view message)> also = {});

// The messages of the product's debugger output, without their prefix; context: the thread. Forces nothing. Called once
// for a machine.
void WatchMessages(std::function<void(std::uint64_t context, std::string_view message)> watcher);

// The present state of the machine as one text: ports, their restarts, the numbers taken.
std::string EndOfMachine();

} // namespace rehearse
