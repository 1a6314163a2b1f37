#include "tests/storms/Judge.h"

#include "inventory/ports/CComPorts.h"
#include "rehearse/watch/LogOutput.h"
#include "rehearse/watch/MachineFacts.h"

#include "simwin/devices/drivers/Drivers.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Image.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/registry/Registry.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <numeric>

extern CComPorts* g_portsOfImage asm("image_g_pComPorts"); // the image's names are not those of the source

namespace storm {

constexpr std::uint64_t SettlingMs = 1000; // shorter pauses are not looked into
constexpr unsigned LargestDatabaseNumber = 256;

static bool Says(const Device& device, std::string_view start) {
    return std::any_of(device.lines.begin(), device.lines.end(),
                       [&](const std::string& line) { return line.starts_with(start); });
}

static bool IsNameWrite(const rehearse::WrittenValue& write) {
    return (machine::EqualNoCase(write.name, "PortName") || machine::EqualNoCase(write.name, "DosDeviceName")) &&
           write.before != write.after;
}

// The number in the brackets of a friendly name; 0 if there is none.
static unsigned NumberInFriendlyName(const std::string& name) {
    const std::size_t at = name.rfind("(COM");
    return at == std::string::npos ? 0 : machine::ComNumberOf(name.substr(at + 1, name.find(')', at) - at - 1));
}

static bool IsPathIn(const std::string& line, const Device& device) {
    std::string path = device.id;
    std::replace(path.begin(), path.end(), '\\', '#');
    return device.isPort && machine::FindNoCase(line, path + "#") != std::string::npos;
}

static std::string TargetOf(const std::string& name) {
    const machine::DosDefinition* definition = machine::TheDosNames().InForce(name);
    return definition ? definition->target : "";
}

static std::vector<const CComPort*> Records(const rehearse::Stage& stage) {
    if (!stage.product || stage.product->ended) {
        return {};
    }
    const auto* table = static_cast<CComPorts* const*>(machine::GlobalOf(*stage.product, &g_portsOfImage));
    if (!table || !*table) {
        return {};
    }
    return {(*table)->Ports, (*table)->Ports + (*table)->PortCount};
}

static const CComPort* RecordOf(const rehearse::Stage& stage, const machine::DeviceNode& node) {
    for (const CComPort* record : Records(stage)) {
        if (record->IsUsed && record->DevInst == node.number) {
            return record;
        }
    }
    return nullptr;
}

static bool IsStubborn(const machine::DeviceNode& node) {
    return (node.driver && node.driver->handles > 0) || node.vetoesLeft != 0 || node.said.refuses.value_or(false) ||
           std::any_of(node.children.begin(), node.children.end(),
                       [](const machine::DeviceNode* child) { return IsStubborn(*child); });
}

void Judge::Watch() {
    m_stage.timeline->WatchWrites([this](const rehearse::WrittenValue& write) { OnWrite(write); });
    m_stage.timeline->WatchCalls([this](const char* name, const char* object) {
        OnCall(name);
        NoteCall(name, object);
    });
    machine::DeviceObserver observer = machine::TheDeviceObserver();
    observer.dosNameChanged = [this, first = observer.dosNameChanged](const machine::DosNameChange& change) {
        first(change);
        OnDosName(change);
    };
    machine::SetDeviceObserver(std::move(observer));
}

void Judge::Schedule() {
    std::vector<Event> events = m_plan.events;
    CalmTimes times;
    std::ranges::move(CalmEvents(m_plan, &times), std::back_inserter(events));
    m_lastCheckMs = times.lastCheckMs;
    for (std::size_t i = 1; i < events.size(); ++i) {
        if (events[i].atMs - events[i - 1].atMs < SettlingMs) {
            continue;
        }
        machine::At(events[i].atMs - 1, machine::Due::Expectation, [this] {
            if (!m_stage.hasEnded) {
                Look();
            }
        });
    }
}

void Judge::Look() {
    if (!machine::IsAtRest()) {
        return;
    }
    ++m_looks;
    // A stop waits ten seconds for a thread in a slow call.
    if (m_plan.switches.slow && !TheProduct()) {
        NoteEnd();
    }
    JudgeRest();
    ReadLog();
    NoteExcuses();
    if (TheProduct()) {
        JudgePorts(RunningPorts());
    }
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
    JudgeMoves();
    JudgeLeftNumbers();
}

// A number that a port is about to leave is forgotten with the service, and a device removed from the registry keeps
// its bit, as on Windows.
void Judge::JudgeLeftNumbers() {
    const Switches& switches = m_plan.switches;
    if (HasFailed() || switches.stops || switches.power || switches.uninstalls) {
        return;
    }
    for (const auto& write : m_stage.timeline->Writes()) {
        const unsigned number = RenamedPort(write) ? machine::ComNumberOf(write.before) : 0;
        if (!number || number > LargestDatabaseNumber || !machine::ComDbTest(number) ||
            !TargetOf(write.before).empty()) {
            continue;
        }
        if (std::none_of(m_plan.devices.begin(), m_plan.devices.end(), [&](const Device& other) {
                const machine::DeviceNode* node = machine::TheDeviceTree().FindById(other.id);
                return node && machine::EqualNoCase(machine::RegistryNameOf(*node), write.before);
            })) {
            Complain("a number that was left is free in the database",
                     fmt::format("{} ({} ms)", write.before, write.atMs));
        }
    }
}

void Judge::JudgeMoves() {
    for (const rehearse::WrittenValue& write : m_stage.timeline->Writes()) {
        const Device* device = RenamedPort(write);
        if (!device || !m_lastCheckMs || write.atMs < m_lastCheckMs) {
            continue;
        }
        Complain("a calm machine comes to rest",
                 fmt::format("{}: {} -> {} ({} ms)", device->id, write.before, write.after, write.atMs));
    }
}

// The effect of a call is seen at the next one: no time passes in between.
void Judge::OnCall(std::string_view name) {
    const std::uint64_t failed =
        std::transform_reduce(machine::Faults().begin(), machine::Faults().end(), std::uint64_t{0}, std::plus<>(),
                              [](const machine::Fault& fault) { return fault.error ? fault.acted : 0; });
    if (failed > m_failed) {
        m_failedAtMs = machine::Now();
    }
    m_failed = failed;
    // After a move the log is another file.
    if (m_isLogWritten || name == "MoveFileA") {
        ReadLog();
    }
    m_isLogWritten = name == "WriteFile";
    if (name == "RegisterDeviceNotificationA" && IsStarting()) {
        m_listensAtMs = machine::Now();
    }
}

// A check that a failed call cut off is repeated by the next start, not by one in progress.
bool Judge::HasFailedSince(std::uint64_t ranAtMs) const {
    return m_failed != 0 && ranAtMs <= m_failedAtMs + OwnChangeMs;
}

void Judge::ReadLog() {
    const machine::FileNode* log = machine::TheFiles().Find(rehearse::LogFilePath());
    if (log != m_log || !log || log->content.size() < m_logRead) {
        m_logRead = 0;
    }
    m_log = log;
    for (std::size_t end; log && (end = log->content.find("\r\n", m_logRead)) != std::string::npos;) {
        const std::string line = log->content.substr(m_logRead, end - m_logRead);
        m_logRead = end + 2;
        OnLogLine(line);
    }
}

// Only the log says what is fatal and how a notification was handled.
void Judge::OnLogLine(const std::string& line) {
    // The product cannot see that a port is pulled out while its socket is queried: without a hub port that counts as
    // fatal.
    Reasons reasons = HasFailed() ? Reasons{&excuse::CallFailed} : Reasons{};
    if (line.find("BuildUsbPortName") != std::string::npos) {
        reasons.insert(&excuse::PulledWhileRead);
    }
    if (line.find("INT3 in") != std::string::npos) {
        Blame(reasons, "no fatal line", line);
    }
    const std::size_t braceAt = line.find('{');
    if (braceAt == std::string::npos) {
        return; // written before the product knows its mode, when the log could not be made at once
    }
    const std::string thread = line.substr(braceAt, line.find('}') - braceAt);
    JudgeOwnRestarts(line, thread);
    JudgeMarks(line);
}

// A link is identified by its kernel name alone. So a removal, or the end of a renaming, may take the link of a device
// that has come to the kernel name meanwhile, or of the same one that is back already.
void Judge::OnDosName(const machine::DosNameChange& change) {
    if (m_stage.hasEnded) {
        return;
    }
    const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(change.from);
    const Device* device = owner && owner->node ? PlannedDevice(owner->node->id) : nullptr;
    const bool isOwners = device && machine::EqualNoCase(machine::RegistryNameOf(*owner->node), change.name);
    // A driver that takes a running port's name takes it along when it leaves.
    if (isOwners && std::string_view(change.by) == "driver") {
        Grant(&excuse::LinkTaken, device, machine::Now());
    }
    if (!change.to.empty()) {
        return;
    }
    if (std::string_view(change.by) == "outside") {
        m_takenAtMs[change.name] = machine::Now();
    }
    if (std::string_view(change.by) == "program" && isOwners) {
        Grant(&excuse::OwnersLink, device, machine::Now());
    }
}

void Judge::Grant(Reason excuse, const Device* device, std::uint64_t untilMs) {
    std::uint64_t& granted = m_grants[{excuse, device}];
    granted = std::max(granted, untilMs);
}

bool Judge::IsGranted(Reason excuse, const Device* device, std::uint64_t ranAtMs) const {
    const auto found = m_grants.find({excuse, device});
    return found != m_grants.end() && ranAtMs <= found->second;
}

// What keeps the port from being restarted, a program or the device itself. A restart may be that of a device above it,
// up to its hub, and then everything below that counts.
bool Judge::IsHindered(const Device& device) const {
    const machine::DeviceNode* node = machine::TheDeviceTree().FindById(device.id);
    while (node && !node->IsHub() && !IsStubborn(*node)) {
        node = node->parent;
    }
    return node && IsStubborn(*node);
}

// The device of the plan with this id, or null.
const Device* Judge::PlannedDevice(const std::string& id) const {
    const auto found = std::find_if(m_plan.devices.begin(), m_plan.devices.end(),
                                    [&](const Device& device) { return device.id == id; });
    return found != m_plan.devices.end() ? &*found : nullptr;
}

// The port that a write to its registry name is about; null for another key.
const Device* Judge::RenamedPort(const rehearse::WrittenValue& write) const {
    for (const Device& device : m_plan.devices) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(device.id);
        if (device.isPort && node && IsNameWrite(write) &&
            machine::EqualNoCase(write.key, node->enumPath + "\\Device Parameters")) {
            return &device;
        }
    }
    return nullptr;
}

