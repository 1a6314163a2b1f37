#include "tests/storms/Trial.h"

#include "rehearse/machine/MachineBuilder.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/machine/Machine.h"
#include "simwin/services/Services.h"

namespace storm {

constexpr std::uint64_t StopLimitMs = 60'000;

static bool RunUntil(std::uint64_t untilMs, Rest& judge) {
    const machine::RunOutcome run = machine::RunMachine({untilMs});
    if (run.verdict != machine::Verdict::Done) {
        judge.Complain(machine::OutcomeLine({run.verdict, ""}), run.text);
    }
    return run.verdict == machine::Verdict::Done;
}

void Trial::Run(const rehearse::Options& options, std::uint64_t settlingMs, Rest& judge,
                const std::function<void()>& onBuilt, const std::function<void()>& atEnd,
                const std::function<void()>& afterStop) {
    const machine::Machine machine(rehearse::SetupOf(*stage.description, options));
    machine::InstallCrashHandler();
    rehearse::FillMachine(*stage.description, options);
    timeline.Watch();
    balloons.Watch(timeline);
    leaks.Watch();
    rehearse::ScheduleEvents(stage);
    onBuilt();
    if (RunUntil(rehearse::LastEventMs(*stage.description) + settlingMs, judge)) {
        timeline.CatchUp();
        atEnd();
        machine::WakeMachine();
        if (machine::ServiceProcess(rehearse::ServiceName)) {
            machine::PostServiceControl(rehearse::ServiceName, simwin::SERVICE_CONTROL_STOP, 0, {});
        } else if (stage.product && !stage.product->ended) {
            machine::CloseWindowsOf(stage.product.Get());
        }
        if (RunUntil(machine::Now() + StopLimitMs, judge)) {
            afterStop();
        }
    }
    stage.hasEnded = true;
    timeline.Close();
    balloons.Close();
    leaks.Close();
}

} // namespace storm
