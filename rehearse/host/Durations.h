// Durations as a description and the command line write them: "250ms", "10s", "2m", "1h", "1d". Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rehearse {

// Milliseconds of a whole number followed by a unit; nothing for any other text, or above ten years.
std::optional<std::uint64_t> ParseDuration(std::string_view text);

// A time of the timeline: "0.000 s", "12.350 s".
std::string TimeText(std::uint64_t ms);

inline constexpr std::uint64_t MsPerSecond = 1000, MsPerMinute = 60 * MsPerSecond, MsPerHour = 60 * MsPerMinute,
                               MsPerDay = 24 * MsPerHour;
inline constexpr std::uint64_t LongestDurationMs = 3653 * MsPerDay;

} // namespace rehearse
