#include "rehearse/events/DeviceEvents.h"

#include "rehearse/machine/DescribedSessions.h"
#include "rehearse/machine/DeviceTables.h"
#include "rehearse/machine/Sockets.h"
#include "rehearse/watch/MachineFacts.h"

#include "simwin/devices/drivers/Holders.h"
#include "simwin/devices/events/Events.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"

#include <fmt/format.h>

#include <utility>

namespace rehearse {

constexpr std::int64_t LargestDword = 0xFFFFFFFF;
constexpr std::int64_t MostBroadcasts = 10'000;
constexpr std::int64_t MostHubPorts = 255;

// The id that a field names; it must be known, or the event would affect nothing.
static std::string DeviceIn(const TomlTable& table, std::string_view key) {
    const std::string id = table.TextOf(key);
    if (!IsKnownDevice(id)) {
        throw InputError(table.At(key), fmt::format("there is no device '{}'", id));
    }
    return id;
}

static unsigned NumberIn(const TomlTable& table, std::string_view key, std::int64_t least, std::int64_t most) {
    const std::int64_t number = table.NumberOf(key);
    if (number < least || number > most) {
        throw InputError(table.At(key), fmt::format("'{}' must be {} to {}", key, least, most));
    }
    return static_cast<unsigned>(number);
}

// A known device whose place is unknown cannot be plugged in.
static std::string PlugableIn(const TomlTable& table, std::string_view key) {
    const std::string id = DeviceIn(table, key);
    const machine::DeviceNode* node = machine::TheDeviceTree().FindById(id);
    if (node && !node->parent && !node->root) {
        throw InputError(table.At(key), fmt::format("nothing tells where '{}' is plugged in; describe its parent", id));
    }
    return id;
}

static Action PlugEvent(const TomlTable& event, Stage& stage) {
    const std::string id = PlugableIn(event, "plug");
    return [&stage, id] {
        stage.timeline->Outside("plugged in:", id);
        machine::PlugDevice(id);
    };
}

static Action UnplugEvent(const TomlTable& event, Stage& stage) {
    const std::string id = DeviceIn(event, "unplug");
    return [&stage, id] {
        stage.timeline->Outside("pulled out:", id);
        machine::UnplugDevice(id);
    };
}

static Action ReplugEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("replug");
    const std::string id = PlugableIn(table, "device");
    const std::uint64_t offMs = table.MsOf("off", machine::DefaultOffMs);
    return [&stage, id, offMs] {
        stage.timeline->Outside(fmt::format("pulled out and back {} ms later:", offMs), id);
        machine::ReplugDevice(id, offMs);
    };
}

static Action MoveEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("move");
    const std::string id = DeviceIn(table, "device"), hub = DeviceIn(table, "hub");
    const machine::DeviceNode* node = machine::TheDeviceTree().FindById(hub);
    if (!node || !node->IsHub()) {
        throw InputError(table.At("hub"), fmt::format("'{}' is no hub", hub));
    }
    // The exports do not say how many hub ports a hub has; it has those that are needed.
    const unsigned port = NumberIn(table, "hub_port", 1, node->said.ports.value_or(MostHubPorts));
    if (machine::HangsBelow(node, machine::TheDeviceTree().FindById(id))) {
        throw InputError(table.At("hub"), fmt::format("'{}' hangs below what is moved there", hub));
    }
    const machine::DeviceNode* moved = machine::TheDeviceTree().FindById(id);
    if (moved && moved->parent && (!moved->parent->IsHub() || moved->kind == machine::DeviceKind::RootHub)) {
        throw InputError(table.At("device"), fmt::format("'{}' is not plugged in on a hub", id));
    }
    return [&stage, id, hub, port] {
        stage.timeline->Outside(fmt::format("moved to port {} of {}:", port, hub), id);
        machine::MoveDevice(id, hub, port);
    };
}

static Action ProblemEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("problem");
    const std::string id = DeviceIn(table, "device");
    machine::ProblemEvent problem;
    problem.number = NumberIn(table, "number", 0, LargestDword);
    problem.quiet = table.FlagOf("quiet");
    problem.sticky = table.FlagOf("sticky");
    return [&stage, id, problem] {
        stage.timeline->Outside(
            problem.number
                ? fmt::format("problem {}{} of", problem.number,
                              problem.quiet ? " (quiet; that services hear of it is made by the description)" : "")
                : "the problem ends of",
            id);
        machine::SetDeviceProblem(id, problem);
    };
}

