#include "tests/storms/Storm.h"

#include "rehearse/Description.h"
#include "rehearse/DescriptionReader.h"
#include "rehearse/LogOutput.h"
#include "rehearse/Report.h"
#include "tests/storms/Trial.h"

#include "simwin/devices/Devices.h"
#include "simwin/kernel/Call.h"
#include "simwin/services/Power.h"

#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace storm {

namespace {

constexpr int LogLevel = 3;
constexpr std::uint64_t CalmLimitMs = 30 * 60'000; // after the last event

rehearse::Record ReadPlan(const Plan& plan) {
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("quillmarch-storm-" + std::to_string(getpid()) + ".toml");
    std::ofstream(file, std::ios::binary) << Description(plan);
    const rehearse::Record record = rehearse::ReadDescription(file.string());
    std::filesystem::remove(file);
    return record;
}

Counts CountsOf(const Plan& plan, const Judge& judge) {
    Counts counts;
    counts.events = static_cast<unsigned>(plan.events.size());
    counts.looks = judge.Looks();
    for (const Device& device : plan.devices)
        counts.ports += device.isPort;
    counts.restarts = static_cast<unsigned>(machine::DeviceRestarts().size());
    for (const machine::DeviceRestart& restart : machine::DeviceRestarts())
        counts.swapped += restart.means == "remove-and-setup";
    counts.sleeps = machine::CountsOfPower().sleeps;
    counts.boots = machine::CountsOfPower().boots;
    counts.fastStartups = machine::CountsOfPower().fastStartups;
    for (const machine::Fault& fault : machine::Faults())
        (fault.error ? counts.failed : counts.slow) += static_cast<unsigned>(fault.acted);
    return counts;
}

} // namespace

Outcome RunStorm(const Plan& plan, const std::string& imageFile, const std::string& resourceFile) {
    rehearse::Options options;
    options.seed = plan.seed;
    options.imageFile = imageFile;
    options.resourceFile = resourceFile;
    const rehearse::Record description = ReadPlan(plan);

    Trial trial(description);
    Judge judge(plan, trial.stage);
    Outcome outcome;
    trial.Run(
        options, CalmLimitMs, judge,
        [&] {
            judge.Watch();
            rehearse::ForceLog(LogLevel);
            judge.Schedule();
        },
        [&] {
            judge.AtEnd();
            outcome.counts = CountsOf(plan, judge);
            if (plan.seed % TwiceEach == 0)
                outcome.everything =
                    rehearse::MakeReport({"", plan.seed, trial.stage.product}, trial.timeline, trial.balloons, {})
                        .dump() +
                    rehearse::LogText();
        },
        [&] { judge.AfterStop(trial.leaks.HandlesOf(trial.stage.product)); });
    outcome.violations = judge.Violations();
    outcome.excuses = judge.ExcuseUses();
    return outcome;
}

} // namespace storm
