#include "tests/storms/Judge.h"

#include "inventory/CComPorts.h"
#include "rehearse/LogOutput.h"
#include "rehearse/MachineFacts.h"

#include "simwin/devices/DeviceTree.h"
#include "simwin/devices/Devices.h"
#include "simwin/devices/Drivers.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Image.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/registry/Registry.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace storm {

namespace {

constexpr std::uint64_t SettlingMs = 1000; // shorter pauses are not looked into
constexpr std::uint64_t OwnChangeMs = 5000;
constexpr std::uint64_t LogStepMs = 100;
constexpr unsigned LargestDatabaseNumber = 256;

bool Says(const Device& device, std::string_view start) {
    return std::any_of(device.lines.begin(), device.lines.end(),
                       [&](const std::string& line) { return line.starts_with(start); });
}

bool IsNameWrite(const rehearse::WrittenValue& write) {
    return (machine::EqualNoCase(write.name, "PortName") || machine::EqualNoCase(write.name, "DosDeviceName")) &&
           write.before != write.after;
}

// The number in the brackets of a friendly name; 0 if there is none.
unsigned NumberInFriendlyName(const std::string& name) {
    const std::size_t at = name.rfind("(COM");
    return at == std::string::npos ? 0 : machine::ComNumberOf(name.substr(at + 1, name.find(')', at) - at - 1));
}

std::string Quoted(const std::string& line) {
    const std::size_t end = line.rfind('\''), start = line.rfind('\'', end - 1);
    return line.substr(start + 1, end - start - 1);
}

// Of a line of the log, in its steps: "14:03:26.8 ( 268) ...".
std::uint64_t LogTimeMs(const std::string& line) {
    unsigned hours = 0, minutes = 0, seconds = 0, tenths = 0;
    (void)std::sscanf(line.c_str(), "%u:%u:%u.%u", &hours, &minutes, &seconds, &tenths);
    return ((hours * 60ull + minutes) * 60 + seconds) * 1000 + tenths * LogStepMs;
}

std::string TargetOf(const std::string& name) {
    const machine::DosDefinition* definition = machine::TheDosNames().InForce(name);
    return definition ? definition->target : "";
}

std::vector<const CComPort*> Records(const rehearse::Stage& stage) {
    if (!stage.product || stage.product->ended)
        return {};
    const auto* table = static_cast<CComPorts**>(machine::ImageSymbol(stage.product->image, "g_pComPorts"));
    if (!table || !*table)
        return {};
    return {(*table)->Ports, (*table)->Ports + (*table)->PortCount};
}

bool IsMarked(const rehearse::Stage& stage, const std::string& device) {
    const machine::DeviceNode* node = machine::TheDeviceTree().FindById(device);
    const std::vector<const CComPort*> records = Records(stage);
    return std::any_of(records.begin(), records.end(), [&](const CComPort* record) {
        return node && record->DevInst == node->number && record->MarkedForRestart;
    });
}

bool IsOnRecord(const rehearse::Stage& stage, const machine::DeviceNode& node) {
    const std::vector<const CComPort*> records = Records(stage);
    return std::any_of(records.begin(), records.end(),
                       [&](const CComPort* record) { return record->DevInst == node.number && record->IsPresent; });
}

bool IsStubborn(const machine::DeviceNode& node) {
    return (node.driver && node.driver->handles > 0) || node.vetoesLeft != 0 || node.said.refuses.value_or(false) ||
           std::any_of(node.children.begin(), node.children.end(),
                       [](const machine::DeviceNode* child) { return IsStubborn(*child); });
}

} // namespace

void Judge::Watch() {
    m_stage.timeline->WatchWrites([this](const rehearse::WrittenValue& write) { OnWrite(write); });
}

void Judge::Schedule() {
    std::vector<Event> events = m_plan.events;
    for (Event& event : CalmEvents(m_plan, &m_settledAtMs)) {
        if (event.text.starts_with("resume"))
            m_lastCheckMs = event.atMs;
        events.push_back(std::move(event));
    }
    for (std::size_t i = 1; i < events.size(); ++i) {
        if (events[i].atMs - events[i - 1].atMs < SettlingMs)
            continue;
        machine::At(events[i].atMs - 1, machine::Due::Expectation, [this] {
            if (!m_stage.hasEnded)
                Look();
        });
    }
}

