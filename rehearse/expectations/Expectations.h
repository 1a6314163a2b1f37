// Expectations: each is validated before anything runs, judged at its time or at the end, and gives one line with the
// actual result when it is not met. In the scheduler's context or after the run.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/events/Events.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rehearse {

class Expectations {
public:
    explicit Expectations(Stage& stage) : m_stage(stage) {}

    // Throws InputError for an unknown device, a missing file, an invalid state.
    void Check() const;
    void Schedule(); // those with a time
    // Those of the end, and those whose time was not reached.
    void JudgeEnd();
    // A line for each that was not met, in the order of the file.
    std::vector<std::string> Failures() const;

    // The latest time that an expectation names; 0 if all are for the end.
    static std::uint64_t LastMs(const TomlTable& description);

private:
    void Judge(std::size_t index);
    Stage& m_stage;
    std::vector<std::optional<std::string>> m_results; // "" met; none: not judged yet
};

// Why one expectation is not met now; "" if it is met. Part of the class for the files that judge by subject.
using Wrongs = std::vector<std::string>;
// Whether a time matches the key: that time, or a pair with both ends included; true without the key.
bool IsAt(const TomlTable& expect, std::string_view key, std::uint64_t atMs);
void JudgeLog(const TomlTable& expect, Wrongs& wrongs);

} // namespace rehearse
