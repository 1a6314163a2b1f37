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

namespace storm {

namespace {

constexpr std::uint64_t SettlingMs = 1000; // shorter pauses are not looked into
constexpr std::uint64_t OwnChangeMs = 5000;
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

std::string TargetOf(const std::string& name) {
    const machine::DosDefinition* definition = machine::TheDosNames().InForce(name);
    return definition ? definition->target : "";
}

std::vector<const CComPort*> Records(const rehearse::Stage& stage) {
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
        const bool isCalm = events[i].atMs > m_settledAtMs;
        machine::At(events[i].atMs - 1, machine::Due::Expectation, [this, isCalm] {
            if (!m_stage.hasEnded)
                Look(isCalm);
        });
    }
}

void Judge::Look(bool isCalm) {
    if (!machine::IsAtRest())
        return;
    ++m_looks;
    JudgeRest();
    ReadLog();
    if (TheProduct())
        JudgePorts(isCalm);
}

void Judge::AtEnd() {
    ++m_looks;
    JudgeRest();
    ReadLog();
    if (!TheProduct()) {
        Complain("the product runs in the end", "it has ended");
        return;
    }
    JudgePorts(/*isCalm=*/true);
    JudgeRules(RunningPorts(/*isCalm=*/true));
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
        if (const std::size_t at = line.find(" has two Win32 names: "); at != std::string::npos)
            for (const std::string& name : machine::Split(line.substr(at), ' '))
                m_removedAtMs[name.substr(0, name.find(','))] = machine::Now();
        // And a link that the service makes, to restore another port's or in quick mode, is not the driver's: it stays
        // when that port goes, in quick mode once the service was started anew.
        if (line.find(" has lost its DDN '") != std::string::npos)
            m_ownNames.insert(Quoted(line));
        if (const std::size_t at = line.find(" created as "); at != std::string::npos && m_plan.switches.stops)
            m_ownNames.insert(line.substr(line.rfind(' ', at - 1) + 1, at - line.rfind(' ', at - 1) - 1));
    }
    m_linesRead = lines.size();
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries())
        if (entry.isOutside && entry.what.starts_with("the DOS name ") && entry.what.ends_with(" is deleted"))
            m_removedAtMs[machine::Split(entry.what, ' ')[3]] = entry.atMs;
}

// What keeps a port from its name while the world shakes, without a fault of the product's.
bool Judge::IsHindered(const Device& device) const {
    if (m_plan.switches.stubborn)
        return true;
    // The class installer's list of ports does not have a modem: without a hub that cycles its port nothing restarts
    // it.
    if (Says(device, "kind = \"modem\"") && !Says(device, "interfaces"))
        return true;
    // (e) A port that is not on USB and seems to have come along with an upper device 0 waits for its restart for ever.
    if (device.parent.empty() && (m_plan.switches.atBoot || m_plan.switches.atWrap))
        return true;
    return IsTwin(device);
}