void Judge::Look() {
    if (!machine::IsAtRest())
        return;
    ++m_looks;
    JudgeRest();
    ReadLog();
    NoteExcuses();
    if (TheProduct())
        JudgePorts(RunningPorts());
}

void Judge::AtEnd() {
    ++m_looks;
    JudgeRest();
    ReadLog();
    if (!TheProduct()) {
        Complain("the product runs in the end", "it has ended");
        return;
    }
    NoteExcuses();
    JudgePorts(RunningPorts());
    JudgeRules(RunningPorts());
    // (c) One that shared its name at a start stays marked behind a hub port cycle and gets another free number at each
    // pass.
    for (const rehearse::WrittenValue& write : m_stage.timeline->Writes()) {
        const Device* device = RenamedPort(write);
        if (device && m_lastCheckMs && write.atMs >= m_lastCheckMs && !IsMarked(m_stage, device->id))
            Complain("a calm machine comes to rest",
                     fmt::format("{}: {} -> {} ({} ms)", device->id, write.before, write.after, write.atMs));
    }
}

// What the log has told since it was read last.
void Judge::ReadLog() {
    const std::vector<std::string> lines = rehearse::LogLines();
    for (std::size_t i = std::min(m_linesRead, lines.size()); i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (line.find("RegisterDeviceNotifications ") != std::string::npos)
            m_listensAtMs = machine::Now();
        if (line.find("CleanRegComPortArbiter(") != std::string::npos)
            m_cleanedAtMs = machine::Now();
        JudgeOwnRestarts(line);
        // (j) Nor does it see that the port is pulled out meanwhile: without a hub port that counts as fatal.
        if (line.find("INT3 in") != std::string::npos && line.find("BuildUsbPortName") == std::string::npos &&
            !HasFailed())
            Complain("no fatal line", line);
        // (a) A link is told by its kernel name alone. So a removal, or the end of a renaming, may take the link of the
        // name's owner, of a device that has come to the kernel name meanwhile, or of the same one that is back
        // already.
        if (line.find(" DDN '") != std::string::npos && line.ends_with("' removed"))
            m_removedAtMs[Quoted(line)] = machine::Now();
        if (const std::size_t at = line.find("old COM"); at != std::string::npos && line.ends_with("-> delete"))
            m_removedAtMs[line.substr(at + 4, line.find(' ', at + 4) - at - 4)] = machine::Now();
        // (h) So is who has two names: the port may be another one, and its record shows the deleted name.
        if (const std::size_t at = line.find(" has two Win32 names: "); at != std::string::npos)
            for (const std::string& name : machine::Split(line.substr(at), ' '))
                m_removedAtMs[name.substr(0, name.find(','))] = machine::Now();
    }
    m_linesRead = lines.size();
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries())
        if (entry.isOutside && entry.what.starts_with("the DOS name ") && entry.what.ends_with(" is deleted"))
            m_removedAtMs[machine::Split(entry.what, ' ')[3]] = entry.atMs;
}

// Who keeps the port from being restarted, a program or the device itself. A restart may be that of a device above it,
// up to its hub, and then counts what all that hangs there says.
bool Judge::IsHindered(const Device& device) const {
    const machine::DeviceNode* node = machine::TheDeviceTree().FindById(device.id);
    while (node && !node->IsHub() && !IsStubborn(*node))
        node = node->parent;
    return node && IsStubborn(*node);
}

// The port that a write to its registry name is about; null for another key.
const Device* Judge::RenamedPort(const rehearse::WrittenValue& write) const {
    for (const Device& device : m_plan.devices) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(device.id);
        if (device.isPort && node && IsNameWrite(write) &&
            machine::EqualNoCase(write.key, node->enumPath + "\\Device Parameters"))
            return &device;
    }
    return nullptr;
}

