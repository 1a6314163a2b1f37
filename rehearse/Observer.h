// What the product decided and why stands in its log only at a level that few machines have on, and a log that is
// raised for us would change the run: more calls, other bytes in the file. So the same description runs a second time,
// in a process of its own and beside the first run, with the product's debugger output on; the run that is reported
// stays as it is. Both must end alike, or what was observed is not used.
#pragma once

#include "rehearse/CheckLog.h"
#include "rehearse/Description.h"
#include "rehearse/Run.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace rehearse {

class Observer {
public:
    // Starts the second run. Called before the machine is made.
    Observer(const Record& description, const Options& options);
    ~Observer();
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    // Waits for the second run. ended: how this run ended (EndOfMachine). Nothing is there if the other ended
    // otherwise.
    LogFacts Take(const std::string& ended);
    void Abandon(); // ends the second run

private:
    pid_t m_process = -1;
    int m_pipe = -1;
};

// Feeds a log's messages from the product's debugger output, which is forced on. Called once for a machine.
void WatchLog(CheckLog& log);

// The messages of the product's debugger output, without what stands in front of them; context: the thread. Forces
// nothing. Called once for a machine.
void WatchMessages(std::function<void(std::uint64_t context, std::string_view message)> watcher);

// How the machine stands now, as one text: ports, their restarts, the numbers taken.
std::string EndOfMachine();

} // namespace rehearse
