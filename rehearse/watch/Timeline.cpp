#include "rehearse/watch/Timeline.h"

#include "rehearse/watch/PortWatch.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/devices/drivers/Drivers.h"
#include "simwin/devices/drivers/Holders.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/Registry.h"
#include "simwin/services/Services.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace rehearse {

constexpr std::string_view EnumPart = "\\CurrentControlSet\\Enum\\";
constexpr std::string_view ParametersPart = "\\Device Parameters";

// The device whose name value a key holds; "" for another key.
static std::string DeviceOfParameters(std::string_view key) {
    const std::size_t enumAt = machine::FindNoCase(key, EnumPart);
    if (enumAt == std::string_view::npos || !machine::EndsWithNoCase(key, ParametersPart)) {
        return "";
    }
    const std::size_t start = enumAt + EnumPart.size();
    if (key.size() < start + ParametersPart.size()) {
        return "";
    }
    return std::string(key.substr(start, key.size() - start - ParametersPart.size()));
}

static bool IsNameValue(std::string_view name) {
    return machine::EqualNoCase(name, "PortName") || machine::EqualNoCase(name, "DosDeviceName");
}

void Timeline::Watch() {
    for (const machine::DeviceNode* node : machine::TheDeviceTree().All()) {
        if (node->IsPort()) {
            m_ports[node->id].name = machine::DosNameOf(*node);
        }
    }
    machine::DeviceObserver observer;
    observer.dosNameChanged = [this](const machine::DosNameChange& change) { OnDosNameChanged(change); };
    observer.restarted = [this](const machine::DeviceRestart& restart) { OnRestarted(restart); };
    observer.deviceChanged = [this](const machine::DeviceNode& node, const char* what) { OnDeviceChanged(node, what); };
    machine::SetDeviceObserver(std::move(observer));
    machine::TheRegistry().WatchWrites([this](const machine::RegistryWrite& write) {
        CatchUp();
        m_writes.push_back({write.atMs, write.key, write.name, write.before, write.after});
        if (m_writeWatcher) {
            m_writeWatcher(m_writes.back());
        }
        const std::string device = DeviceOfParameters(write.key);
        if (!device.empty() && IsNameValue(write.name) && write.before != write.after) {
            m_entries.push_back({write.atMs, false, "registry name of", device, write.before, write.after, "registry"});
        }
    });
    machine::WatchCalls([this](const char* name, const char* object) {
        CatchUp();
        if (m_callWatcher && !m_isClosed) {
            m_callWatcher(name, object);
        }
    });
    machine::WatchInput([this](const machine::InputRecord& input) {
        if (m_isClosed) {
            return;
        }
        const std::string to = input.window.empty() ? "no window" : "'" + input.window + "'";
        m_entries.push_back(
            {input.atMs, input.isByPerson, fmt::format("{} goes to {}", input.what, to), "", "", "", ""});
    });
    machine::OnProcessStart([this](const machine::Process& process) {
        if (!m_isClosed) {
            OnProcessStarted(process);
        }
    });
    machine::OnProcessEnd([this](machine::Process& process) {
        if (!m_isClosed) {
            OnProcessEnded(process.imagePath, process.exitCode);
        }
    });
}

void Timeline::Outside(std::string what, std::string device) {
    CatchUp();
    PortMayHaveChanged(device.empty() ? nullptr : machine::TheDeviceTree().FindById(device));
    m_entries.push_back({machine::Now(), true, std::move(what), std::move(device), "", "", ""});
}

void Timeline::BeginStory(const std::string& name, const std::string& title) {
    CatchUp();
    m_stories.push_back({m_entries.size(), name});
    Outside(fmt::format("story {}: {}", name, title));
}

std::string Timeline::StoryOf(std::size_t entry) const {
    const auto next = std::upper_bound(m_stories.begin(), m_stories.end(), entry,
                                       [](std::size_t at, const StoryStart& story) { return at < story.firstEntry; });
    return next == m_stories.begin() ? "" : std::prev(next)->name;
}

bool Timeline::IsStoryTitle(std::size_t entry) const {
    return std::any_of(m_stories.begin(), m_stories.end(),
                       [&](const StoryStart& story) { return story.firstEntry == entry; });
}