std::vector<Judge::Running> Judge::RunningPorts() const {
    std::vector<Running> ports;
    for (const Device& device : m_plan.devices) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(device.id);
        if (!device.isPort || !node || !node->IsRunning() || !node->driver)
            continue;
        ports.push_back({&device, node, machine::RegistryNameOf(*node), machine::DosNameOf(*node), node->driver->name});
        ports.back().isBound = IsBound(ports.back());
    }
    // What waits for its next start keeps the name that another one has by now.
    for (Running& port : ports) {
        const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(TargetOf(port.name));
        port.isBound &= std::none_of(ports.begin(), ports.end(), [&](const Running& other) {
            return owner && owner->node == other.node && other.node != port.node && !other.isBound;
        });
    }
    return ports;
}

bool Judge::IsBound(const Running& port) const {
    const std::string target = TargetOf(port.name);
    const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(target);
    // A link that stays behind a driver, or that somebody laid there, keeps a driver from its name.
    if (!target.empty() &&
        (!owner || (owner->node != port.node && owner->link != machine::TheDosNames().InForce(port.name)->id)))
        return false;
    // A driver that takes a name that another one has comes first, whenever it comes.
    if (owner && owner->node != port.node && owner->node->said.nameTaken == machine::NameTaken::Take)
        return false;
    // A driver that found its name taken does not try again when it is free.
    const rehearse::TimelineEntry* start = LastStart(port.device->id);
    if (start && start->to.empty() && (start->what == "restarts" || start->what.starts_with("runs without")) &&
        (target.empty() || (owner && LastStartMs(owner->node->id) > start->atMs)))
        return false;
    // A link that goes after its driver takes that of the next one with it.
    if (target.empty() && Says(*port.device, "link_goes"))
        return false;
    const std::uint64_t ranAtMs = LastStartMs(port.device->id);
    // A modem is not found by its interface: where no hub cycles its port nothing restarts it.
    const rehearse::WrittenValue moved = LastMove(*port.device);
    if (Says(*port.device, "kind = \"modem\"") && !moved.name.empty() && moved.atMs >= ranAtMs)
        return false;
    // (c) One that stays marked is given another number at each arrival behind a restart that is put off.
    if (IsMarked(m_stage, port.device->id) && !moved.name.empty() && moved.atMs >= ranAtMs)
        return false;
    // Nobody hears of what starts without its interfaces, or while they stay as they were.
    if (IsQuietStart(*port.device) ||
        std::none_of(port.node->interfaces.begin(), port.node->interfaces.end(), [](const auto& i) { return i->up; }))
        return false;
    // Nobody hears of what comes while the service starts and does not listen yet.
    if (start && IsUnheard(ranAtMs) && (start->isOutside || !IsOnRecord(m_stage, *port.node)))
        return false;
    const auto isSince = [ranAtMs](const auto& times, const auto& of) {
        const auto found = times.find(of);
        return found != times.end() && ranAtMs <= found->second;
    };
    return !IsTwin(port) && !isSince(m_excusedAtMs, port.device) && !isSince(m_removedAtMs, port.name) &&
           !HasFailedSince(ranAtMs);
}

// A call that failed, or somebody who does not let go, excuses what follows from it until the port starts anew.
void Judge::NoteExcuses() {
    std::uint64_t failed = 0;
    for (const machine::Fault& fault : machine::Faults())
        failed += fault.error ? fault.acted : 0;
    if (failed > m_failed)
        m_failedAtMs = machine::Now();
    m_failed = failed;
    for (const Running& port : RunningPorts())
        if (TargetOf(port.name) != port.kernel && IsHindered(*port.device))
            m_excusedAtMs[port.device] = machine::Now();
}

