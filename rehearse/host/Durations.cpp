#include "rehearse/host/Durations.h"

#include <fmt/format.h>

#include <charconv>

namespace rehearse {

namespace {
struct Unit {
    std::string_view name;
    std::uint64_t ms;
};
} // namespace
constexpr Unit Units[] = {
    {"ms", 1}, {"s", MsPerSecond}, {"m", MsPerMinute}, {"h", MsPerHour}, {"d", MsPerDay},
};

std::optional<std::uint64_t> ParseDuration(std::string_view text) {
    std::uint64_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    for (const Unit& unit : Units) {
        if (text != unit.name) {
            continue;
        }
        if (count > LongestDurationMs / unit.ms) {
            return std::nullopt;
        }
        return count * unit.ms;
    }
    return std::nullopt;
}

std::string TimeText(std::uint64_t ms) {
    return fmt::format("{}.{:03} s", ms / MsPerSecond, ms % MsPerSecond);
}

} // namespace rehearse
