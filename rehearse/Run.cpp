#include "rehearse/Run.h"

#include "rehearse/Balloons.h"
#include "rehearse/Description.h"
#include "rehearse/DescriptionReader.h"
#include "rehearse/DevicesTable.h"
#include "rehearse/Durations.h"
#include "rehearse/Events.h"
#include "rehearse/Expectations.h"
#include "rehearse/Explanation.h"
#include "rehearse/Leaks.h"
#include "rehearse/LogOutput.h"
#include "rehearse/MachineBuilder.h"
#include "rehearse/OutputFile.h"
#include "rehearse/Pictures.h"
#include "rehearse/Progress.h"
#include "rehearse/Report.h"
#include "rehearse/Timeline.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Image.h"
#include "simwin/kernel/Machine.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/services/Services.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include <unistd.h>

namespace rehearse {

namespace {

constexpr std::uint64_t StopLimitMs = MsPerMinute; // what a stop behind the report may take

// The machine goes before what watches it, and what ends with it is no part of the run: also when the input turns out
// to be wrong while the machine is there already.
struct MachineLife {
    MachineLife(const machine::Setup& setup, Timeline& ofRun, Balloons& shown, Leaks& ofProduct)
        : timeline(ofRun), balloons(shown), leaks(ofProduct) {
        machine::CreateMachine(setup);
        machine::InstallCrashHandler();
    }
    ~MachineLife() {
        timeline.Close();
        balloons.Close();
        leaks.Close();
        machine::DestroyMachine();
    }
    MachineLife(const MachineLife&) = delete;
    MachineLife& operator=(const MachineLife&) = delete;

    Timeline& timeline;
    Balloons& balloons;
    Leaks& leaks;
};

std::uint64_t UntilMs(const Record& description, const Options& options) {
    if (options.untilMs)
        return *options.untilMs;
    const std::uint64_t last = std::max(LastEventMs(description) + MsPerHour, Expectations::LastMs(description));
    return description.MsOf("until", last);
}

// Stops what runs of the product, so that what it left open can be counted.
void StopProduct(const Stage& stage, const Leaks& leaks, nlohmann::ordered_json& report) {
    machine::Process* service = machine::ServiceProcess(ServiceName);
    machine::Process* process = service ? service : stage.product;
    if (!process)
        return;
    process->Retain();
    if (!process->ended) {
        machine::WakeMachine(); // the run may have ended in its sleep
        if (service)
            machine::PostServiceControl(ServiceName, simwin::SERVICE_CONTROL_STOP, 0, {});
        else
            machine::CloseWindowsOf(process);                      // so ends a debug run
        (void)machine::RunMachine({machine::Now() + StopLimitMs}); // the verdict of the run itself stands already
    }
    if (process->ended && !process->killed)
        SetLeaks(report, leaks.HandlesOf(process), process->leakedBytes);
    process->Release();
}

// The lines of a run that did not end in good order; the last one begins with what it was.
void TellOutcome(const machine::RunOutcome& outcome) {
    std::string line = machine::OutcomeLine(outcome);
    while (line.ends_with('\n'))
        line.pop_back();
    const std::size_t end = line.find('\n');
    if (end != std::string::npos)
        fmt::print(stderr, "{}\n", line.substr(end + 1));
    fmt::print(stderr, "{}\n", line.substr(0, end));
}

int Judge(const Expectations& expectations) {
    const std::vector<std::string> failures = expectations.Failures();
    for (const std::string& failure : failures)
        fmt::print(stderr, "{}\n", failure);
    return failures.empty() ? ExitDone : ExitNotMet;
}

} // namespace

int Rehearse(const Options& options) {
    const Record description = ReadDescription(options.description);
    const machine::Setup setup = SetupOf(description, options);
    if (FILE* image = std::fopen(options.imageFile.c_str(), "rb"))
        std::fclose(image);
    else
        throw InputError({options.imageFile, 1, 1}, "the product's shared object is not there");
    Output json(options.json), log(options.log);

    Pictures pictures(options.pictures);

    Timeline timeline;
    Balloons balloons;
    Leaks leaks;
    Stage stage{&description, &timeline, &balloons};
    Expectations expectations(stage);
    const MachineLife machine(setup, timeline, balloons, leaks);
    FillMachine(description, options);
    if (options.devices) {
        fmt::print("{}", DevicesTable());
        return ExitDone;
    }
    if (const std::string wrong = machine::PrepareImages(options.imageFile); !wrong.empty())
        throw std::runtime_error("quillmarch-rehearse: " + wrong);
    timeline.Watch();
    balloons.Watch(timeline);
    balloons.OnChange([&](const Balloon& balloon, std::size_t index) { pictures.Add(balloon, index); });
    leaks.Watch();
    expectations.Check();
    if (log.IsWanted())
        ForceLog(options.logLevel);
    if (options.explain)
        ExplainDecisions(timeline);
    expectations.Schedule();
    ScheduleEvents(stage);

    machine::RunOutcome outcome;
    {
        const Progress progress(options.description);
        outcome = machine::RunMachine({UntilMs(description, options)});
    }
    const bool isDone = outcome.verdict == machine::Verdict::Done;
    timeline.CatchUp();
    if (isDone)
        expectations.JudgeEnd();
    pictures.AddRest();
    timeline.Close();
    balloons.Close();
    stage.hasEnded = true;

    const RunFacts facts{description.TextOf("title"), options.seed, stage.product};
    const bool isStandardOutputFree = !json.IsStandardOutput() && !log.IsStandardOutput();
    if (!options.quiet && isStandardOutputFree)
        fmt::print("{}", ReportForPeople(facts, timeline, isatty(STDOUT_FILENO) != 0));
    std::fflush(stdout);
    if (log.IsWanted())
        log.Write(LogText());
    if (json.IsWanted()) {
        nlohmann::ordered_json report = MakeReport(facts, timeline, balloons);
        if (isDone)
            StopProduct(stage, leaks, report);
        json.Write(report.dump(2) + "\n");
    }
    std::fflush(stdout);
    if (!isDone) {
        if (const std::string& failure = machine::HostFailure(); !failure.empty())
            throw std::runtime_error("quillmarch-rehearse: " + failure); // nobody's fault but the host's
        TellOutcome(outcome);
        return ExitStopped;
    }
    return options.check ? Judge(expectations) : ExitDone;
}

} // namespace rehearse
