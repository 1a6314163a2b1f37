#include "rehearse/html/Axis.h"

#include <algorithm>
#include <cmath>

namespace rehearse::html {

static constexpr double ShortMs = 20;       // below it a gap counts as it is, above it by its logarithm
static constexpr double FirstDistance = 14; // of two ticks' texts, in percent, unmagnified
static constexpr unsigned TickLevels = 4;
static constexpr std::uint64_t AfterEndMs = 100; // or what is so at the very end would have no width

Axis::Axis(std::vector<std::uint64_t> times, std::uint64_t endMs) : m_times(std::move(times)) {
    m_times.push_back(0);
    m_times.push_back(endMs);
    m_times.push_back(endMs + AfterEndMs);
    std::sort(m_times.begin(), m_times.end());
    m_times.erase(std::unique(m_times.begin(), m_times.end()), m_times.end());
    double place = 0;
    for (std::size_t i = 0; i < m_times.size(); ++i) {
        if (i > 0) {
            place += std::log2(1 + static_cast<double>(m_times[i] - m_times[i - 1]) / ShortMs);
        }
        m_places.push_back(place);
    }
    for (double& one : m_places) {
        one = place > 0 ? one * 100 / place : 0;
    }
}

double Axis::At(std::uint64_t ms) const {
    const auto next = std::lower_bound(m_times.begin(), m_times.end(), ms);
    if (next == m_times.end()) {
        return 100;
    }
    const auto i = static_cast<std::size_t>(next - m_times.begin());
    if (*next == ms || i == 0) {
        return m_places[i];
    }
    const double share = static_cast<double>(ms - m_times[i - 1]) / static_cast<double>(*next - m_times[i - 1]);
    return m_places[i - 1] + share * (m_places[i] - m_places[i - 1]);
}

std::vector<Tick> Axis::Ticks() const {
    std::vector<Tick> ticks;
    double distance = FirstDistance;
    for (unsigned level = 0; level < TickLevels; ++level, distance /= 2) {
        for (std::size_t i = 0; i < m_times.size(); ++i) {
            const bool isFree =
                i + 1 < m_times.size() && m_places[i] <= 100 - distance * 0.6 && // its text would hang over the end
                std::all_of(ticks.begin(), ticks.end(),
                            [&](const Tick& tick) { return std::abs(At(tick.atMs) - m_places[i]) >= distance; });
            if (isFree) {
                ticks.push_back({m_times[i], level});
            }
        }
    }
    std::sort(ticks.begin(), ticks.end(), [](const Tick& a, const Tick& b) { return a.atMs < b.atMs; });
    return ticks;
}

} // namespace rehearse::html