void Timeline::AfterBoot() {
    for (const machine::DeviceNode* node : machine::TheDeviceTree().All()) {
        if (!node->IsPort()) {
            continue;
        }
        const std::string name = machine::DosNameOf(*node), before = m_ports[node->id].name;
        m_ports[node->id] = {};
        m_ports[node->id].name = name;
        m_ports[node->id].restarts = node->restarts;
        if (node->problem && node->IsPresent()) {
            Outside(fmt::format("does not start (problem {}):", node->problem), node->id);
        } else if (name != before && node->IsPresent()) {
            Outside(name.empty() ? "runs without a COM name:" : fmt::format("runs as {}:", name), node->id);
        }
    }
}

void Timeline::CatchUp() {
    if (m_isClosed) {
        return;
    }
    const std::vector<machine::ServiceReport>& reports = machine::ServiceReports();
    for (; m_serviceReports < reports.size(); ++m_serviceReports) {
        const machine::ServiceReport& report = reports[m_serviceReports];
        // For a reader, checkpoints of one state are one entry.
        if (m_serviceReports > 0 && reports[m_serviceReports - 1].state == report.state) {
            continue;
        }
        const std::string what = fmt::format("service is {}", machine::ServiceStateText(report.state));
        m_entries.push_back({report.atMs, false, what, "", "", "", ""});
    }
}

void Timeline::OnDeviceChanged(const machine::DeviceNode& node, std::string_view what) {
    if (m_isClosed || !node.IsPort()) {
        return;
    }
    CatchUp();
    PortMayHaveChanged(&node);
    PortState& port = m_ports[node.id];
    if (what == "left" && port.pendingMeans.empty()) {
        Outside("leaves:", node.id);
    } else if (what == "failed") {
        Outside(fmt::format("does not start (problem {}):", node.problem), node.id);
    } else if (what == "runs") {
        const std::string name = machine::DosNameOf(node);
        port.nameBeforeRun = port.name;
        if (!port.pendingMeans.empty()) {
            m_entries.push_back({machine::Now(), false, "restarts", node.id, port.name, name, port.pendingMeans});
            port.pendingMeans.clear();
            port.restarts = node.restarts;
            port.runsEntry = 0;
        } else {
            Outside(name.empty() ? "runs without a COM name:" : fmt::format("runs as {}:", name), node.id);
            port.runsEntry = m_entries.size();
        }
        port.name = name;
    }
}

// Those that the timeline knows of a node (null: of none) and all that hangs below it, by id. By way of the tree: a run
// restarts each of a thousand ports.
std::vector<const machine::DeviceNode*> Timeline::PortsBelow(const machine::DeviceNode* top) const {
    std::vector<const machine::DeviceNode*> nodes, ports;
    if (top) {
        nodes.push_back(top);
    }
    while (!nodes.empty()) {
        const machine::DeviceNode* node = nodes.back();
        nodes.pop_back();
        nodes.insert(nodes.end(), node->children.begin(), node->children.end());
        if (m_ports.contains(node->id)) {
            ports.push_back(node);
        }
    }
    std::sort(ports.begin(), ports.end(),
              [this](const auto* one, const auto* other) { return m_ports.key_comp()(one->id, other->id); });
    return ports;
}

void Timeline::OnRestarted(const machine::DeviceRestart& restart) {
    if (m_isClosed) {
        return;
    }
    CatchUp();
    const machine::DeviceNode* top = machine::TheDeviceTree().FindById(restart.device);
    const bool comesLater = restart.means == "cycle" && restart.ok;
    bool isReported = false;
    for (const machine::DeviceNode* node : PortsBelow(top)) {
        PortState& port = m_ports[node->id];
        if (comesLater) {
            port.pendingMeans = restart.means;
            isReported = true;
        } else if (port.runsEntry && node->restarts > port.restarts) {
            // Its start was this restart: the apparent arrival was the product's doing.
            m_entries[port.runsEntry - 1] = {m_entries[port.runsEntry - 1].atMs,
                                             false,
                                             "restarts",
                                             node->id,
                                             port.nameBeforeRun,
                                             port.name,
                                             restart.means};
            port.runsEntry = 0;
            port.restarts = node->restarts;
            isReported = true;
        }
    }
    if (!isReported) {
        m_entries.push_back({machine::Now(), false, restart.ok ? "asks for a restart of" : "could not restart",
                             restart.device, "", "", restart.means});
    }
    if (top) {
        WarnOfHolders(*top, restart);
    }
}

