#include "rehearse/rules/QuietRun.h"

#include "rehearse/events/Events.h"
#include "rehearse/expectations/Expectations.h"
#include "rehearse/machine/MachineBuilder.h"
#include "rehearse/run/Stories.h"
#include "rehearse/watch/Balloons.h"
#include "rehearse/watch/LogOutput.h"
#include "rehearse/watch/Timeline.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/machine/Machine.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <stdexcept>

namespace rehearse {

constexpr std::uint64_t SettlingMs = 3'600'000; // after the last event, as in a rehearsal
constexpr const char* RegistryConfiguration = "HKLM\\SOFTWARE\\Tarn Holve\\Quillmarch";

// The file under question stays what it is.
static TomlTable WithoutEdits(const TomlTable& description) {
    TomlTable kept = description;
    if (!kept.Has("event")) {
        return kept;
    }
    Value events = *kept.Find("event");
    std::erase_if(events.tables,
                  [](const TomlTable& event) { return event.Has("edit_ini") || event.Has("delete_ini"); });
    kept.Set("event", std::move(events));
    return kept;
}

QuietRun RunQuietly(const TomlTable& description, const Options& options, const std::string& ini, bool isOfRegistry) {
    TomlTable described = WithoutEdits(description);
    Options quiet = options;
    quiet.ini.reset();
    QuietRun run;
    CheckLog log;
    Timeline timeline;
    Balloons balloons;
    Stage stage(&described, &timeline, &balloons);
    const machine::Machine machine(SetupOf(described, quiet));
    machine::InstallCrashHandler();
    FillMachine(described, quiet);
    AddStories(described, quiet);
    if (machine::RegistryKey* key = machine::TheRegistry().FindKey(RegistryConfiguration)) {
        if (!isOfRegistry) {
            throw InputError(described.at,
                             std::string("this machine keeps its configuration in the registry, where no file "
                                         "counts: give --rules an export of it, made by reg export \"") +
                                 RegistryConfiguration + "\" my.reg");
        }
        machine::TheRegistry().RemoveKey(key); // the file says the same
    }
    machine::TheFiles().Write(ProductIni(), ini);
    timeline.Watch();
    balloons.Watch(timeline);
    WatchLog(log);
    ScheduleEvents(stage);
    const std::uint64_t last = std::max(LastEventMs(described) + SettlingMs, Expectations::LastMs(described));
    const machine::RunOutcome outcome =
        machine::RunMachine({options.untilMs ? *options.untilMs : described.MsOf("until", last)});
    timeline.CatchUp();
    stage.hasEnded = true;
    timeline.Close();
    balloons.Close();
    if (outcome.verdict != machine::Verdict::Done) {
        run.outcome = machine::OutcomeLine(outcome);
    }
    run.searches = log.Searches();
    run.ports = AllPorts();
    return run;
}

} // namespace rehearse