void Judge::JudgePorts(const std::vector<Running>& ports) {
    // What was taken out or disabled is put in again, unless a call fails or the device refuses.
    for (const machine::DeviceNode* node : machine::TheDeviceTree().All())
        if (node->IsPresent() && node->openRestart && !HasFailed() && !node->said.refuses.value_or(false))
            Complain("nothing is left out", node->id);
    for (const Running& port : ports) {
        for (const Running& other : ports)
            if (&other < &port && port.isBound && other.isBound && machine::ComNumberOf(port.name) &&
                machine::EqualNoCase(port.name, other.name))
                Complain("registry names differ",
                         fmt::format("{} and {} are both {}", other.device->id, port.device->id, port.name));
        if (port.isBound && machine::ComNumberOf(port.name) && TargetOf(port.name) != port.kernel)
            Complain(
                "a running driver has its registry name",
                fmt::format("{} ({}): {} leads to '{}'", port.device->id, port.kernel, port.name, TargetOf(port.name)));
        const unsigned number = machine::ComNumberOf(port.dosName);
        if (port.isBound && number && number <= LargestDatabaseNumber && !machine::ComDbTest(number) &&
            m_bitTakenAtMs[port.device] < LastStartMs(port.device->id) && !IsCleanedInSwap(*port.device))
            Complain("the database has every present number", fmt::format("{}: {}", port.device->id, port.dosName));
        const unsigned friendly = NumberInFriendlyName(machine::FriendlyNameOf(*port.node));
        if (port.isBound && friendly && machine::ComNumberOf(port.name) && friendly != machine::ComNumberOf(port.name))
            Complain("registry name and friendly name agree",
                     fmt::format("{}: {} and '{}'", port.device->id, port.name, machine::FriendlyNameOf(*port.node)));
    }
    JudgeRecords(ports);
}

void Judge::JudgeRecords(const std::vector<Running>& ports) {
    for (const CComPort* record : Records(m_stage)) {
        const auto port = std::find_if(ports.begin(), ports.end(),
                                       [&](const Running& p) { return p.node->number == record->DevInst; });
        if (port == ports.end() || !port->isBound || !record->IsPresent || record->szPortName[0] == 0)
            continue;
        const std::string target = TargetOf(record->szPortName);
        if (target != port->kernel)
            Complain("a name that a record claims leads to its port",
                     fmt::format("{} ({}): the record has {}, which leads to '{}'", port->device->id, port->kernel,
                                 record->szPortName, target));
    }
}

// No port stands behind what its section wants while a number that it likes better is free.
void Judge::JudgeRules(const std::vector<Running>& ports) {
    for (const Running& port : ports) {
        const Section* section = FittingSection(m_plan.configurations.back(), *port.device);
        // (i) With no check of all ports two that share a number may move for each other without end.
        const auto shared = m_excusedAtMs.find(port.device);
        if (m_plan.switches.debugRole && shared != m_excusedAtMs.end() && shared->second >= m_plan.calmAtMs)
            continue;
        if (!section || !port.isBound || !port.name.starts_with("COM"))
            continue;
        for (const unsigned number : section->wants) {
            const std::string wanted = fmt::format("COM{}", number);
            if (machine::EqualNoCase(wanted, port.name))
                break;
            const bool isTaken = !TargetOf(wanted).empty() ||
                                 std::any_of(ports.begin(), ports.end(),
                                             [&](const auto& p) { return machine::EqualNoCase(p.name, wanted); });
            if (!isTaken)
                Complain("every rule that can be met is met",
                         fmt::format("{} is {} and {} is free", port.device->id, port.name, wanted));
        }
    }
}

