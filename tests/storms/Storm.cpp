#include "tests/storms/Storm.h"

#include "rehearse/Description.h"
#include "rehearse/DescriptionReader.h"
#include "rehearse/Leaks.h"
#include "rehearse/LogOutput.h"
#include "rehearse/MachineBuilder.h"
#include "rehearse/Report.h"
#include "rehearse/Timeline.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/devices/Devices.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Machine.h"
#include "simwin/kernel/Process.h"
#include "simwin/services/Services.h"

#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace storm {

namespace {

constexpr int LogLevel = 3;
constexpr std::uint64_t CalmLimitMs = 30 * 60'000; // behind the last event
constexpr std::uint64_t StopLimitMs = 60'000;

rehearse::Record ReadPlan(const Plan& plan) {
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("quillmarch-storm-" + std::to_string(getpid()) + ".toml");
    std::ofstream(file, std::ios::binary) << Description(plan);
    const rehearse::Record record = rehearse::ReadDescription(file.string());
    std::filesystem::remove(file);
    return record;
}

bool IsIn(const std::string& line, std::string_view text) {
    return line.find(text) != std::string::npos;
}

Counts CountsOf(const Plan& plan, const Judge& judge) {
    Counts counts;
    counts.events = static_cast<unsigned>(plan.events.size());
    counts.looks = judge.Looks();
    for (const Device& device : plan.devices)
        counts.ports += device.isPort;
    counts.restarts = static_cast<unsigned>(machine::DeviceRestarts().size());
    for (const std::string& line : rehearse::LogLines())
        counts.swaps += IsIn(line, "CComPorts::SwapPortNumbers(");
    for (const machine::Fault& fault : machine::Faults())
        counts.faults += static_cast<unsigned>(fault.acted);
    return counts;
}

} // namespace

Outcome RunStorm(const Plan& plan, const std::string& imageFile, const std::string& resourceFile) {
    rehearse::Options options;
    options.seed = plan.seed;
    options.imageFile = imageFile;
    options.resourceFile = resourceFile;
    const rehearse::Record description = ReadPlan(plan);

    rehearse::Timeline timeline;
    rehearse::Leaks leaks;
    rehearse::Stage stage{&description, &timeline};
    Judge judge(plan, stage);
    machine::CreateMachine(rehearse::SetupOf(description, options));
    machine::InstallCrashHandler();
    rehearse::FillMachine(description, options);
    timeline.Watch();
    judge.Watch();
    leaks.Watch();
    rehearse::ForceLog(LogLevel);
    rehearse::ScheduleEvents(stage);
    judge.Schedule();

    Outcome outcome;
    const auto judgeRun = [&judge](const machine::RunOutcome& run) {
        if (run.verdict != machine::Verdict::Done)
            judge.Complain(machine::OutcomeLine({run.verdict, ""}), run.text);
        return run.verdict == machine::Verdict::Done;
    };
    if (judgeRun(machine::RunMachine({rehearse::LastEventMs(description) + CalmLimitMs}))) {
        timeline.CatchUp();
        judge.AtEnd();
        outcome.counts = CountsOf(plan, judge);
        outcome.everything =
            rehearse::MakeReport({"", plan.seed, stage.product}, timeline).dump() + rehearse::LogText();
        if (machine::ServiceProcess(rehearse::ServiceName))
            machine::PostServiceControl(rehearse::ServiceName, simwin::SERVICE_CONTROL_STOP, 0, {});
        else if (stage.product && !stage.product->ended)
            machine::CloseWindowsOf(stage.product);
        if (judgeRun(machine::RunMachine({machine::Now() + StopLimitMs})))
            judge.AfterStop(leaks.HandlesOf(stage.product));
    }
    stage.hasEnded = true;
    timeline.Close();
    leaks.Close();
    outcome.violations = judge.Violations();
    machine::DestroyMachine();
    return outcome;
}

} // namespace storm