std::vector<Judge::Running> Judge::RunningPorts() const {
    std::vector<Running> ports;
    for (const Device& device : m_plan.devices) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(device.id);
        if (!device.isPort || !node || !node->IsRunning() || !node->driver) {
            continue;
        }
        ports.push_back({&device, node, machine::RegistryNameOf(*node), machine::DosNameOf(*node), node->driver->name});
    }
    return ports;
}

// What a port's link leads to.
Reasons Judge::LinkReasons(const Running& port) const {
    Reasons reasons;
    const std::string target = TargetOf(port.name);
    const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(target);
    // A link that a driver left, or that another program made, keeps a driver from its name.
    if (!target.empty() &&
        (!owner || (owner->node != port.node && owner->link != machine::TheDosNames().InForce(port.name)->id))) {
        reasons.insert(&excuse::LinkInTheWay);
    }
    // A driver that takes a name that another one has comes first, whenever it comes.
    if (owner && owner->node != port.node && owner->node->said.nameTaken == machine::NameTaken::Take) {
        reasons.insert(&excuse::LinkTaken);
    }
    // A driver that found its name taken does not try again when it is free.
    const rehearse::TimelineEntry* start = LastStart(port.device->id);
    if (start && !port.node->driver->link &&
        (target.empty() || (owner && LastStartMs(owner->node->id) > start->atMs))) {
        reasons.insert(&excuse::FoundItTaken);
    }
    // A link that goes after its driver takes that of the next one with it.
    const auto taken = m_takenAtMs.find(port.name);
    if (((target.empty() || (owner && LastStartMs(owner->node->id) > LastStartMs(port.device->id))) &&
         Says(*port.device, "link_goes")) ||
        (taken != m_takenAtMs.end() && LastStartMs(port.device->id) <= taken->second)) {
        reasons.insert(&excuse::LateLink);
    }
    return reasons;
}

