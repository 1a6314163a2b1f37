#include "rehearse/fleet/Member.h"

#include "rehearse/description/Description.h"
#include "rehearse/description/DescriptionReader.h"
#include "rehearse/fleet/Fingerprint.h"
#include "rehearse/host/Files.h"
#include "rehearse/report/Verdict.h"
#include "rehearse/rules/Compare.h"
#include "rehearse/run/Run.h"

#include "simwin/devices/tree/Catalogue.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string_view>
#include <utility>

namespace rehearse::fleet {

using Json = nlohmann::ordered_json;

static std::string Utf8(const std::string& text) {
    return machine::Utf8FromAnsi(text);
}

static PortResult ResultOfPort(const PortVerdict& port) {
    return {.device = Utf8(port.facts.device),
            .before = Utf8(port.nameBefore),
            .name = Utf8(port.facts.dosName),
            .rule = Utf8(port.section),
            .wanted = port.wanted,
            .shortfall = ShortfallName(port.shortfall),
            .states = port.states,
            .restarts = port.facts.restarts,
            .isPresent = port.facts.isPresent,
            .isKnown = machine::FindInCatalogue(port.facts.device) != nullptr};
}

static RuleResult ResultOfRule(const RuleVerdict& rule) {
    return {.rule = Utf8(rule.section),
            .wanted = rule.wanted,
            .hasTaken = !rule.took.empty(),
            .nearest = Utf8(rule.nearest),
            .failedKey = rule.failedKey,
            .portValue = Utf8(rule.portValue),
            .rowsMet = rule.rowsMet};
}

// Why a port has none of its numbers, as short as a list of thousands needs it.
static std::string FindingOf(const PortVerdict& port) {
    const std::string device = Utf8(port.facts.device);
    if (port.shortfall == Shortfall::NoName) {
        return device + " has no name";
    }
    return fmt::format("{} has {}, [{}] wants {}{}", device, Utf8(port.facts.dosName), Utf8(port.section),
                       NumbersText(port.wanted, "COM"), port.states.empty() ? "" : ": " + port.states.front());
}

// The run that has just ended, while its machine still exists.
static void Take(const Ending& ending, MachineResult& result) {
    result.title = ending.title;
    for (const PortVerdict& port : ending.verdict.ports) {
        result.ports.push_back(ResultOfPort(port));
        if (port.shortfall != Shortfall::None) {
            result.findings.push_back(FindingOf(port));
        }
    }
    for (const RuleVerdict& rule : ending.verdict.rules) {
        result.rules.push_back(ResultOfRule(rule));
    }
    if (!ending.stopped.empty()) {
        result.why = ending.stopped.substr(0, ending.stopped.find('\n'));
        result.verdict = result.why.substr(0, result.why.find(':'));
        return;
    }
    result.sentence = ending.verdict.Sentence();
    if (!ending.verdict.isObserved) {
        result.findings.emplace_back("what the rules took could not be observed");
    }
    for (const std::string& failure : ending.failures) {
        result.findings.push_back("expectation not met: " + failure);
    }
    for (const TimelineEntry& danger : ending.verdict.dangers) {
        result.findings.push_back(Utf8(danger.what + (danger.device.empty() ? "" : " " + danger.device)));
    }
    result.verdict = !ending.verdict.dangers.empty() ? VerdictDanger
                     : result.findings.empty()       ? VerdictOk
                                                     : VerdictFindings;
}

static void AddChanges(const Options& options, MachineResult& result) {
    const Comparison comparison = CompareMachine(options);
    if (!comparison.stopped.empty()) {
        result.why = "with the older configuration: " + comparison.stopped.substr(0, comparison.stopped.find('\n'));
        result.verdict = comparison.stopped.substr(0, comparison.stopped.find(':'));
        return;
    }
    for (const PortChange& port : comparison.ports) {
        if (port.Differs()) {
            result.changes.push_back({Utf8(port.device), port.oldName, port.newName, port.oldRule, port.newRule,
                                      port.oldRestarts, port.newRestarts, port.IsTouched(), port.isNamed});
        }
    }
}

static void Print(const Json& line) {
    fmt::print("{}\n", line.dump(-1, ' ', false, Json::error_handler_t::replace));
    std::fflush(stdout); // if the machine is endless, what it has read is known
}

int RunMember(Options options) {
    MachineResult result;
    WatchHostFiles([](const std::string& file, const std::string* bytes) {
        Print({{"file", PathText(file)}, {"bytes", bytes ? FingerprintOf(*bytes) : ""}});
    });
    const std::optional<std::string> older = std::exchange(options.compare, std::nullopt);
    options.quiet = true;
    options.onEnd = [&](const Ending& ending) { Take(ending, result); };
    try {
        (void)Rehearse(options);
        result.report = options.html ? "there" : "";
        if (older && !result.HasFailed()) {
            options.compare = older;
            AddChanges(options, result);
        }
    } catch (const InputError& error) {
        result.why = error.what();
        const bool isOwnPage = options.html && result.why.starts_with(*options.html + ":"); // the disk is full
        result.verdict = isOwnPage ? VerdictLost : VerdictWrongInput;
    }
    Print(JsonOf(result));
    return ExitDone;
}

MemberOutput ReadMember(const std::string& output) {
    MemberOutput read;
    for (std::size_t start = 0; start < output.size();) {
        const std::size_t end = output.find('\n', start);
        if (end == std::string::npos) {
            break; // cut off
        }
        const Json line = Json::parse(output.substr(start, end - start), nullptr, false);
        start = end + 1;
        try {
            if (line.contains("file")) {
                read.inputs.emplace(line.at("file").get<std::string>(), line.at("bytes").get<std::string>());
            } else {
                read.result = ResultOf(line);
            }
        } catch (const Json::exception&) { // something else that ended up in the output
            continue;
        }
    }
    return read;
}

std::string FingerprintOfFile(const std::string& file) {
    constexpr std::size_t PartBytes = 1 << 16; // the tool itself is such a file, and may have many megabytes
    if (!IsFile(file)) {
        return ""; // a pipe would wait for a writer
    }
    std::ifstream stream(StreamPath(file), std::ios::binary);
    if (!stream) {
        return "";
    }
    Fingerprint fingerprint;
    std::string part(PartBytes, '\0');
    std::uint64_t size = 0;
    while (stream) {
        stream.read(part.data(), PartBytes);
        const auto count = static_cast<std::size_t>(stream.gcount());
        fingerprint.AddPart(std::string_view(part).substr(0, count));
        size += count;
    }
    fingerprint.AddEnd(size);
    return fingerprint.Text();
}

} // namespace rehearse::fleet
