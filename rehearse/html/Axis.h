// Where a moment stands on the lanes' axis. Busy moments get room, quiet spells are shortened: a restart of half a
// second in a rehearsal of a day would be less than a pixel. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace rehearse::html {

struct Tick {
    std::uint64_t atMs;
    unsigned level; // 0: shown always; 1, 2, 3: from a magnification of 2, 4, 8 on
};

class Axis {
public:
    // times: at which something happens, in any order. The state at the end has some room after it.
    Axis(std::vector<std::uint64_t> times, std::uint64_t endMs);
    double At(std::uint64_t ms) const; // from 0 to 100
    std::vector<Tick> Ticks() const;   // by time

private:
    std::vector<std::uint64_t> m_times; // ascending, from 0 to the end
    std::vector<double> m_places;
};

} // namespace rehearse::html