Reasons Judge::OwnReasons(const Running& port) const {
    Reasons reasons = LinkReasons(port);
    const Device& device = *port.device;
    const rehearse::TimelineEntry* start = LastStart(device.id);
    const std::uint64_t ranAtMs = LastStartMs(device.id);
    const rehearse::WrittenValue moved = LastMove(device);
    const bool isMoved = !moved.name.empty() && moved.atMs >= ranAtMs;
    // A modem is not found by its interface: where no hub cycles its port nothing restarts it.
    if (Says(device, "kind = \"modem\"") && isMoved) {
        reasons.insert(&excuse::Modem);
    }
    // A device that starts without its interfaces, or while they stay as they were, is not announced.
    if (IsQuietStart(device) ||
        std::none_of(port.node->interfaces.begin(), port.node->interfaces.end(), [](const auto& i) { return i->up; })) {
        reasons.insert(&excuse::Unannounced);
    }
    // A device that comes while the service starts and does not listen yet is not announced.
    const CComPort* record = RecordOf(m_stage, *port.node);
    if (start && IsUnheard(ranAtMs) && (start->isOutside || !record || !record->IsPresent)) {
        reasons.insert(&excuse::BeforeListening);
    }
    if (IsTwin(port)) {
        reasons.insert(&excuse::Twin);
    }
    if (HasFailedSince(ranAtMs)) {
        reasons.insert(&excuse::CallFailed);
    }
    for (Reason excuse : {&excuse::OwnersLink, &excuse::SwapMark, &excuse::OwnerAway, &excuse::RestartLost,
                          &excuse::Hindered, &excuse::LinkTaken}) {
        if (IsGranted(excuse, &device, ranAtMs)) {
            reasons.insert(excuse);
        }
    }
    return reasons;
}

