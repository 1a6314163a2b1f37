#include "rehearse/Events.h"

#include "rehearse/DescriptionReader.h"
#include "rehearse/DeviceEvents.h"
#include "rehearse/EventRows.h"
#include "rehearse/MachineBuilder.h"
#include "rehearse/PowerEvents.h"
#include "rehearse/Surroundings.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Text.h"
#include "simwin/services/Services.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>

namespace rehearse {

namespace {

constexpr std::uint64_t LookAgainMs = 10; // while the service comes up

// Whether the description wants the service to run beside and it is still on its way.
bool IsServiceComing(const Record& description) {
    const Record* product = description.TableOf("quillmarch");
    return product && product->TextOf("service_state") == "RUNNING" && machine::ServiceProcess(ServiceName) &&
           machine::ServiceState(ServiceName) != simwin::SERVICE_RUNNING;
}

void StartProduct(Stage& stage) {
    stage.timeline->Outside("Quillmarch is started");
    machine::Process* process = StartProductInRole(*stage.description);
    if (!process) {
        stage.timeline->Outside("it could not be started");
        return;
    }
    if (stage.product)
        stage.product->Release();
    process->Retain();
    stage.product = process;
}

Action StartEvent(const Record&, Stage& stage) {
    return [&stage] { StartProduct(stage); };
}

Action ControlEvent(const Record& event, Stage& stage) {
    constexpr std::int64_t LargestControl = 255;
    const std::int64_t control = event.NumberOf("control");
    if (control < 1 || control > LargestControl)
        throw InputError(event.At("control"), fmt::format("'control' must be 1 to {}", LargestControl));
    return [&stage, control] {
        stage.timeline->Outside(fmt::format("control {} to the service", control));
        machine::PostServiceControl(ServiceName, static_cast<simwin::DWORD>(control), 0, {});
    };
}

Action StopEvent(const Record&, Stage& stage) {
    return [&stage] {
        stage.timeline->Outside("the service is told to stop");
        machine::PostServiceControl(ServiceName, simwin::SERVICE_CONTROL_STOP, 0, {});
    };
}

Action ShutdownEvent(const Record&, Stage& stage) {
    return [&stage] {
        stage.timeline->Outside("Windows shuts down");
        machine::BroadcastServiceControl(simwin::SERVICE_CONTROL_SHUTDOWN, 0, {});
    };
}

Action EditIniEvent(const Record& event, Stage& stage) {
    const Record* table = event.TableOf("edit_ini");
    std::string text = table ? ReadHostFile(table->TextOf("file"), table->At("file")) : event.TextOf("edit_ini");
    return [&stage, text = std::move(text)] {
        stage.timeline->Outside("the configuration is edited");
        machine::TheFiles().Write(ProductIni(), text);
    };
}

Action DeleteIniEvent(const Record&, Stage& stage) {
    return [&stage] {
        stage.timeline->Outside("the configuration is deleted");
        machine::TheFiles().Delete(ProductIni());
    };
}

Action SetValueEvent(const Record& event, Stage& stage) {
    const Record& table = *event.TableOf("set_value");
    const std::string key = table.TextOf("key"), name = table.TextOf("name");
    CheckRegistryPath(key, table.At("key"));
    const Value value = *table.Find("value");
    (void)RegistryDataOf(value); // complains now, not in the middle of the run
    return [&stage, key, name, value] {
        stage.timeline->Outside(fmt::format("registry value {}\\{} is set", key, name));
        SetRegistryValue(key, name, value);
    };
}

constexpr EventRow Rows[] = {
    {"start", StartEvent},        {"control", ControlEvent},  {"stop", StopEvent},
    {"shutdown", ShutdownEvent},  {"edit_ini", EditIniEvent}, {"delete_ini", DeleteIniEvent},
    {"set_value", SetValueEvent},
};

const EventRow* FindRow(std::span<const EventRow> rows, const Record& event) {
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const EventRow& r) { return event.Has(r.subject); });
    return row == rows.end() ? nullptr : &*row;
}

Action ActionOf(const Record& event, Stage& stage) {
    for (const std::span<const EventRow> rows :
         {std::span<const EventRow>(Rows), DeviceEventRows(), PowerEventRows(), SurroundingsEventRows()})
        if (const EventRow* row = FindRow(rows, event)) {
            if (event.Is(row->subject, Flag) && !event.FlagOf(row->subject))
                throw InputError(event.At(row->subject), fmt::format("'{}' can only be true", row->subject));
            return InItsPowerState(row->subject, row->make(event, stage), stage);
        }
    throw InputError(event.at, "this event is not known");
}

// The start in the role; behind a service that is to run beside.
void StartInTurn(Stage& stage) {
    if (stage.hasEnded)
        return;
    if (IsServiceComing(*stage.description))
        machine::After(LookAgainMs, [&stage] { StartInTurn(stage); });
    else
        StartProduct(stage);
}

std::uint64_t StartMs(const Record& description) {
    const Record* product = description.TableOf("quillmarch");
    return product ? product->MsOf("starts_at") : 0;
}

} // namespace

Stage::~Stage() {
    if (product)
        product->Release();
}

void ScheduleEvents(Stage& stage) {
    const Record& description = *stage.description;
    const Record* product = description.TableOf("quillmarch");
    if (product && product->TextOf("service_state") == "RUNNING") {
        machine::At(0, machine::Due::Outside, [&stage] {
            stage.timeline->Outside("the service is started");
            machine::StartServiceByMachine(ServiceName);
        });
    }
    machine::At(StartMs(description), machine::Due::Outside, [&stage] { StartInTurn(stage); });
    std::vector<const Record*> events;
    for (const Record& event : description.TablesOf("event"))
        events.push_back(&event);
    std::stable_sort(events.begin(), events.end(),
                     [](const Record* a, const Record* b) { return a->MsOf("at") < b->MsOf("at"); });
    for (const Record* event : events)
        machine::At(event->MsOf("at"), machine::Due::Outside, [&stage, action = ActionOf(*event, stage)] {
            if (!stage.hasEnded)
                action();
        });
}

std::uint64_t LastEventMs(const Record& description) {
    std::uint64_t last = StartMs(description);
    for (const Record& event : description.TablesOf("event"))
        last = std::max(last, event.MsOf("at"));
    return last;
}

} // namespace rehearse