// One of two that came with one name: nothing is done about it while no rule and no arrival moves one of them.
bool Judge::IsTwin(const Device& device) const {
    return std::any_of(m_plan.devices.begin(), m_plan.devices.end(), [&](const Device& other) {
        return &other != &device && std::any_of(other.lines.begin(), other.lines.end(), [&](const std::string& line) {
            return line.starts_with("port_name") && Says(device, line);
        });
    });
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

std::vector<Judge::Running> Judge::RunningPorts(bool isCalm) const {
    std::vector<Running> ports;
    for (const Device& device : m_plan.devices) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(device.id);
        if (!device.isPort || !node || !node->IsRunning() || !node->driver)
            continue;
        Running port{&device, node, machine::RegistryNameOf(*node), machine::DosNameOf(*node), node->driver->name,
                     true};
        // A link that stays behind a driver, or that somebody laid there, keeps a driver from its name.
        const std::string target = TargetOf(port.name);
        const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(target);
        const bool isDeadLink =
            !target.empty() &&
            (!owner || (owner->node != node && owner->link != machine::TheDosNames().InForce(port.name)->id));
        // A modem is not found by its interface: without a hub that cycles its port nothing restarts it.
        const bool isLeftAlone = Says(device, "kind = \"modem\"") &&
                                 std::string_view(m_plan.windows.front()).find("6.1") != std::string::npos;
        port.isBound = !isDeadLink && !isLeftAlone && !m_ownNames.contains(port.name) && !Says(device, "leaves_link") &&
                       !Says(device, "link_goes") && (isCalm || !IsHindered(device));
        const rehearse::TimelineEntry* start = LastStart(device.id);
        const std::uint64_t ranAtMs = start ? start->atMs : 0;
        // A driver that found its name taken does not try again when it is free.
        const bool hasComeTooEarly =
            target.empty() && start &&
            (start->what.starts_with("runs without") || (start->what == "restarts" && start->to.empty()));
        port.isBound &= !hasComeTooEarly && !IsStillMarked(device.id);
        const auto shared = m_sharedAtMs.find(&device);
        if (shared != m_sharedAtMs.end() &&
            (ranAtMs <= shared->second + OwnChangeMs || IsNameOfOther(device, port.name)))
            port.isBound = false;
        const auto removed = m_removedAtMs.find(port.name);
        if (removed != m_removedAtMs.end() && ranAtMs <= removed->second)
            port.isBound = false;
        ports.push_back(std::move(port));
    }
    // What waits for its next start keeps the name that another one has by now.
    for (Running& port : ports) {
        const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(TargetOf(port.name));
        for (const Running& other : ports)
            if (owner && owner->node == other.node && other.node != port.node && !other.isBound)
                port.isBound = false;
    }
    return ports;
}

void Judge::JudgePorts(bool isCalm) {
    // A call that failed excuses what follows from it until every device has come anew in the calm.
    if (!isCalm && (HasFailed() || m_plan.switches.uninstalls))
        return;
    const std::vector<Running> ports = RunningPorts(isCalm);
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
            !IsBitOfOther(port))
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
        if (target != port->kernel && machine::TheDeviceTree().RunningDevice(target))
            Complain("a name that a record claims leads to its port",
                     fmt::format("{} ({}): the record has {}, which leads to '{}'", port->device->id, port->kernel,
                                 record->szPortName, target));
        if (target.empty())
            Complain("a name that a record claims is there",
                     fmt::format("{} ({}): {}", port->device->id, port->kernel, record->szPortName));
    }
}

// No port stands behind what its section wants while a number that it likes better is free.
void Judge::JudgeRules(const std::vector<Running>& ports) {
    for (const Running& port : ports) {
        const Section* section = FittingSection(m_plan.configurations.back(), *port.device);
        if (!section || !port.isBound || m_sharedAtMs.contains(port.device) || !port.name.starts_with("COM"))
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

bool Judge::IsNameOfOther(const Device& device, const std::string& name) const {
    return std::any_of(m_plan.devices.begin(), m_plan.devices.end(), [&](const Device& other) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(other.id);
        return &other != &device && other.isPort && node && machine::EqualNoCase(machine::RegistryNameOf(*node), name);
    });
}

// (i) A number counts as free while the port that has it in the registry has no DOS name: its restart is put off, or it
// is away for a moment. Who is given it may take the owner's name for its own, and one of them has none until it comes
// anew.
// Likewise where two came with one name and the one that has the link is moved.
void Judge::NoteNumberOfOther(const Device& device, const rehearse::WrittenValue& write) {
    for (const Device& other : m_plan.devices) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(other.id);
        if (&other == &device || !other.isPort || !node)
            continue;
        const std::string name = machine::RegistryNameOf(*node);
        if (machine::EqualNoCase(name, write.before))
            m_movedAtMs[&other] = write.atMs;
        if (machine::EqualNoCase(name, write.after) && TargetOf(name).empty())
            m_sharedAtMs[&device] = m_sharedAtMs[&other] = write.atMs;
        const bool isOwner = node->driver && TargetOf(name) == node->driver->name;
        if (machine::EqualNoCase(name, write.before) && !isOwner)
            m_sharedAtMs[&other] = write.atMs;
    }
}