// What waits for its next start keeps the name that another one has by now.
Reasons Judge::ReasonsOf(const Running& port, const Ports& ports) const {
    Reasons reasons = OwnReasons(port);
    const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(TargetOf(port.name));
    for (const Running& other : ports) {
        if (owner && owner->node == other.node && other.node != port.node) {
            reasons.merge(OwnReasons(other));
        }
    }
    return reasons;
}

// A program that does not close the port excuses the consequences until the port's next start.
void Judge::NoteExcuses() {
    for (const Running& port : RunningPorts()) {
        if (TargetOf(port.name) != port.kernel && IsHindered(*port.device)) {
            Grant(&excuse::Hindered, port.device, machine::Now());
        }
    }
}

void Judge::JudgePorts(const Ports& ports) {
    // A device that was taken out or disabled is set up again, unless a call fails or the device refuses.
    for (const machine::DeviceNode* node : machine::TheDeviceTree().All()) {
        Reasons reasons = HasFailed() ? Reasons{&excuse::CallFailed} : Reasons{};
        if (node->said.refuses.value_or(false)) {
            reasons.insert(&excuse::Hindered);
        }
        if (node->IsPresent() && node->openRestart) {
            Blame(reasons, "nothing is left out", node->id);
        }
    }
    for (const Running& port : ports) {
        const unsigned inRegistry = machine::ComNumberOf(port.name), number = machine::ComNumberOf(port.dosName);
        for (const Running& other : ports) {
            if (&other >= &port || !inRegistry || !machine::EqualNoCase(port.name, other.name)) {
                continue;
            }
            Reasons reasons = ReasonsOf(port, ports);
            reasons.merge(ReasonsOf(other, ports));
            Blame(reasons, "registry names differ",
                  fmt::format("{} and {} are both {}", other.device->id, port.device->id, port.name));
        }
        if (inRegistry && TargetOf(port.name) != port.kernel) {
            Blame(
                ReasonsOf(port, ports), "a running driver has its registry name",
                fmt::format("{} ({}): {} leads to '{}'", port.device->id, port.kernel, port.name, TargetOf(port.name)));
        }
        if (number && number <= LargestDatabaseNumber && !machine::ComDbTest(number)) {
            Reasons reasons = ReasonsOf(port, ports);
            if (IsGranted(&excuse::SharedBit, port.device, LastStartMs(port.device->id))) {
                reasons.insert(&excuse::SharedBit);
            }
            Blame(reasons, "the database has every present number",
                  fmt::format("{}: {}", port.device->id, port.dosName));
        }
        const unsigned friendly = NumberInFriendlyName(machine::FriendlyNameOf(*port.node));
        if (friendly && inRegistry && friendly != inRegistry) {
            Blame(ReasonsOf(port, ports), "registry name and friendly name agree",
                  fmt::format("{}: {} and '{}'", port.device->id, port.name, machine::FriendlyNameOf(*port.node)));
        }
    }
    if (!IsStarting()) {
        JudgeRecords(ports);
    }
}

void Judge::JudgeRecords(const Ports& ports) {
    for (const Running& port : ports) {
        const CComPort* record = RecordOf(m_stage, *port.node);
        if (!record || !record->IsPresent) {
            Blame(ReasonsOf(port, ports), "a port that runs is present in the table", port.device->id);
        } else if (record->szPortName[0] != 0 && TargetOf(record->szPortName) != port.kernel) {
            Blame(ReasonsOf(port, ports), "a name that a record claims leads to its port",
                  fmt::format("{} ({}): the record has {}, which leads to '{}'", port.device->id, port.kernel,
                              record->szPortName, TargetOf(record->szPortName)));
        }
    }
}

