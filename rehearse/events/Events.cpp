#include "rehearse/events/Events.h"

#include "rehearse/description/DescriptionReader.h"
#include "rehearse/events/DesktopEvents.h"
#include "rehearse/events/DeviceEvents.h"
#include "rehearse/events/EventRows.h"
#include "rehearse/events/PowerEvents.h"
#include "rehearse/events/SessionEvents.h"
#include "rehearse/events/StoryEvents.h"
#include "rehearse/machine/MachineBuilder.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/power/Power.h"
#include "simwin/services/Services.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace rehearse {

constexpr std::uint64_t LookAgainMs = 10; // while the service comes up

// Whether the description wants the service to run as well and it is still starting.
static bool IsServiceComing(const TomlTable& description) {
    const TomlTable* product = description.TableOf("quillmarch");
    return product && product->TextOf("service_state") == "RUNNING" && machine::ServiceProcess(ServiceName) &&
           machine::ServiceState(ServiceName) != simwin::SERVICE_RUNNING;
}

static bool IsServiceRole(const TomlTable& description) {
    const TomlTable* product = description.TableOf("quillmarch");
    return !product || product->TextOf("role", "service") == "service";
}

// Whether the service manager starts it by itself, whatever the role in which the description starts the product later.
static bool StartsWithWindows(const TomlTable& description) {
    return !IsServiceRole(description) && machine::ServiceState(ServiceName) != 0;
}

static void Boot(Stage& stage) {
    stage.timeline->Outside("Windows starts");
    machine::BootMachine();
    stage.timeline->AfterBoot();
    if (StartsWithWindows(*stage.description)) {
        machine::StartServiceByMachine(ServiceName);
    }
}

static void StartProduct(Stage& stage) {
    if (machine::ThePowerState() == machine::PowerState::ShuttingDown) {
        stage.timeline->Outside("Windows will start again when it is off");
        stage.atOff.push_back([&stage] { StartProduct(stage); });
        return;
    }
    if (machine::ThePowerState() == machine::PowerState::Off) {
        Boot(stage);
    }
    if (machine::ThePowerState() == machine::PowerState::FastOff) {
        stage.timeline->Outside("Windows starts (fast startup)");
        machine::StartFast();
        for (const Action& action : std::exchange(stage.atWaking, {})) {
            action();
        }
        if (IsServiceRole(*stage.description)) { // it survived, or nothing starts it
            return;
        }
    }
    stage.timeline->Outside("Quillmarch is started");
    std::string why;
    machine::Process* process = StartProductInRole(*stage.description, &why);
    if (!process) {
        stage.timeline->Outside("it could not be started: " + why);
        return;
    }
    stage.product = machine::Ref(process);
}

static Action StartEvent(const TomlTable&, Stage& stage) {
    return [&stage] { StartProduct(stage); };
}

static Action ControlEvent(const TomlTable& event, Stage& stage) {
    constexpr std::int64_t LargestControl = 255;
    const std::int64_t control = event.NumberOf("control");
    if (control < 1 || control > LargestControl) {
        throw InputError(event.At("control"), fmt::format("'control' must be 1 to {}", LargestControl));
    }
    return [&stage, control] {
        stage.timeline->Outside(fmt::format("control {} to the service", control));
        machine::PostServiceControl(ServiceName, static_cast<simwin::DWORD>(control), 0, {});
    };
}

static Action StopEvent(const TomlTable&, Stage& stage) {
    return [&stage] {
        stage.timeline->Outside("the service is asked to stop");
        machine::PostServiceControl(ServiceName, simwin::SERVICE_CONTROL_STOP, 0, {});
    };
}

static Action ShutdownEvent(const TomlTable& event, Stage& stage) {
    if (event.TextOf("shutdown") == "fast") {
        constexpr unsigned FirstWithFastStartup = 0x0602;
        if (machine::TheSetup().version.Packed() < FirstWithFastStartup) {
            throw InputError(event.At("shutdown"), "there is no fast startup below Windows 6.2");
        }
        return [&stage] {
            stage.timeline->Outside("Windows goes off for a fast startup");
            machine::ShutDownFast();
        };
    }
    return [&stage] {
        stage.timeline->Outside("Windows shuts down");
        machine::ShutDownMachine();
    };
}

