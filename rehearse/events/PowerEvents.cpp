#include "rehearse/events/PowerEvents.h"

#include "rehearse/machine/MachineBuilder.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/devices/api.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/power/Power.h"
#include "simwin/services/Services.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace rehearse {

namespace {
struct NamedCode {
    const char* name;
    simwin::DWORD code;
};
} // namespace
constexpr NamedCode ResumeKinds[] = {
    {"automatic", simwin::PBT_APMRESUMEAUTOMATIC},
    {"critical", simwin::PBT_APMRESUMECRITICAL},
    {"suspend", simwin::PBT_APMRESUMESUSPEND},
    {"standby", simwin::PBT_APMRESUMESTANDBY},
};
constexpr NamedCode DeviceEventNames[] = {
    {"DBT_DEVNODES_CHANGED", simwin::DBT_DEVNODES_CHANGED},
    {"DBT_DEVICEARRIVAL", simwin::DBT_DEVICEARRIVAL},
    {"DBT_DEVICEQUERYREMOVE", simwin::DBT_DEVICEQUERYREMOVE},
    {"DBT_DEVICEQUERYREMOVEFAILED", simwin::DBT_DEVICEQUERYREMOVEFAILED},
    {"DBT_DEVICEREMOVEPENDING", simwin::DBT_DEVICEREMOVEPENDING},
    {"DBT_DEVICEREMOVECOMPLETE", simwin::DBT_DEVICEREMOVECOMPLETE},
    {"DBT_DEVICETYPESPECIFIC", simwin::DBT_DEVICETYPESPECIFIC},
    {"DBT_CUSTOMEVENT", simwin::DBT_CUSTOMEVENT},
};
constexpr const char* ComPortClass = "{86e0d1e0-8089-11d0-9ce4-08003e301f73}";
constexpr std::int64_t LargestDword = 0xFFFFFFFF;

static Action SuspendEvent(const TomlTable& event, Stage& stage) {
    const std::string kind = event.TextOf("suspend");
    if (kind == "query") {
        constexpr unsigned FirstThatDoesNotAsk = 0x0600;
        if (machine::TheSetup().version.Packed() >= FirstThatDoesNotAsk) {
            throw InputError(event.At("suspend"), "Windows asks for a suspension below 6.0 only");
        }
        return [&stage] {
            stage.timeline->Outside("asked whether the machine may sleep");
            machine::BroadcastServiceControl(simwin::SERVICE_CONTROL_POWEREVENT, simwin::PBT_APMQUERYSUSPEND, {});
        };
    }
    return [&stage, kind] {
        stage.timeline->Outside("the machine goes to sleep");
        machine::SuspendMachine(/*isAnnounced=*/kind != "critical");
    };
}

static Action ResumeEvent(const TomlTable& event, Stage& stage) {
    const TomlTable* table = event.TableOf("resume");
    const std::string kind = table ? table->TextOf("kind", "automatic") : event.TextOf("resume");
    const bool isReplugged = table && table->TextOf("devices", "stay") == "replug";
    const NamedCode* row = std::find_if(std::begin(ResumeKinds), std::end(ResumeKinds),
                                        [&](const NamedCode& r) { return kind == r.name; });
    const simwin::DWORD code = row->code;
    return [&stage, kind, code, isReplugged] {
        stage.timeline->Outside(
            fmt::format("the machine wakes ({}{})", kind, isReplugged ? ", devices come again" : ""));
        machine::ResumeMachine(code, isReplugged);
        for (const Action& action : std::exchange(stage.atWaking, {})) {
            action();
        }
    };
}

static simwin::DWORD DeviceEventCode(const TomlTable& table) {
    if (table.Is("event", Number)) {
        const std::int64_t code = table.NumberOf("event");
        if (code < 0 || code > LargestDword) {
            throw InputError(table.At("event"), "'event' must be 0 to 4294967295");
        }
        return static_cast<simwin::DWORD>(code);
    }
    const std::string name = table.TextOf("event");
    for (const NamedCode& row : DeviceEventNames) {
        if (name == row.name) {
            return row.code;
        }
    }
    throw InputError(table.At("event"), fmt::format("'{}' is no DBT name", name));
}

static std::vector<std::uint8_t> DeviceEventData(const TomlTable& table, simwin::DWORD code) {
    const bool isWide = table.FlagOf("wide");
    if (!table.Has("type") && code == simwin::DBT_DEVNODES_CHANGED) {
        return {};
    }
    const std::int64_t type = table.NumberOf("type", simwin::DBT_DEVTYP_DEVICEINTERFACE);
    if (type < 0 || type > LargestDword) {
        throw InputError(table.At("type"), "'type' must be 0 to 4294967295");
    }
    if (type == simwin::DBT_DEVTYP_PORT) {
        return machine::PortEventData(table.TextOf("name"), isWide);
    }
    if (type != simwin::DBT_DEVTYP_DEVICEINTERFACE) {
        return machine::OtherEventData(static_cast<simwin::DWORD>(type));
    }
    simwin::GUID guid;
    const std::string text = table.TextOf("class", ComPortClass);
    if (!machine::GuidFromText(text, guid)) {
        throw InputError(table.At("class"), fmt::format("'{}' is no GUID in braces", text));
    }
    return machine::InterfaceEventData(guid, table.TextOf("path"), isWide);
}

