#include "rehearse/run/Run.h"

#include "rehearse/description/Captures.h"
#include "rehearse/description/Description.h"
#include "rehearse/description/DescriptionReader.h"
#include "rehearse/description/Manners.h"
#include "rehearse/events/Events.h"
#include "rehearse/expectations/Expectations.h"
#include "rehearse/host/Durations.h"
#include "rehearse/host/Files.h"
#include "rehearse/host/Flow.h"
#include "rehearse/host/OutputFile.h"
#include "rehearse/html/Lanes.h"
#include "rehearse/html/Page.h"
#include "rehearse/machine/MachineBuilder.h"
#include "rehearse/report/DevicesTable.h"
#include "rehearse/report/Explanation.h"
#include "rehearse/report/Pictures.h"
#include "rehearse/report/Report.h"
#include "rehearse/report/Tree.h"
#include "rehearse/report/Verdict.h"
#include "rehearse/run/MachineLife.h"
#include "rehearse/run/Observer.h"
#include "rehearse/run/Progress.h"
#include "rehearse/run/Stories.h"
#include "rehearse/watch/Balloons.h"
#include "rehearse/watch/Leaks.h"
#include "rehearse/watch/LogOutput.h"
#include "rehearse/watch/Timeline.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/host/System.h"
#include "simwin/kernel/Interrupt.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/machine/Machine.h"
#include "simwin/services/Services.h"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>

namespace rehearse {

constexpr const char* StandardOutput = "-";
constexpr int ExitInterrupted = 130;               // as a shell says it of a program that Ctrl-C ended
constexpr std::size_t UsualColumns = 80;           // of a terminal that does not say
constexpr std::uint64_t StopLimitMs = MsPerMinute; // how long a stop after the report may take

// Stops the running processes of the product, so that what they left open can be counted.
static void StopProduct(const Stage& stage, const Leaks& leaks, nlohmann::ordered_json& report) {
    machine::Process* service = machine::ServiceProcess(ServiceName);
    const machine::Ref process(service ? service : stage.product.Get());
    if (!process) {
        return;
    }
    if (!process->ended) {
        machine::WakeMachine(); // the run may have ended in its sleep
        if (service) {
            machine::PostServiceControl(ServiceName, simwin::SERVICE_CONTROL_STOP, 0, {});
        } else {
            machine::CloseWindowsOf(process.Get()); // so ends a debug run
        }
        (void)machine::RunMachine({machine::Now() + StopLimitMs}); // the verdict of the run itself is already final
    }
    if (process->ended && !process->killed) {
        SetLeaks(report, leaks.HandlesOf(process.Get()), process->leakedBytes);
    }
}

// The lines of a run that did not end normally; the last one begins with the kind of failure.
static void TellOutcome(const machine::RunOutcome& outcome) {
    std::string line = machine::OutcomeLine(outcome);
    while (line.ends_with('\n')) {
        line.pop_back();
    }
    const std::size_t end = line.find('\n');
    if (end != std::string::npos) {
        fmt::print(stderr, "{}\n", Shown(line.substr(end + 1)));
    }
    fmt::print(stderr, "{}\n", Shown(line.substr(0, end)));
}

static Look LookOfOutput() {
    const host::Terminal terminal = host::TerminalOfOutput();
    return {terminal.isThere, terminal.columns ? terminal.columns : terminal.isThere ? UsualColumns : 0};
}

namespace {
// During a run the first Ctrl-C ends it, and what is known by then is reported; the second one ends the tool.
class Interruptible {
public:
    Interruptible() {
        m_before = std::signal(SIGINT, OnInterrupt);
        if (m_before == SIG_IGN) {
            std::signal(SIGINT, SIG_IGN);
        }
        g_before = m_before;
    }
    ~Interruptible() { std::signal(SIGINT, m_before); }
    Interruptible(const Interruptible&) = delete;
    Interruptible& operator=(const Interruptible&) = delete;

private:
    static void OnInterrupt(int) {
        machine::InterruptRun();
        std::signal(SIGINT, g_before);
    }
    using Handler = void (*)(int);
    static inline Handler g_before = SIG_DFL;
    Handler m_before = SIG_DFL;
};
} // namespace

static bool PrintReport(const Options& options) {
    return !options.quiet && options.json != StandardOutput && options.log != StandardOutput &&
           options.html != StandardOutput;
}

// Every form of the verdict needs what only a second run can observe.
static bool NeedsObserver(const Options& options) {
    return !options.devices && !options.tree &&
           (options.json || options.html || options.strict || options.onEnd || PrintReport(options));
}

static int Judge(const Options& options, const Expectations& expectations, const Verdict& verdict) {
    std::vector<std::string> failures;
    if (options.check) {
        failures = expectations.Failures();
    }
    if (options.strict) {
        for (const std::string& line : verdict.Shortcomings()) {
            failures.push_back("strict: " + line);
        }
    }
    for (const std::string& failure : failures) {
        fmt::print(stderr, "{}\n", Shown(failure));
    }
    return failures.empty() ? ExitDone : ExitNotMet;
}

namespace {
// The data of a run for the report, collected while its machine exists.
struct RunResult {
    const Options& options;
    const Stage& stage;
    const Leaks& leaks;
    const Verdict& verdict;
    const machine::RunOutcome& outcome;
    const Expectations& expectations;

    bool IsDone() const { return outcome.verdict == machine::Verdict::Done && !machine::WasRunInterrupted(); }
    std::string Stopped() const {
        if (machine::WasRunInterrupted()) {
            return fmt::format("broken off at {}", TimeText(machine::Now()));
        }
        return IsDone() ? "" : machine::OutcomeLine(outcome);
    }
};

// The outputs that are wanted, and what only the page needs of the run.
struct Outputs {
    Output json, log, html;
    Pictures pictures;
    html::Lanes lanes;
    std::string configuration; // at the start
    ObservedLog observed;