// A port whose name is written is excused until it starts anew where the order of steps leaves it behind.
void Judge::OnWrite(const rehearse::WrittenValue& write) {
    const Device* device = RenamedPort(write);
    if (!device)
        return;
    NoteExcuses();
    // Of two that are to swap the one that does as it is told comes back without its record.
    if (IsHindered(*device))
        m_excusedAtMs[device] = write.atMs + OwnChangeMs;
    bool isShared = false;
    for (const Device& other : m_plan.devices) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(other.id);
        if (&other == device || !other.isPort || !node)
            continue;
        const std::string name = machine::RegistryNameOf(*node);
        // It may just be on its way through a restart.
        const rehearse::WrittenValue moved = LastMove(other);
        const bool isOnItsWay = !moved.name.empty() && write.atMs - moved.atMs <= OwnChangeMs;
        isShared |= machine::EqualNoCase(name, write.before) && (node->IsPresent() || isOnItsWay);
        // (a) A record has the number that its port left until that comes anew.
        for (const rehearse::WrittenValue& earlier : m_stage.timeline->Writes())
            isShared |= RenamedPort(earlier) == &other && machine::EqualNoCase(earlier.before, write.before) &&
                        (LastStartMs(other.id) <= earlier.atMs || write.atMs - earlier.atMs <= OwnChangeMs);
        // (i) A number counts as free while the port that has it in the registry has no DOS name: its restart is put
        // off, or it is away for a moment. Who is given it may take the owner's name for its own, and one of them has
        // none until it comes anew. Likewise where two came with one name and the one that has the link is moved.
        const bool isOwner = node->driver && TargetOf(name) == node->driver->name;
        if (machine::EqualNoCase(name, write.after) && TargetOf(name).empty())
            m_excusedAtMs[device] = m_excusedAtMs[&other] = write.atMs + OwnChangeMs;
        if (machine::EqualNoCase(name, write.before) && !isOwner)
            m_excusedAtMs[&other] = write.atMs + OwnChangeMs;
        // (b) A renamed port takes the bit of its old name out of the database, also when another port has that name.
        if (machine::EqualNoCase(machine::DosNameOf(*node), write.before))
            m_bitTakenAtMs[&other] = write.atMs;
    }
    const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(TargetOf(write.before));
    isShared |= owner && !machine::EqualNoCase(owner->node->id, device->id);
    // (a) Nothing tells the second of two arrivals of one device that the first has moved it.
    const rehearse::WrittenValue moved = LastMove(*device);
    isShared |= !moved.name.empty() && write.atMs - moved.atMs <= OwnChangeMs && Says(*device, "interfaces");
    // What the scan at the start finds by its DOS name alone is a port without a device, present until the next start.
    for (const CComPort* record : Records(m_stage))
        isShared |= record->DeviceID[0] == 0 && machine::EqualNoCase(record->szRegPortName, write.before);
    m_moves[device] = write;
    if (IsNeverMeant(m_plan, *device) && !isShared && !HasFailedSince(LastStartMs(device->id)))
        Complain("nobody takes a number from a port without a rule",
                 fmt::format("{}: {} -> {}", device->id, write.before, write.after));
}

// The last write to the port's name; all zero if there was none.
rehearse::WrittenValue Judge::LastMove(const Device& device) const {
    const auto found = m_moves.find(&device);
    return found != m_moves.end() ? found->second : rehearse::WrittenValue{};
}

std::uint64_t Judge::LastStartMs(const std::string& device) const {
    const rehearse::TimelineEntry* start = LastStart(device);
    return start ? start->atMs : 0;
}

// When and how the port came to run last; null if it has run all the time.
const rehearse::TimelineEntry* Judge::LastStart(const std::string& device) const {
    const rehearse::TimelineEntry* last = nullptr;
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries())
        if (entry.device == device && (entry.what.starts_with("runs") || entry.what == "restarts"))
            last = &entry;
    return last;
}