// No port has less than its section wants while a number that it likes better is free.
void Judge::JudgeRules(const Ports& ports) {
    for (const Running& port : ports) {
        const Section* section = FittingSection(m_plan.configurations.back(), *port.device);
        if (!section || !port.name.starts_with("COM")) {
            continue;
        }
        for (const unsigned number : section->wants) {
            const std::string wanted = fmt::format("COM{}", number);
            if (machine::EqualNoCase(wanted, port.name)) {
                break;
            }
            if (!TargetOf(wanted).empty() || std::any_of(ports.begin(), ports.end(), [&](const auto& p) {
                    return machine::EqualNoCase(p.name, wanted);
                })) {
                continue;
            }
            Reasons reasons = ReasonsOf(port, ports);
            Blame(reasons, "every rule that can be met is met",
                  fmt::format("{} is {} and {} is free", port.device->id, port.name, wanted));
        }
    }
}

// A port whose new name is written is excused until its next start where the sequence of steps leaves it waiting.
void Judge::OnWrite(const rehearse::WrittenValue& write) {
    const Device* device = RenamedPort(write);
    if (!device) {
        return;
    }
    NoteExcuses();
    // Of two that are to swap the one that restarts comes back without its record.
    if (IsHindered(*device)) {
        Grant(&excuse::Hindered, device, write.atMs + OwnChangeMs);
    }
    bool isShared = false;
    Reasons reasons;
    if (HasFailedSince(LastStartMs(device->id))) {
        reasons.insert(&excuse::CallFailed);
    }
    for (const Device& other : m_plan.devices) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(other.id);
        if (&other == device || !other.isPort || !node) {
            continue;
        }
        const std::string name = machine::RegistryNameOf(*node);
        // It may just be on its way through a restart.
        const rehearse::WrittenValue moved = LastMove(other);
        const bool isOnItsWay = !moved.name.empty() && write.atMs - moved.atMs <= OwnChangeMs;
        isShared |= machine::EqualNoCase(name, write.before) && (node->IsPresent() || isOnItsWay);
        // A number counts as free while the port that has it in the registry has no DOS name: its restart is put off,
        // or it is away for a moment. The port that is given it may take the owner's name for its own, and one of them
        // has none until its next arrival.
        if (machine::EqualNoCase(name, write.after) && TargetOf(name).empty()) {
            for (const Device* each : {device, &other}) {
                Grant(&excuse::OwnerAway, each, write.atMs + OwnChangeMs);
            }
        }
        // A renamed port clears the bit of its old name in the database, also when another port has that name.
        if (machine::EqualNoCase(machine::DosNameOf(*node), write.before)) {
            Grant(&excuse::SharedBit, &other, write.atMs);
        }
    }
    const machine::KernelDevice* owner = machine::TheDeviceTree().RunningDevice(TargetOf(write.before));
    isShared |= owner && !machine::EqualNoCase(owner->node->id, device->id);
    m_moves[device] = write;
    if (IsNeverMeant(m_plan, *device) && !isShared) {
        Blame(reasons, "nobody takes a number from a port without a rule",
              fmt::format("{}: {} -> {}", device->id, write.before, write.after));
    }
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
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries()) {
        if (entry.device == device && (entry.what.starts_with("runs") || entry.what == "restarts")) {
            last = &entry;
        }
    }
    return last;
}

// The port whose path stands in the line; "" for none.
std::string Judge::DeviceOf(const std::string& line) const {
    for (const Device& device : m_plan.devices) {
        if (IsPathIn(line, device)) {
            return device.id;
        }
    }
    return "";
}

std::uint64_t Judge::StartedAtMs() const {
    std::uint64_t startedAtMs = 0;
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries()) {
        if (entry.what == "service is START_PENDING") {
            startedAtMs = entry.atMs;
        }
    }
    return startedAtMs;
}

// A port that runs then was there before the product listened, so no arrival announced it.
bool Judge::IsUnheard(std::uint64_t ranAtMs) const {
    return IsStarting() || ranAtMs <= *m_listensAtMs;
}

// Its last start was the end of a problem that its interfaces did not announce.
bool Judge::IsQuietStart(const Device& device) const {
    bool isQuiet = false, wasQuiet = false;
    for (const rehearse::TimelineEntry& entry : m_stage.timeline->Entries()) {
        if (entry.what.starts_with("problem ") && entry.what.find("(quiet") != std::string::npos) {
            isQuiet |= entry.device == device.id;
        }
        if (entry.device == device.id && (entry.what.starts_with("runs") || entry.what == "restarts")) {
            wasQuiet = std::exchange(isQuiet, false);
        }
    }
    return wasQuiet;
}

// One of two that came with one name before the product listened: nothing is done about it while no rule moves it and
// it does not arrive again, and when the other one leaves with the link it still has none.
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
