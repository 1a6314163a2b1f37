#include "tests/storms/Runner.h"

#include "rehearse/description/Description.h"
#include "rehearse/description/DescriptionReader.h"
#include "rehearse/report/Report.h"
#include "rehearse/watch/LogOutput.h"
#include "tests/storms/Children.h"
#include "tests/storms/Trial.h"

#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/kernel/Call.h"
#include "simwin/power/Power.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace storm {

constexpr int LogLevel = 3, ExcuseFields = 3;
constexpr std::uint64_t CalmLimitMs = 30 * 60'000; // after the last event

static rehearse::TomlTable ReadPlan(const Plan& plan) {
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("quillmarch-storm-" + std::to_string(getpid()) + ".toml");
    std::ofstream(file, std::ios::binary) << Description(plan);
    const rehearse::TomlTable record = rehearse::ReadDescription(file.string());
    std::filesystem::remove(file);
    return record;
}

static Counts CountsOf(const Plan& plan, const Judge& judge) {
    std::uint64_t ports = 0, swapped = 0, failed = 0, slow = 0;
    for (const Device& device : plan.devices) {
        ports += device.isPort;
    }
    for (const machine::DeviceRestart& restart : machine::DeviceRestarts()) {
        swapped += restart.means == "remove-and-setup";
    }
    for (const machine::Fault& fault : machine::Faults()) {
        (fault.error ? failed : slow) += fault.acted;
    }
    const auto& power = machine::CountsOfPower();
    return {plan.events.size(),
            judge.Looks(),
            ports,
            machine::DeviceRestarts().size(),
            swapped,
            failed,
            slow,
            power.sleeps,
            power.boots,
            power.fastStartups};
}

static std::string ResultText(const RunResult& result) {
    std::string text = fmt::format("#counts {} {}\n", fmt::join(result.counts, " "), result.digest);
    for (const auto& [reason, uses] : result.excuses) {
        text += fmt::format("#excuse {} {} {}\n", std::find(std::begin(Excuses), std::end(Excuses), reason) - Excuses,
                            uses.all, uses.alone);
    }
    return text + EndOf(result.violations);
}

static RunResult ParseResult(const std::string& text, int status) {
    RunResult result;
    result.violations = ReadViolations(text, status, [&](const char* line) {
        std::size_t excuse = 0;
        Uses uses;
        if (std::sscanf(line, "#excuse %zu %u %u", &excuse, &uses.all, &uses.alone) == ExcuseFields) {
            result.excuses[Excuses[excuse]] = uses;
            return true;
        }
        std::istringstream words(line);
        std::string first;
        words >> first;
        for (std::uint64_t& count : result.counts) {
            words >> count;
        }
        words >> result.digest;
        return first == "#counts" && !words.fail();
    });
    return result;
}

// Takes parts out of a list as long as the rest still fails: halves first, single ones last.
template<typename List, typename Fails>
static void ShrinkList(List& list, const Fails& fails) {
    for (std::size_t part = std::max<std::size_t>(list.size() / 2, 1); !list.empty(); part /= 2) {
        for (std::size_t at = 0; at < list.size();) {
            const List whole = list;
            const auto first = list.begin() + static_cast<std::ptrdiff_t>(at);
            list.erase(first, first + static_cast<std::ptrdiff_t>(std::min(part, list.size() - at)));
            if (!fails()) {
                list = whole;
                at += part;
            }
        }
        if (part <= 1) {
            return;
        }
    }
}

static bool HasChildren(const Plan& plan, std::size_t unit) {
    return std::any_of(plan.devices.begin(), plan.devices.end(), [&](const Device& device) {
        return device.unit != unit && std::any_of(plan.devices.begin(), plan.devices.end(), [&](const Device& parent) {
                   return parent.unit == unit && parent.id == device.parent;
               });
    });
}

static Plan WithoutUnit(const Plan& plan, std::size_t unit) {
    Plan smaller = plan;
    const int number = static_cast<int>(unit);
    std::erase_if(smaller.devices, [&](const Device& device) { return device.unit == unit; });
    std::erase_if(smaller.events, [&](const Event& event) { return event.unit == number; });
    smaller.units[unit].clear();
    return smaller;
}

std::uint64_t DigestOf(const std::string& text) {
    std::uint64_t digest = 14695981039346656037ull; // FNV-1a
    for (const char c : text) {
        digest = (digest ^ static_cast<unsigned char>(c)) * 1099511628211ull;
    }
    return digest;
}

RunResult Runner::RunHere(const Plan& plan) const {
    rehearse::Options options;
    options.seed = plan.seed;
    const rehearse::TomlTable description = ReadPlan(plan);

    Trial trial(description);
    Judge judge(plan, trial.stage);
    RunResult result;
    trial.Run(
        options, CalmLimitMs, judge,
        [&] {
            judge.Watch();
            rehearse::ForceLog(LogLevel);
            judge.Schedule();
        },
        [&] {
            judge.AtEnd();
            result.counts = CountsOf(plan, judge);
            if (plan.seed % TwiceEach == 0) {
                result.digest = DigestOf(
                    rehearse::MakeReport({"", plan.seed, trial.stage.product.Get()}, trial.timeline, trial.balloons, {})
                        .dump() +
                    rehearse::LogText());
            }
        },
        [&] { judge.AfterStop(trial.leaks.HandlesOf(trial.stage.product.Get())); });
    result.violations = judge.Violations();
    result.excuses = judge.ExcuseUses();
    return result;
}

void Runner::RunAll(std::size_t count, const std::function<Plan(std::size_t)>& plan,
                    const std::function<void(std::size_t, const RunResult&)>& done) const {
    RunInChildren(
        count, m_jobs, [&](std::size_t place) { return ResultText(RunHere(plan(place))); },
        [&](std::size_t place, const std::string& text, int status) { done(place, ParseResult(text, status)); });
}

RunResult Runner::Run(const Plan& plan) const {
    RunResult result;
    RunAll(
        1, [&](std::size_t) { return plan; }, [&](std::size_t, const RunResult& r) { result = r; });
    return result;
}

bool Runner::StillFails(const Plan& plan, const std::string& what) const {
    const std::vector<Violation> violations = Run(plan).violations;
    return std::any_of(violations.begin(), violations.end(), [&](const Violation& v) { return v.what == what; });
}

Plan Runner::Shrink(const Plan& plan, const std::string& what) const {
    Plan small = plan;
    const auto fails = [&] { return StillFails(small, what); };
    ShrinkList(small.events, fails);
    ShrinkList(small.faults, fails);
    for (std::size_t unit = small.units.size(); unit-- > 1;) {
        if (small.units[unit].empty() || HasChildren(small, unit)) {
            continue;
        }
        const Plan smaller = WithoutUnit(small, unit);
        if (StillFails(smaller, what)) {
            small = smaller;
        }
    }
    for (Configuration& configuration : small.configurations) {
        ShrinkList(configuration.sections, fails);
        if (&configuration != &small.configurations.back()) { // which says that a resume checks
            ShrinkList(configuration.settings, fails);
        }
    }
    ShrinkList(small.dosNames, fails);
    ShrinkList(small.events, fails);
    return small;
}

} // namespace storm