static Action EditIniEvent(const TomlTable& event, Stage& stage) {
    const TomlTable* table = event.TableOf("edit_ini");
    std::string text = table ? ReadHostFile(table->TextOf("file"), table->At("file")) : event.TextOf("edit_ini");
    return [&stage, text = std::move(text)] {
        stage.timeline->Outside("the configuration is edited");
        machine::TheFiles().Write(ProductIni(), text);
    };
}

static Action DeleteIniEvent(const TomlTable&, Stage& stage) {
    return [&stage] {
        stage.timeline->Outside("the configuration is deleted");
        machine::TheFiles().Delete(ProductIni());
    };
}

static Action SetValueEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("set_value");
    const std::string key = table.TextOf("key"), name = table.TextOf("name");
    CheckRegistryPath(key, table.At("key"));
    const Value value = *table.Find("value");
    (void)RegistryDataOf(value); // reports errors now, not in the middle of the run
    return [&stage, key, name, value] {
        stage.timeline->Outside(fmt::format("registry value {}\\{} is set", key, name));
        SetRegistryValue(*stage.description, key, name, value);
    };
}

constexpr EventRow Rows[] = {
    {"start", StartEvent},        {"control", ControlEvent},  {"stop", StopEvent},
    {"shutdown", ShutdownEvent},  {"edit_ini", EditIniEvent}, {"delete_ini", DeleteIniEvent},
    {"set_value", SetValueEvent},
};

static const EventRow* FindRow(std::span<const EventRow> rows, const TomlTable& event) {
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const EventRow& r) { return event.Has(r.subject); });
    return row == rows.end() ? nullptr : &*row;
}

static Action ActionOf(const TomlTable& event, Stage& stage) {
    for (const std::span<const EventRow> rows : {std::span<const EventRow>(Rows), DeviceEventRows(), PowerEventRows(),
                                                 SessionEventRows(), DesktopEventRows(), StoryEventRows()}) {
        if (const EventRow* row = FindRow(rows, event)) {
            if (event.Is(row->subject, Flag) && !event.FlagOf(row->subject)) {
                throw InputError(event.At(row->subject), fmt::format("'{}' can only be true", row->subject));
            }
            return InItsPowerState(row->subject, row->make(event, stage), stage);
        }
    }
    throw InputError(event.at, "this event is not known");
}

// The start in the role; after a service that has to run as well.
static void StartInTurn(Stage& stage) {
    if (stage.hasEnded) {
        return;
    }
    if (IsServiceComing(*stage.description)) {
        machine::After(LookAgainMs, [&stage] { StartInTurn(stage); });
    } else {
        StartProduct(stage);
    }
}

static std::uint64_t StartMs(const TomlTable& description) {
    const TomlTable* product = description.TableOf("quillmarch");
    return product ? product->MsOf("starts_at") : 0;
}

static void OnPowerEvent(Stage& stage, machine::PowerEvent event) {
    if (stage.hasEnded) {
        return;
    }
    if (event == machine::PowerEvent::ServicesKilled) {
        stage.timeline->Outside("Windows ends the services that still run");
        return;
    }
    stage.timeline->Outside("the machine is off");
    for (const Action& action : std::exchange(stage.atOff, {})) {
        action();
    }
}

void ScheduleEvents(Stage& stage) {
    machine::SetPowerObserver([&stage](machine::PowerEvent event) { OnPowerEvent(stage, event); });
    const TomlTable& description = *stage.description;
    const TomlTable* product = description.TableOf("quillmarch");
    if (product && product->TextOf("service_state") == "RUNNING") {
        machine::At(0, machine::Due::Outside, [&stage] {
            stage.timeline->Outside("the service is started");
            machine::StartServiceByMachine(ServiceName);
        });
    }
    machine::At(StartMs(description), machine::Due::Outside,
                InItsPowerState(
                    "start", [&stage] { StartInTurn(stage); }, stage));
    std::vector<const TomlTable*> events;
    for (const TomlTable& event : description.TablesOf("event")) {
        events.push_back(&event);
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const TomlTable* a, const TomlTable* b) { return a->MsOf("at") < b->MsOf("at"); });
    CheckSockets(events);
    for (const TomlTable* event : events) {
        machine::At(event->MsOf("at"), machine::Due::Outside, [&stage, action = ActionOf(*event, stage)] {
            if (!stage.hasEnded) {
                action();
            }
        });
    }
}

std::uint64_t LastEventMs(const TomlTable& description) {
    std::uint64_t last = StartMs(description);
    for (const TomlTable& event : description.TablesOf("event")) {
        last = std::max(last, event.MsOf("at"));
    }
    return last;
}

} // namespace rehearse
