// A line on the terminal while a run takes longer than a second of the host's time: the one use of the host's clock.
#pragma once

#include <string>

namespace rehearse {

class Progress {
public:
    // Shows nothing unless standard error is a terminal.
    explicit Progress(const std::string& what);
    ~Progress(); // takes the line away
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    bool m_isOn = false;
};

} // namespace rehearse