// After a hub's refusal other means follow. A call that succeeded has not stopped a device that is still held open.
void Timeline::WarnOfHolders(const machine::DeviceNode& top, const machine::DeviceRestart& restart) {
    const bool isCycle = restart.means == "cycle";
    if (isCycle && !restart.ok) {
        return;
    }
    for (const machine::DeviceNode* node : PortsBelow(&top)) {
        const std::string holder = machine::HolderOf(*node);
        if (holder.empty()) {
            continue;
        }
        const PortState& port = m_ports[node->id];
        const std::string what = isCycle ? fmt::format("{} is torn from {}, which has it open:", port.name, holder)
                                         : fmt::format("{} cannot restart, {} has it open:", port.name, holder);
        if (m_entries.back().what != what || m_entries.back().device != node->id) {
            m_entries.push_back({machine::Now(), false, what, node->id, "", "", restart.means, true});
        }
    }
}

// The port of a node, and its present DOS name. Null: the timeline has that name already.
Timeline::PortState* Timeline::PortOfNewName(const machine::DeviceNode& node, std::string* name) {
    PortMayHaveChanged(&node);
    PortState& port = m_ports[node.id];
    *name = machine::DosNameOf(node);
    return *name == port.name ? nullptr : &port;
}

void Timeline::OnDosNameChanged(const machine::DosNameChange& change) {
    const std::string_view by = change.by;
    if (m_isClosed || (by != "program" && by != "driver")) {
        return;
    }
    CatchUp();
    if (by == "driver") {
        OnDriverNameChanged(change);
        return;
    }
    const machine::KernelDevice* device =
        machine::TheDeviceTree().RunningDevice(change.to.empty() ? change.from : change.to);
    if (!device || !device->node) {
        m_entries.push_back({change.atMs, false,
                             change.to.empty() ? fmt::format("deletes the DOS name {} ({})", change.name, change.from)
                                               : fmt::format("makes the DOS name {} ({})", change.name, change.to),
                             "", "", "", "dos-name"});
        return;
    }
    std::string name;
    PortState* port = PortOfNewName(*device->node, &name);
    if (!port) {
        return;
    }
    // The old name deleted and a new one made at the same moment are one change.
    if (port->namelessEntry && m_entries[port->namelessEntry - 1].atMs == change.atMs) {
        m_entries[port->namelessEntry - 1].to = name;
    } else {
        m_entries.push_back(
            {change.atMs, false, "changes the DOS name of", device->node->id, port->name, name, "dos-name"});
    }
    port->namelessEntry = name.empty() ? m_entries.size() : 0;
    port->name = name;
    port->runsEntry = 0;
}

// A driver that starts or stops is reported as a whole; what remains is a name deleted while its driver runs.
void Timeline::OnDriverNameChanged(const machine::DosNameChange& change) {
    const machine::KernelDevice* device = machine::TheDeviceTree().RunningDevice(change.from);
    if (!device || !device->node || !device->node->IsRunning()) {
        return;
    }
    std::string name;
    if (PortState* port = PortOfNewName(*device->node, &name)) {
        Outside(fmt::format("loses its DOS name {}:", change.name), device->node->id);
        port->name = name;
    }
}

// The description's own starts are reported by their events.
void Timeline::OnProcessStarted(const machine::Process& process) {
    const machine::Process* parent = process.parentId ? machine::FindProcess(process.parentId) : nullptr;
    const std::string product = machine::TheSetup().directory + "\\" + machine::TheSetup().executable;
    if (!parent || !machine::EqualNoCase(parent->imagePath, product)) {
        return;
    }
    CatchUp();
    m_entries.push_back({machine::Now(), false,
                         fmt::format("starts {} as {} ({}) in session {}", process.commandLine, process.user,
                                     machine::RightsName(process.rights), process.session),
                         "", "", "", ""});
}

void Timeline::OnProcessEnded(const std::string& image, std::uint32_t exitCode) {
    CatchUp();
    const std::string product = machine::TheSetup().directory + "\\" + machine::TheSetup().executable;
    const bool isProduct = machine::EqualNoCase(image, product);
    m_entries.push_back({machine::Now(), !isProduct, fmt::format("{} ends with {}", image, exitCode), "", "", "", ""});
}

} // namespace rehearse