// By the route of the role, queued with the recipient's other pending notifications. One that has not registered gets
// it by its control handler, or by its first window.
static void Notify(Stage& stage, simwin::DWORD code, const std::vector<std::uint8_t>& data) {
    const TomlTable* product = stage.description->TableOf("quillmarch");
    const bool isWindowRole = product && product->TextOf("role") == "debug";
    machine::Process* service = isWindowRole ? nullptr : machine::ServiceProcess(ServiceName);
    machine::Process* process = service ? service : stage.product.Get();
    if (!process || process->ended) {
        return;
    }
    const std::vector<machine::NotificationRecipient> recipients = machine::Recipients();
    const bool isRegistered = std::any_of(recipients.begin(), recipients.end(),
                                          [&](const auto& recipient) { return recipient.process == process; });
    const std::vector<const machine::Window*> windows = machine::Windows();
    const auto window = std::find_if(windows.begin(), windows.end(),
                                     [&](const machine::Window* one) { return one->process == process; });
    if (isRegistered) {
        machine::SendNotification({process, nullptr, service != nullptr}, code, data);
    } else if (service) {
        machine::PostServiceControl(ServiceName, simwin::SERVICE_CONTROL_DEVICEEVENT, code, data);
    } else if (window != windows.end()) {
        machine::SendNotification({process, (*window)->handle, false}, code, data);
    }
}

static Action NotifyEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("notify");
    const simwin::DWORD code = DeviceEventCode(table);
    std::vector<std::uint8_t> data = DeviceEventData(table, code);
    const std::string about = table.Has("name") ? table.TextOf("name") : table.TextOf("path");
    return [&stage, code, data = std::move(data), about] {
        stage.timeline->Outside(
            fmt::format("device event {:04X} to the product alone{}{}", code, about.empty() ? "" : ": ", about));
        Notify(stage, code, data);
    };
}

constexpr EventRow Rows[] = {{"suspend", SuspendEvent}, {"resume", ResumeEvent}, {"notify", NotifyEvent}};

namespace {
enum class Happens { Now, WhenAwake, Not };
} // namespace

template<std::size_t N>
static bool IsOneOf(std::string_view subject, const std::string_view (&subjects)[N]) {
    return std::find(std::begin(subjects), std::end(subjects), subject) != std::end(subjects);
}

// Outside changes to the machine can happen at any time. Users and programs need a running one: they wait until it
// wakes, and do nothing while it is off.
static Happens WhenHappens(std::string_view subject) {
    constexpr std::string_view Always[] = {"plug", "unplug", "replug", "move", "story", "newcomer"};
    constexpr std::string_view WhileOff[] = {"start", "edit_ini", "delete_ini", "set_value", "problem", "calm"};
    constexpr std::string_view NotAtTheEnd[] = {"suspend", "resume", "logon", "logoff", "run", "hold", "shutdown"};
    switch (machine::ThePowerState()) {
    case machine::PowerState::On:
        return Happens::Now;
    case machine::PowerState::Asleep:
        return IsOneOf(subject, Always) || subject == "resume" ? Happens::Now
               : subject == "suspend"                          ? Happens::Not
                                                               : Happens::WhenAwake;
    case machine::PowerState::ShuttingDown:
        return IsOneOf(subject, NotAtTheEnd) ? Happens::Not : Happens::Now;
    case machine::PowerState::FastOff:
        if (subject == "problem" || subject == "calm") { // devices keep their state meanwhile
            return Happens::WhenAwake;
        }
        break;
    case machine::PowerState::Off:
        break;
    }
    return IsOneOf(subject, Always) || IsOneOf(subject, WhileOff) ? Happens::Now : Happens::Not;
}

Action InItsPowerState(std::string_view subject, Action action, Stage& stage) {
    return [&stage, subject = std::string(subject), action = std::move(action)] {
        switch (WhenHappens(subject)) {
        case Happens::Now:
            action();
            break;
        case Happens::WhenAwake:
            stage.timeline->Outside(fmt::format("the machine sleeps: '{}' waits until it wakes", subject));
            stage.atWaking.push_back(action);
            break;
        case Happens::Not:
            stage.timeline->Outside(fmt::format("the machine does not run: no '{}'", subject));
            break;
        }
    };
}

std::span<const EventRow> PowerEventRows() {
    return Rows;
}

} // namespace rehearse
