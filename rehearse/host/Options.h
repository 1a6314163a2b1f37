// What a person asks of the tool on its command line, and what its exit codes mean. Plain data.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace rehearse {

struct Verdict;

// How a run ended, while its machine still exists. Texts are UTF-8.
struct Ending {
    std::string title;                 // of the description
    std::string stopped;               // "crash: ...", what the run was stopped by; "" it ended in good order
    std::vector<std::string> failures; // expectations that were not met, if they are judged
    const Verdict& verdict;
};

struct Options {
    std::string description;              // a description, a folder of a capture, or an export
    std::vector<std::string> moreExports; // further exports of the same machine
    std::string within;                   // the fleet's folder: the machine may name no files outside; "" any
    std::optional<std::string> ini, json, log, html; // host files; "-" is standard output
    std::optional<std::string> rules;                // a configuration to be checked by itself
    std::optional<std::string> compare;              // an older configuration, to be run beside the one in question
    std::vector<std::string> stories;                // in place of the described ones; empty: as described
    std::string pictures;                            // host folder; "" none
    int logLevel = 3;
    std::optional<std::uint64_t> seed, untilMs;
    bool check = false, quiet = false, explain = false, devices = false, tree = false;
    bool isGerman = false; // the page for html
    bool strict = false;   // a port without a name or a wanted number, or a rule that never matched, is a failure
    std::function<void(const Ending&)> onEnd; // called once, with what a second run observed
};

enum ExitCode { ExitDone = 0, ExitNotMet = 1, ExitWrongInput = 2, ExitStopped = 3 };

} // namespace rehearse