void Judge::OnWrite(const rehearse::WrittenValue& write) {
    const Device* device = RenamedPort(write);
    if (!device)
        return;
    NoteNumberOfOther(*device, write);
    if (!IsNeverMeant(m_plan, *device) || (HasFailed() && machine::Now() < m_settledAtMs))
        return;
    // (a) Nothing tells the second of two arrivals of one device that the first has moved it, and the record of a moved
    // port has the number that it left until the port comes anew.
    const auto& writes = m_stage.timeline->Writes();
    const bool isStillOnRecord = std::any_of(writes.begin(), writes.end(), [&](const auto& earlier) {
        const Device* other = RenamedPort(earlier);
        if (!other || other == device || !machine::EqualNoCase(earlier.before, write.before))
            return false;
        const rehearse::TimelineEntry* start = LastStart(other->id);
        return !start || start->atMs <= earlier.atMs;
    });
    // Nor is the second of two that came with one name left alone when the first has been moved.
    const auto isJustNow = [&](const auto& times) {
        const auto found = times.find(device);
        return found != times.end() && write.atMs - found->second <= OwnChangeMs;
    };
    const bool isMovedAlready = isJustNow(m_movedAtMs) || isJustNow(m_sharedAtMs);
    // The other one may just be on its way through a restart.
    const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(TargetOf(write.before));
    const bool isLinkOfOther = owner && !machine::EqualNoCase(owner->node->id, device->id);
    if (!IsNameOfOther(*device, write.before) && !isLinkOfOther && !isMovedAlready && !isStillOnRecord)
        Complain("nobody takes a number from a port without a rule",
                 fmt::format("{}: {} -> {}", device->id, write.before, write.after));
    m_movedAtMs[device] = write.atMs;
}

// When and how the port came to run last; null if it has run all the time.
const rehearse::TimelineEntry* Judge::LastStart(const std::string& device) const {
    const rehearse::TimelineEntry* last = nullptr;
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries())
        if (entry.device == device && (entry.what.starts_with("runs") || entry.what == "restarts"))
            last = &entry;
    return last;
}

// The last moment at which the product looked at the port for certain: it came to run, or everything was checked.
std::uint64_t Judge::LastLookedAtMs(const std::string& device) const {
    const rehearse::TimelineEntry* start = LastStart(device);
    std::uint64_t last = start ? start->atMs : 0;
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries())
        if (entry.atMs >= m_plan.calmAtMs && entry.what.starts_with("the machine wakes"))
            last = std::max(last, entry.atMs);
    return last;
}

// (d) A swap in front of the first notification leaves its marks: the next removal and arrival of both are dropped.
bool Judge::IsStillMarked(const std::string& device) const {
    std::uint64_t swappedAtMs = 0;
    for (const machine::DeviceRestart& restart : machine::DeviceRestarts())
        if (restart.device == device && restart.means == "remove-and-setup")
            swappedAtMs = restart.atMs + OwnChangeMs;
    const auto& entries = m_stage.timeline->Entries();
    const auto isArrival = [&](const rehearse::TimelineEntry& entry) {
        return entry.device == device && entry.atMs > swappedAtMs && entry.what.starts_with("runs");
    };
    return swappedAtMs != 0 && std::count_if(entries.begin(), entries.end(), isArrival) <= 1;
}

// (b) A renamed port takes the bit of its old name out of the database, also when another port has that name; it comes
// back with that one's next check.
bool Judge::IsBitOfOther(const Running& port) const {
    const std::uint64_t lookedAtMs = LastLookedAtMs(port.device->id);
    return std::any_of(m_stage.timeline->Writes().begin(), m_stage.timeline->Writes().end(), [&](const auto& write) {
        return IsNameWrite(write) && write.atMs >= lookedAtMs && machine::EqualNoCase(write.before, port.dosName) &&
               machine::FindNoCase(write.key, port.node->enumPath) == std::string::npos;
    });
}

void Judge::AfterStop(std::size_t leakedHandles) {
    Rest::AfterStop(HasFailed() ? 0 : leakedHandles, m_plan.switches.slow);
}

} // namespace storm
