#include "rehearse/run/SecondProcess.h"

#include "rehearse/host/ChildProcesses.h"

#include <fmt/format.h>

#include <limits>
#include <optional>
#include <stdexcept>

namespace rehearse {

constexpr std::uint64_t NoLimitMs = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t WaitMs = 60'000;

struct SecondProcess::State {
    Processes processes{NoLimitMs};
};

// Of the same run, without what it writes: this program reads them again.
static std::vector<std::string> ArgumentsOf(const Options& options) {
    std::vector<std::string> line = {"--observe", fmt::format("--log-level={}", options.logLevel)};
    const auto add = [&line](const char* name, const std::optional<std::string>& value) {
        if (value) {
            line.push_back(fmt::format("{}={}", name, *value));
        }
    };
    add("--ini", options.ini);
    add("--html", options.html);
    add("--log", options.log);
    for (const std::string& story : options.stories) {
        add("--story", story);
    }
    if (options.seed) {
        add("--seed", fmt::format("{}", *options.seed));
    }
    if (options.untilMs) {
        add("--until", fmt::format("{}ms", *options.untilMs));
    }
    line.emplace_back("--");
    line.push_back(options.description);
    line.insert(line.end(), options.moreExports.begin(), options.moreExports.end());
    return line;
}

SecondProcess::SecondProcess(const TomlTable&, const Options& options, Work) : m_state(std::make_unique<State>()) {
    try {
        m_state->processes.Start(0, ArgumentsOf(options));
    } catch (const std::runtime_error&) { // nothing is observed
    }
}

SecondProcess::~SecondProcess() = default;

void SecondProcess::Abandon() {
    m_state = std::make_unique<State>(); // the end of the old one ends the process
}

std::string SecondProcess::Output() {
    while (m_state->processes.Running() != 0) {
        if (const std::optional<Ended> ended = m_state->processes.Wait(WaitMs)) {
            return ended->output;
        }
    }
    return "";
}

} // namespace rehearse
