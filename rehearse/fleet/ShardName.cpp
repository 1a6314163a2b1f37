#include "rehearse/fleet/ShardName.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace rehearse::fleet {

static constexpr unsigned MostShards = 100'000;

[[noreturn]] static void Refuse(const std::string& what) {
    throw std::runtime_error("--shard: " + what);
}

static std::optional<unsigned> NumberOf(std::string_view text) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

static std::optional<unsigned> Variable(const char* name) {
    const char* text = std::getenv(name);
    if (!text) {
        return std::nullopt;
    }
    const std::optional<unsigned> number = NumberOf(text);
    if (!number) {
        Refuse(fmt::format("{} is no number: '{}'", name, text));
    }
    return number;
}

// The task of a job array, counted from 0.
static std::optional<unsigned> TaskOfSurroundings() {
    if (const auto task = Variable("SLURM_ARRAY_TASK_ID")) {
        const unsigned first = Variable("SLURM_ARRAY_TASK_MIN").value_or(0);
        const unsigned step = std::max(1U, Variable("SLURM_ARRAY_TASK_STEP").value_or(1));
        if (*task < first) {
            Refuse("SLURM_ARRAY_TASK_ID is below SLURM_ARRAY_TASK_MIN");
        }
        return (*task - first) / step;
    }
    return Variable("JOB_COMPLETION_INDEX");
}

static Shard Checked(unsigned index, unsigned count) {
    if (count == 0 || count > MostShards || index >= count) {
        Refuse(
            fmt::format("{} of {} is no shard: they count from 0, and there are at most {}", index, count, MostShards));
    }
    return {index, count, false};
}

Shard ShardOf(const std::string& text) {
    const std::size_t slash = text.find('/');
    if (text.empty()) {
        const std::optional<unsigned> task = TaskOfSurroundings();
        const std::optional<unsigned> count = Variable("SLURM_ARRAY_TASK_COUNT");
        if (task && !count) {
            Refuse("this is a task of an array, but of how many? Say it with --shard /N, or 0/1 for the whole fleet");
        }
        if (!task) {
            return {};
        }
        Shard shard = Checked(*task, *count);
        shard.isGuessed = true;
        return shard;
    }
    const std::optional<unsigned> count = slash == std::string::npos ? std::nullopt : NumberOf(text.substr(slash + 1));
    std::optional<unsigned> index;
    if (count && slash > 0) {
        index = NumberOf(text.substr(0, slash));
    } else if (count) {
        index = TaskOfSurroundings();
        if (!index) {
            Refuse("neither SLURM_ARRAY_TASK_ID nor JOB_COMPLETION_INDEX says which task this is");
        }
    }
    if (!index) {
        Refuse(fmt::format("'{}' must be I/N, such as 0/10 for the first of ten", text));
    }
    return Checked(*index, *count);
}

} // namespace rehearse::fleet