// What the product makes of the removals and arrivals that its own restarts cause, by the threads of its log.
void Judge::JudgeOwnRestarts(const std::string& line) {
    const std::size_t braceAt = line.find('{');
    if (braceAt == std::string::npos)
        return; // written before the product knows its mode, when the log could not be made at once
    const std::string thread = line.substr(braceAt, line.find('}') - braceAt);
    const std::uint64_t nowMs = LogTimeMs(line);
    const auto isOwn = [&](const std::string& device) {
        const auto found = m_ownRestartMs.find(device);
        return !device.empty() && found != m_ownRestartMs.end() && nowMs - found->second < OwnChangeMs - LogStepMs;
    };
    if (line.ends_with(" WinMain ------------------")) {
        m_ownRestartMs.clear();
        m_arrivedBy.clear();
        m_dropped.clear();
    }
    if (const std::size_t at = line.find("devid='"); at != std::string::npos)
        m_checkedBy[thread] = Quoted(line);
    if (line.ends_with(" to appear..."))
        m_ownRestartMs[m_checkedBy[thread]] = nowMs;
    if (line.find("restart this later") != std::string::npos)
        m_ownRestartMs.erase(m_checkedBy[thread]);
    if (line.find("> RemovePort(") != std::string::npos) {
        if (isOwn(DeviceOf(line)))
            Complain("the removal of an own restart is ignored", line);
        m_ownRestartMs.erase(DeviceOf(line));
    }
    if (line.find("> ComPortArrived(") != std::string::npos)
        m_arrivedBy[thread] = DeviceOf(line);
    if (line.find("> CheckComPortAssignment(") != std::string::npos && isOwn(m_arrivedBy[thread]))
        Complain("the arrival of an own restart is not checked", line);
    // The number of a thread that has ended comes back.
    if (line.find("> CheckComPortAssignment") != std::string::npos || line.ends_with("> port not added"))
        m_arrivedBy.erase(thread);
    // (d) A swap in front of the first notification leaves its marks: the next removal and arrival of both are dropped.
    // Its own arrivals are dropped as they should be; no mark drops two.
    if (line.find("SwapPortNumbers(") != std::string::npos)
        m_dropped.clear();
    if (line.find("+++ New dev ") != std::string::npos || line.ends_with("DBT_DEVICEREMOVECOMPLETE"))
        m_arrival = DeviceOf(line);
    if (!line.ends_with("the device we are just restarting -> abort") || m_arrival.empty())
        return;
    if (++m_dropped[m_arrival] > 1)
        Complain("a mark drops one arrival", m_arrival);
    std::uint64_t swappedAtMs = 0;
    for (const machine::DeviceRestart& restart : machine::DeviceRestarts())
        if (restart.device == m_arrival && restart.means == "remove-and-setup")
            swappedAtMs = restart.atMs;
    for (const Device& device : m_plan.devices)
        if (device.id == m_arrival && LastStartMs(device.id) > swappedAtMs + OwnChangeMs)
            m_excusedAtMs[&device] = machine::Now();
}

// The port whose path stands in the line; "" for none.
std::string Judge::DeviceOf(const std::string& line) const {
    for (const Device& device : m_plan.devices) {
        std::string path = device.id;
        std::replace(path.begin(), path.end(), '\\', '#');
        if (device.isPort && machine::FindNoCase(line, path + "#") != std::string::npos)
            return device.id;
    }
    return "";
}

// What runs then was there before the product listened, so no arrival told of it.
bool Judge::IsUnheard(std::uint64_t ranAtMs) const {
    std::uint64_t startedAtMs = 0;
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries())
        if (entry.what == "service is START_PENDING")
            startedAtMs = entry.atMs;
    return ranAtMs <= m_listensAtMs || m_listensAtMs < startedAtMs;
}

// Its last start was the end of a problem of which its interfaces told nothing.
bool Judge::IsQuietStart(const Device& device) const {
    bool isQuiet = false, wasQuiet = false;
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries()) {
        if (entry.what.starts_with("problem ") && entry.what.find("(quiet") != std::string::npos)
            isQuiet |= entry.device == device.id;
        if (entry.device == device.id && (entry.what.starts_with("runs") || entry.what == "restarts"))
            wasQuiet = std::exchange(isQuiet, false);
    }
    return wasQuiet;
}

// (b) The bit of a number goes with a clean-up while its port is out for a swap, whose arrival sets none.
bool Judge::IsCleanedInSwap(const Device& device) const {
    const rehearse::TimelineEntry* start = LastStart(device.id);
    return start && start->means == "remove-and-setup" && start->atMs <= m_cleanedAtMs + OwnChangeMs;
}

// One of two that came with one name before the product listened: nothing is done about it while no rule moves it and
// it does not come anew, and when the other one leaves with the link it still has none.
bool Judge::IsTwin(const Running& port) const {
    const std::string line = fmt::format("port_name = \"{}\"", port.name);
    return TargetOf(port.name) != port.kernel && IsUnheard(LastStartMs(port.device->id)) &&
           std::any_of(m_plan.devices.begin(), m_plan.devices.end(), [&](const Device& other) {
               const machine::DeviceNode* node = machine::TheDeviceTree().FindById(other.id);
               return &other != port.device && other.isPort &&
                      (Says(other, line) || (node && machine::EqualNoCase(machine::RegistryNameOf(*node), port.name)));
           });
}

void Judge::AfterStop(std::size_t leakedHandles) {
    Rest::AfterStop(HasFailed() ? 0 : leakedHandles, m_plan.switches.slow);
}

} // namespace storm
