// Which decisions the product made and why is only in its log, at a level that few machines have on, and a more
// detailed log would change the run: more calls, other bytes in the file. So the same description runs a second time,
// in a process of its own and parallel to the first run, with the product's debugger output on; the reported run is not
// affected. Both must end alike, or the observation is discarded.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/host/Options.h"
#include "rehearse/run/SecondProcess.h"
#include "rehearse/watch/CheckLog.h"
#include "rehearse/watch/LogOutput.h"

#include <string>

namespace rehearse {

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

// The present state of the machine as one text: ports, their restarts, the numbers taken.
std::string EndOfMachine();

} // namespace rehearse
