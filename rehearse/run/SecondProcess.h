// The process of a second run. On Linux it is a copy of this one; on Windows, which cannot copy a process, this program
// starts again with the option --observe.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/host/Options.h"

#include <memory>
#include <string>

namespace rehearse {

class SecondProcess {
public:
    // What is run, and what Output returns of it.
    using Work = std::string (*)(TomlTable description, const Options& options);

    // Starts it; without it Output is empty.
    SecondProcess(const TomlTable& description, const Options& options, Work work);
    ~SecondProcess(); // waits for its end
    SecondProcess(const SecondProcess&) = delete;
    SecondProcess& operator=(const SecondProcess&) = delete;

    void Abandon();       // ends it
    std::string Output(); // waits for all of it; once

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace rehearse