static Action DevnodesChangedEvent(const TomlTable& event, Stage& stage) {
    const unsigned count = NumberIn(event, "devnodes_changed", 1, MostBroadcasts);
    return [&stage, count] {
        stage.timeline->Outside(
            fmt::format("{} broadcast{} of a changed tree, made by the description", count, count == 1 ? "" : "s"));
        machine::BroadcastTreeChanges(count);
    };
}

static Action HoldEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("hold");
    const std::string port = table.TextOf("port"), program = table.TextOf("program", "C:\\Tools\\term.exe");
    return [&stage, port, program] {
        machine::ProcessStart start;
        start.imagePath = program;
        start.commandLine = program;
        start.user = NamelessUser;
        start.rights = machine::Rights::User;
        start.administrator = false;
        start.session = 1;
        machine::Process* process = machine::StartScripted(start);
        const bool isHeld = machine::HoldPort(port, process);
        stage.timeline->Outside(fmt::format("{} {} {}", program, isHeld ? "opens" : "cannot open", port));
        if (!isHeld) {
            machine::EndProcess(process, 1);
        }
    };
}

static Action ReleaseEvent(const TomlTable& event, Stage& stage) {
    const std::string port = event.TextOf("release");
    return [&stage, port] {
        const bool wasHeld = machine::ReleasePort(port);
        stage.timeline->Outside(fmt::format("{} {}", port, wasHeld ? "is let go of" : "is held by nobody"));
    };
}

static Action DosNameEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("dos_name");
    const std::string name = table.TextOf("name"), target = table.TextOf("target");
    if (name.empty()) {
        throw InputError(table.At("name"), "'name' must not be empty");
    }
    const machine::Opens opens = OpensOf(table);
    const bool saysOpens = table.Has("opens");
    return [&stage, name, target, opens, saysOpens] {
        if (target.empty()) {
            stage.timeline->Outside(fmt::format("the DOS name {} is deleted", name));
            machine::TheDosNames().RemoveNewest(name, "outside");
            return;
        }
        stage.timeline->Outside(fmt::format("the DOS name {} is made ({})", name, target));
        machine::TheDosNames().Define(name, target, "outside");
        if (saysOpens) {
            machine::TheDosNames().SetOpens(name, opens);
        }
    };
}

static Action CalmEvent(const TomlTable&, Stage& stage) {
    return [&stage] {
        stage.timeline->Outside("from now on nothing fails, refuses or is held open");
        machine::CalmDown();
    };
}

constexpr EventRow Rows[] = {
    {"plug", PlugEvent}, {"unplug", UnplugEvent},   {"replug", ReplugEvent},
    {"move", MoveEvent}, {"problem", ProblemEvent}, {"devnodes_changed", DevnodesChangedEvent},
    {"hold", HoldEvent}, {"release", ReleaseEvent}, {"dos_name", DosNameEvent},
    {"calm", CalmEvent},
};

void CheckSockets(const std::vector<const TomlTable*>& events) {
    Sockets sockets;
    std::vector<std::pair<const machine::DeviceNode*, Position>> arrivals; // in one instant two may change places
    for (std::size_t i = 0; i < events.size(); ++i) {
        const TomlTable* event = events[i];
        const machine::DeviceNode* pulled = NodeIn(*event, "unplug");
        if (pulled && !sockets.IsIn(*pulled)) {
            throw InputError(event->At("unplug"), fmt::format("'{}' is not plugged in then", pulled->id));
        }
        sockets.Happen(*event);
        const TomlTable* move = event->TableOf("move");
        if (const machine::DeviceNode* plugged = move ? NodeIn(*move, "device") : NodeIn(*event, "plug")) {
            arrivals.emplace_back(plugged, move ? move->At("hub_port") : event->At("plug"));
        }
        if (i + 1 < events.size() && events[i + 1]->MsOf("at") == event->MsOf("at")) {
            continue;
        }
        for (const auto& [node, at] : arrivals) {
            const machine::DeviceNode* other = sockets.OtherOnSocketOf(*node);
            if (other && sockets.IsIn(*node)) {
                throw InputError(at, fmt::format("'{}' is on that hub port then: pull it out first", other->id));
            }
        }
        arrivals.clear();
    }
}

std::span<const EventRow> DeviceEventRows() {
    return Rows;
}

} // namespace rehearse
