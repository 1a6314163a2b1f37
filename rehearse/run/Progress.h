// A line on the terminal while a run takes longer than a second of the host's time: the one use of the host's clock.
#pragma once

#include <cstdint>
#include <string>

namespace rehearse {

class Progress {
public:
    // Shows nothing unless standard error is a terminal. lastMs: virtual time of the last event, by which the rest is
    // estimated; 0: nothing to go by.
    Progress(const std::string& what, std::uint64_t lastMs);
    ~Progress(); // removes the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    bool m_isOn = false;
};

} // namespace rehearse