    explicit Outputs(const Options& options)
        : json(options.json), log(options.log), html(options.html),
          pictures(options.pictures, options.html ? html::MostPictures : 0) {}
    void Watch() {
        if (!html.IsWanted()) {
            return;
        }
        lanes.Watch();
        configuration = html::ConfigurationText();
    }
};
} // namespace

static std::string PageOf(const RunResult& run, const Outputs& outputs) {
    const Options& options = run.options;
    html::PageFacts facts{.title = run.stage.description->TextOf("title"),
                          .description = NameOfPath(options.description),
                          .configurationFile = options.ini ? NameOfPath(*options.ini) : "",
                          .configuration = outputs.configuration,
                          .seed = options.seed,
                          .stopped = run.Stopped(),
                          .isChecked = options.check && run.IsDone(),
                          .failures = {},
                          .isGerman = options.isGerman,
                          .timeline = *run.stage.timeline,
                          .balloons = *run.stage.balloons,
                          .verdict = run.verdict,
                          .lanes = outputs.lanes,
                          .log = outputs.observed,
                          .pictures = outputs.pictures.Kept()};
    if (facts.isChecked) {
        facts.failures = run.expectations.Failures();
    }
    return html::MakePage(facts);
}

static void WriteReports(const RunResult& run, Outputs& outputs) {
    const Options& options = run.options;
    const RunFacts facts{run.stage.description->TextOf("title"), options.seed, run.stage.product.Get()};
    const Timeline& timeline = *run.stage.timeline;
    const Balloons& balloons = *run.stage.balloons;
    if (PrintReport(options)) {
        fmt::print("{}", ReportForPeople(facts, timeline, balloons, run.verdict, LookOfOutput()));
    }
    std::fflush(stdout);
    if (outputs.log.IsWanted()) {
        outputs.log.Write(LogText());
    }
    if (outputs.html.IsWanted()) {
        outputs.html.Write(PageOf(run, outputs));
    }
    if (options.onEnd) {
        const bool isJudged = options.check && run.IsDone();
        options.onEnd({facts.title, run.Stopped(), isJudged ? run.expectations.Failures() : std::vector<std::string>(),
                       run.verdict});
    }
    if (outputs.json.IsWanted()) {
        nlohmann::ordered_json report = MakeReport(facts, timeline, balloons, run.verdict);
        if (run.IsDone()) {
            StopProduct(run.stage, run.leaks, report);
        }
        outputs.json.Write(report.dump(2) + "\n");
    }
    std::fflush(stdout);
}

static int ExitCodeOf(const RunResult& run) {
    if (machine::WasRunInterrupted()) {
        fmt::print(stderr, "broken off at {}: the report ends there\n", TimeText(machine::Now()));
        return ExitInterrupted;
    }
    if (!run.IsDone()) {
        TellOutcome(run.outcome);
        return ExitStopped;
    }
    return Judge(run.options, run.expectations, run.verdict);
}

int Rehearse(const Options& options) {
    TomlTable description = ReadMachine(options);
    const machine::Setup setup = SetupOf(description, options);
    CheckOutputs(options, &description);
    Outputs outputs(options);
    std::optional<Observer> observer;
    if (NeedsObserver(options)) {
        observer.emplace(description, options);
    }

    Timeline timeline;
    Explanation explanation;
    Balloons balloons;
    Leaks leaks;
    Stage stage{&description, &timeline, &balloons};
    Expectations expectations(stage);
    const MachineLife machine(setup, timeline, balloons, leaks);
    FillMachine(description, options);
    AddStories(description, options);
    if (options.devices || options.tree) {
        fmt::print("{}", Shown(options.tree ? MachineTree() : DevicesTable()));
        return ExitDone;
    }
    timeline.Watch();
    balloons.Watch(timeline);
    balloons.OnChange([&](const Balloon& balloon, std::size_t index) { outputs.pictures.Add(balloon, index); });
    leaks.Watch();
    expectations.Check();
    if (outputs.log.IsWanted()) {
        ForceLog(options.logLevel);
    }
    if (options.explain) {
        explanation.Watch(timeline);
    }
    expectations.Schedule();
    ScheduleEvents(stage);
    const StartFacts start = FactsAtStart();
    outputs.Watch();

    machine::RunOutcome outcome;
    {
        const Progress progress(options.description, LastEventMs(description));
        const Interruptible interruptible;
        outcome = machine::RunMachine({UntilMs(description, options)});
    }
    timeline.CatchUp();
    if (options.explain) {
        explanation.Finish();
    }
    if (outcome.verdict == machine::Verdict::Done && !machine::WasRunInterrupted()) {
        expectations.JudgeEnd();
    }
    outputs.pictures.AddRest();
    if (outputs.html.IsWanted()) {
        outputs.lanes.Close();
    }
    timeline.Close();
    balloons.Close();
    stage.hasEnded = true;

    if (observer && (machine::WasRunInterrupted() || outcome.verdict == machine::Verdict::Livelock)) {
        observer->Abandon();
    }
    const LogFacts observed = observer ? observer->Take(EndOfMachine()) : LogFacts{};
    const Verdict verdict = MakeVerdict(start, observed, timeline);
    if (observer) {
        outputs.observed = observer->Log();
    }
    const RunResult run{options, stage, leaks, verdict, outcome, expectations};
    WriteReports(run, outputs);
    return ExitCodeOf(run);
}

} // namespace rehearse
