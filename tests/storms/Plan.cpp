#include "tests/storms/Plan.h"

#include "simwin/devices/tree/DosNames.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

namespace storm {

namespace {
struct SwitchRow {
    const char* name;
    bool Switches::*member;
    unsigned percent;
};
} // namespace
constexpr SwitchRow SwitchRows[] = {
    {"debug", &Switches::debugRole, 12},
    {"failing", &Switches::failing, 30},
    {"slow", &Switches::slow, 30},
    {"stubborn", &Switches::stubborn, 35},
    {"links", &Switches::links, 30},
    {"stops", &Switches::stops, 30},
    {"resumes", &Switches::resumes, 50},
    {"edits", &Switches::edits, 50},
    {"flicker", &Switches::flicker, 60},
    {"hubs", &Switches::hubs, 60},
    {"problems", &Switches::problems, 25},
    {"quick", &Switches::quick, 25},
    {"hack", &Switches::hack, 30},
    {"removes-names", &Switches::removesNames, 40},
    {"uninstalls", &Switches::uninstalls, 8},
    {"same-names", &Switches::sameNames, 40},
    {"contested", &Switches::contested, 60},
    {"at-wrap", &Switches::atWrap, 12},
    {"at-boot", &Switches::atBoot, 12},
    {"refusing-keys", &Switches::refusing, 25},
};

constexpr const char* RootHub = R"(USB\ROOT_HUB30\4&1a2b3c4d&0&0)";
constexpr unsigned HubSockets = 7;
constexpr unsigned PowerPercent = 40, PeoplePercent = 40;

// How long something is away, and how long nothing happens: around the limits at which an event counts as one's own
// doing (5000), as a flicker (1000) or as the echo of a change (2000), and long enough for everything to settle.
constexpr unsigned Around[] = {0,    1,    20,   200,  600,  990,  999,  1000, 1001, 1500,
                               1999, 2000, 2001, 3500, 4000, 4999, 5000, 5001, 5600};
// From an arrival on: how long its restart takes, and the limits of what the engine does about it.
constexpr unsigned Restarts[] = {0, 0, 50, 100, 150, 600, 800};
constexpr unsigned Limits[] = {0, 1000, 2000, 4000, 5000, 5000, 30'000};

// Calls that are worth failing: those by which a port is changed.
constexpr const char* FailingCalls[] = {
    "RegOpenKeyExA",     "RegQueryValueExA",  "RegSetValueExA",       "RegDeleteValueA",
    "QueryDosDeviceA",   "DefineDosDeviceA",  "SetupDiGetClassDevsA", "SetupDiCallClassInstaller",
    "DeviceIoControl",   "CreateFileA",       "CreateThread",         "CM_Get_DevNode_Registry_PropertyA",
    "CM_Get_Device_IDA", "CM_Get_Parent",     "CM_Setup_DevNode",     "SetupDiOpenDeviceInterfaceA",
    "CreateEventA",      "RegGetKeySecurity", "CM_Get_DevNode_Status"};
// Where time can be lost: in an arrival, before and after its locks.
constexpr const char* SlowCalls[] = {
    "QueryDosDeviceA", "SetupDiGetClassDevsA", "SetupDiCallClassInstaller", "RegSetValueExA", "DeviceIoControl",
    "CM_Get_Parent",   "EnterCriticalSection", "CM_Get_DevNode_Status",     "CreateThread",   "RegOpenKeyExA"};

static unsigned DescribedNumber(const Device& device) {
    for (const std::string& line : device.lines) {
        if (line.starts_with("port_name")) {
            return machine::ComNumberOf(machine::Split(line, '"')[1]);
        }
    }
    return 0;
}

namespace {
class Planner {
public:
    explicit Planner(std::uint64_t seed)
        : m_random(seed * 2654435761u + 17), m_powerRandom(seed * 40503u + 5), m_peopleRandom(seed * 69069u + 1) {
        plan.seed = seed;
        plan.switches.power = m_powerRandom.Odds(PowerPercent);
        plan.switches.people = m_peopleRandom.Odds(PeoplePercent);
        plan.switches.firstNodeOne = seed % 2 == 0;
        for (const SwitchRow& row : SwitchRows) {
            plan.switches.*row.member = m_random.Odds(row.percent);
        }
    }
    Plan Make() {
        MakeWindows();
        MakeDevices();
        MakeConfigurations();
        MakeFaults();
        MakeHistory();
        return std::move(plan);
    }

private:
    void MakeWindows();
    void MakeDevices();
    void MakeConfigurations();
    Configuration MakeConfiguration();
    void WantEachOther(Configuration& made);
    void MakeFaults();
    void MakeHistory();
    void AddPowerSpans();
    Event MakeEvent();
    std::uint64_t AddEcho(const Event& event);

    std::size_t AddUnit(const std::string& top) {
        plan.units.push_back(top);
        return plan.units.size() - 1;
    }
    Device& AddDevice(std::size_t unit, std::string id, std::string parent, const char* kind) {
        plan.devices.push_back({std::move(id), std::move(parent), unit, false, {fmt::format("kind = \"{}\"", kind)}});
        return plan.devices.back();
    }
    void AddPort(std::size_t unit, std::string id, std::string parent, const char* kind, const char* service,
                 const char* kernel);
    Device& AddUsb(std::size_t unit, const std::string& id, const char* kind) {
        const auto [hub, socket] = Socket();
        Device& device = AddDevice(unit, id, hub, kind);
        device.lines.push_back(socket);
        return device;
    }
    void AddHub();
    // A free socket of some hub: the hub's id, and the line that names the socket.
    std::pair<std::string, std::string> Socket();
    void AddSerialAdapter(unsigned n);
    void AddDirectAdapter(unsigned n);
    void AddComposite(unsigned n);
    void AddModem(unsigned n);
    void AddCard(unsigned n);
    void AddBoardPort(unsigned n);
    std::string UnitTop() { return plan.units[m_pluggable[m_random.Below(static_cast<unsigned>(m_pluggable.size()))]]; }
    int UnitOf(const std::string& top) const {
        return static_cast<int>(std::find(plan.units.begin(), plan.units.end(), top) - plan.units.begin());
    }
    unsigned PoolNumber() { return 3 + m_random.Below(9); }
    const Device& SomePort() { return plan.devices[m_ports[m_random.Below(static_cast<unsigned>(m_ports.size()))]]; }

public:
    Plan plan;

private:
    Random m_random, m_powerRandom, m_peopleRandom;
    std::vector<std::pair<std::string, unsigned>> m_hubs; // id, sockets in use
    std::vector<std::size_t> m_pluggable, m_hubUnits, m_ports;
    unsigned m_nextName = 3, m_nextWanted = 20;
};
} // namespace

void Planner::MakeWindows() {
    static constexpr const char* Versions[] = {"10.0.19045", "10.0.19045", "6.1.7601", "5.1"};
    plan.windows.push_back(fmt::format("version = \"{}\"", m_random.Of(Versions)));
    if (plan.switches.firstNodeOne) {
        plan.windows.push_back("first_node = 1");
    }
    if (plan.switches.atWrap) {
        plan.windows.push_back(fmt::format("uptime = {}", 0xFFFFFFFFu - m_random.Below(120'000)));
    } else if (plan.switches.atBoot) {
        plan.windows.push_back(fmt::format("uptime = {}", 1000 + m_random.Below(100'000)));
    }
}

void Planner::AddPort(std::size_t unit, std::string id, std::string parent, const char* kind, const char* service,
                      const char* kernel) {
    const Switches& on = plan.switches;
    Device& port = AddDevice(unit, std::move(id), std::move(parent), kind);
    port.isPort = true;
    m_ports.push_back(plan.devices.size() - 1);
    port.lines.push_back(fmt::format("service = \"{}\"", service));
    port.lines.push_back(fmt::format("kernel_name = '{}'", kernel));
    const unsigned name = on.sameNames ? PoolNumber() : m_nextName++;
    if (m_random.Odds(75)) {
        port.lines.push_back(fmt::format("port_name = \"COM{}\"", name));
        port.lines.push_back(fmt::format("friendly_name = \"Serial Port (COM{})\"", name));
    }
    if (m_random.Odds(20)) {
        port.lines.push_back(fmt::format("starts_in = \"{}ms\"", 1 + m_random.Below(2500)));
    }
    if (on.refusing && m_random.Odds(40)) {
        port.lines.push_back("protected = true");
    }
    if (on.stubborn && m_random.Odds(30)) {
        static constexpr const char* Ways[] = {"vetoes = 1", "vetoes = true", "refuses = true",
                                               R"(held_by = 'C:\Tools\term.exe')"};
        port.lines.push_back(m_random.Of(Ways));
    }
    if (on.links && m_random.Odds(30)) {
        static constexpr const char* Ways[] = {"leaves_link = true", "link_goes = \"700ms\"", "link_goes = \"close\"",
                                               "name_taken = \"take\"", "name_taken = \"fail\""};
        port.lines.push_back(m_random.Of(Ways));
    }
}

std::pair<std::string, std::string> Planner::Socket() {
    for (;;) {
        auto& [hub, used] = m_hubs[m_random.Below(static_cast<unsigned>(m_hubs.size()))];
        if (used < HubSockets) {
            return {hub, fmt::format("hub_port = {}", ++used)};
        }
        AddHub();
    }
}

void Planner::AddHub() {
    const std::string id = fmt::format(R"(USB\VID_05E3&PID_0610\5&{}&0&1)", plan.units.size());
    const std::size_t unit = AddUnit(id);
    Device hub{id, "", unit, false, {"kind = \"hub\"", fmt::format("ports = {}", HubSockets)}};
    // A full machine grows on the root.
    auto& [parent, used] = m_hubs[m_hubs.size() > 1 && m_hubs.back().second < HubSockets ? m_hubs.size() - 1 : 0];
    hub.parent = parent;
    hub.lines.push_back(fmt::format("hub_port = {}", ++used));
    if (m_random.Odds(20)) {
        hub.lines.push_back(fmt::format("knows_in = \"{}ms\"", 100 + m_random.Below(3000)));
    }
    if (plan.switches.stubborn && m_random.Odds(15)) {
        hub.lines.push_back("cycle_status = 1");
    }
    plan.devices.push_back(hub);
    m_hubs.emplace_back(id, 0);
    m_hubUnits.push_back(unit);
}

void Planner::AddSerialAdapter(unsigned n) {
    const std::string top = fmt::format(R"(USB\VID_0403&PID_6001\A70{:03}X)", n);
    const std::size_t unit = AddUnit(top);
    AddUsb(unit, top, "usb").lines.push_back("service = \"FTDIBUS\"");
    AddPort(unit, fmt::format(R"(FTDIBUS\VID_0403+PID_6001+A70{:03}XA\0000)", n), top, "port", "FTSER2K",
            R"(\Device\VCP0)");
    m_pluggable.push_back(unit);
}

void Planner::AddDirectAdapter(unsigned n) {
    const std::string top = fmt::format(R"(USB\VID_10C4&PID_EA60\000{})", n);
    const std::size_t unit = AddUnit(top);
    const auto [hub, socket] = Socket();
    AddPort(unit, top, hub, "port", "silabser", R"(\Device\Silabser0)");
    plan.devices.back().lines.push_back(socket);
    plan.devices.back().lines.push_back("interfaces = [\"usb\", \"comport\"]");
    m_pluggable.push_back(unit);
}

void Planner::AddComposite(unsigned n) {
    const std::string top = fmt::format(R"(USB\VID_2341&PID_0042\C{})", n);
    const std::size_t unit = AddUnit(top);
    AddUsb(unit, top, "composite");
    const unsigned ports = 2 + m_random.Below(3);
    for (unsigned i = 0; i < ports; ++i) {
        AddPort(unit, fmt::format(R"(USB\VID_2341&PID_0042&MI_{:02}\6&{}&0&{:04})", i, n, i), top, "port", "usbser",
                R"(\Device\USBSER000)");
    }
    m_pluggable.push_back(unit);
}

void Planner::AddModem(unsigned n) {
    const std::string top = fmt::format(R"(USB\VID_12D1&PID_1001\M{})", n);
    const std::size_t unit = AddUnit(top);
    AddUsb(unit, top, "usb");
    AddPort(unit, fmt::format(R"(HUAWEI\MODEM\7&{}&0&0000)", n), top, "modem", "Modem", R"(\Device\AcmSerial_0)");
    if (m_random.Odds(50)) {
        plan.devices.back().lines.push_back("interfaces = [\"comport\", \"modem\"]");
    }
    m_pluggable.push_back(unit);
}

void Planner::AddCard(unsigned n) {
    const std::string top = fmt::format(R"(PCI\VEN_1415&DEV_C11B\4&{}&0&00E5)", n);
    const std::size_t unit = AddUnit(top);
    AddDevice(unit, top, "", "other");
    const unsigned ports = 1 + m_random.Below(4);
    for (unsigned i = 0; i < ports; ++i) {
        AddPort(unit, fmt::format(R"(OXPCIEMF\PORT\5&{}&0&{:02})", n, i), top, "port", "OxPCIeSer",
                R"(\Device\OXPCIEMF0)");
    }
    m_pluggable.push_back(unit);
}

void Planner::AddBoardPort(unsigned n) {
    const std::string top = fmt::format(R"(ACPI\PNP0501\{})", n);
    AddPort(AddUnit(top), top, "", "port", "Serial", R"(\Device\Serial0)");
    plan.devices.back().lines.push_back("irq = 4");
    plan.devices.back().lines.push_back("io_port = 1016");
}

void Planner::MakeDevices() {
    const std::string controller = R"(PCI\VEN_8086&DEV_A36D\3&11583659&0&A0)";
    const std::size_t unit = AddUnit(controller);
    AddDevice(unit, controller, "", "controller");
    AddDevice(unit, RootHub, controller, "root-hub").lines.push_back(fmt::format("ports = {}", HubSockets));
    m_hubs.emplace_back(RootHub, 0);
    const unsigned hubs = m_random.Below(4);
    for (unsigned i = 0; i < hubs; ++i) {
        AddHub();
    }
    const unsigned adapters = 2 + m_random.Below(6);
    for (unsigned n = 1; n <= adapters; ++n) {
        static constexpr void (Planner::*Kinds[])(unsigned) = {&Planner::AddSerialAdapter, &Planner::AddSerialAdapter,
                                                               &Planner::AddDirectAdapter, &Planner::AddComposite,
                                                               &Planner::AddModem,         &Planner::AddCard};
        (this->*m_random.Of(Kinds))(n);
        if (m_random.Odds(40)) {
            for (Device& device : plan.devices) {
                if (device.id == plan.units.back()) {
                    device.lines.push_back("plugged = false");
                }
            }
        }
    }
    if (m_random.Odds(50)) {
        AddBoardPort(1);
    }
    if (plan.switches.links) {
        for (unsigned i = m_random.Below(3); i > 0; --i) {
            static constexpr const char* Opens[] = {"gone", "gone", "busy", "no-device", "ok", "late 450ms"};
            plan.dosNames.push_back(fmt::format("name = \"COM{}\"\ntarget = '\\Device\\Gone{}'\nopens = \"{}\"",
                                                20 + m_random.Below(8), i, m_random.Of(Opens)));
        }
    }
}

Configuration Planner::MakeConfiguration() {
    const Switches& on = plan.switches;
    Configuration made;
    const auto set = [&](const char* key, bool value) {
        if (value) {
            made.settings.emplace_back(key, "1");
        }
    };
    set("CheckPortsOnResume", m_random.Odds(60));
    set("QuickAndDirtyMode", on.quick && m_random.Odds(60));
    set("TelitHack", on.hack);
    set("RemoveDosDeviceNameOnRemoval", on.removesNames && m_random.Odds(60));
    set("RemoveDosDeviceNameOnStartup", on.removesNames && m_random.Odds(40));
    set("RemovePortDeviceOnRemoval", on.uninstalls && m_random.Odds(50));
    set("RemoveUsbDeviceOnRemoval", on.uninstalls && m_random.Odds(30));
    set("RegisterAllDevClasses", m_random.Odds(15));
    made.balloons = m_random.Odds(70);
    if (m_random.Odds(15)) {
        made.settings.emplace_back("ComNameArbiterClean", "3-60");
    }
    unsigned number = 1;
    const auto wants = [&](unsigned count) {
        std::vector<unsigned> numbers;
        for (unsigned i = 0; i < count; ++i) {
            numbers.push_back(on.contested && m_random.Odds(70) ? PoolNumber() : m_nextWanted++);
        }
        return numbers;
    };
    for (const std::size_t index : m_ports) {
        const Device& port = plan.devices[index];
        number += 1 + m_random.Below(4);
        if (m_random.Odds(35)) {
            continue;
        }
        Section section{number, "DeviceID", port.id, wants(1 + m_random.Below(3)), ""};
        if (on.contested && m_random.Odds(15)) {
            section.pattern = port.id.substr(0, port.id.find('\\') + 1) + "*";
        } else if (!port.parent.empty() && m_random.Odds(20)) {
            section = {number, "ParentDeviceID", port.parent, wants(1 + m_random.Below(4)), ""};
        }
        if (on.quick && m_random.Odds(30)) {
            section.quick = m_random.Odds(60) ? "1" : "0";
        }
        made.sections.push_back(section);
    }
    // Two ports that want, first of all, each other's numbers.
    if (on.contested && m_ports.size() > 1 && m_random.Odds(60)) {
        WantEachOther(made);
    }
    if (on.contested && m_random.Odds(20)) {
        made.sections.push_back({100, "DeviceID", "*", wants(3), ""});
    }
    return made;
}

void Planner::WantEachOther(Configuration& made) {
    const std::size_t first = m_random.Below(static_cast<unsigned>(m_ports.size()) - 1);
    const Device& one = plan.devices[m_ports[first]];
    const Device& other = plan.devices[m_ports[first + 1]];
    const unsigned oneHas = DescribedNumber(one), otherHas = DescribedNumber(other);
    if (oneHas == 0 || otherHas == 0 || oneHas == otherHas) {
        return;
    }
    std::erase_if(made.sections, [&](const Section& section) {
        return section.pattern == one.id || section.pattern == other.id || section.pattern == one.parent ||
               section.pattern == other.parent || section.pattern.ends_with('*');
    });
    made.sections.push_back({98, "DeviceID", one.id, {otherHas}, ""});
    made.sections.push_back({99, "DeviceID", other.id, {oneHas}, ""});
}

void Planner::MakeConfigurations() {
    const unsigned count = plan.switches.edits ? 2 + m_random.Below(3) : 1;
    for (unsigned i = 0; i < count; ++i) {
        plan.configurations.push_back(MakeConfiguration());
    }
    Configuration last = plan.configurations[plan.switches.edits ? count - 1 : 0];
    // Settings that delete things at a removal belong to the shaking: with it nothing would be left to check.
    std::erase_if(last.settings, [](const auto& setting) {
        return setting.first.starts_with("Remove") || setting.first == "CheckPortsOnResume";
    });
    last.settings.emplace_back("CheckPortsOnResume", "1");
    plan.configurations.push_back(std::move(last));
}

void Planner::MakeFaults() {
    if (plan.switches.failing) {
        for (unsigned i = 1 + m_random.Below(4); i > 0; --i) {
            const char* call = m_random.Of(FailingCalls);
            const machine::Operation* operation = machine::FindOperation(call);
            if (!operation || operation->errorCount < 2) {
                continue;
            }
            // Without its initialisation thread a service never gets further than its start.
            const bool isThread = std::string_view(call) == "CreateThread";
            if (isThread && plan.switches.stops) {
                continue;
            }
            const unsigned error =
                operation->errors[1 + m_random.Below(static_cast<unsigned>(operation->errorCount) - 1)];
            const bool isNameWrite = std::string_view(call) == "RegSetValueExA" && m_random.Odds(60);
            plan.faults.push_back(
                fmt::format("call = \"{}\"\non = '{}'\nerror = {}\nafter = {}\ntimes = {}", call,
                            isNameWrite ? R"(*\Device Parameters\PortName)" : "*", error,
                            isNameWrite ? m_random.Below(3) : (isThread ? 20 : 0) + m_random.Below(300),
                            m_random.Odds(20) ? 0 : 1 + m_random.Below(3)));
        }
    }
    if (plan.switches.slow) {
        for (unsigned i = 1 + m_random.Below(4); i > 0; --i) {
            plan.faults.push_back(fmt::format("call = \"{}\"\ndelay = \"{}ms\"\nafter = {}\ntimes = {}",
                                              m_random.Of(SlowCalls), 1 + m_random.Below(1500), m_random.Below(200),
                                              1 + m_random.Below(20)));
        }
    }
}

Event Planner::MakeEvent() {
    const Switches& on = plan.switches;
    const auto unitEvent = [&](const std::string& top) {
        std::string text = fmt::format("plug = '{}'", top);
        const unsigned what = m_random.Below(on.flicker ? 6 : 2);
        if (what == 1) {
            text = fmt::format("unplug = '{}'", top);
        } else if (what > 1) {
            text = fmt::format("replug = {{ device = '{}', off = \"{}ms\" }}", top, m_random.Of(Around));
        }
        return Event{0, text, -1, UnitOf(top)};
    };
    const auto portEvent = [&](const std::string& text) { return Event{0, text, -1, -1}; };
    switch (m_random.Below(16)) {
    case 0:
    case 1:
        if (on.hubs && !m_hubUnits.empty()) {
            return unitEvent(plan.units[m_hubUnits[m_random.Below(static_cast<unsigned>(m_hubUnits.size()))]]);
        }
        break;
    case 2:
    case 3:
        if (on.resumes && !on.debugRole) {
            static constexpr const char* Kinds[] = {"\"automatic\"", "\"automatic\"", "\"critical\"",
                                                    "{ kind = \"automatic\", devices = \"replug\" }"};
            return portEvent(fmt::format("resume = {}", m_random.Of(Kinds)));
        }
        break;
    case 4:
        if (on.edits) {
            return {0, "", static_cast<int>(m_random.Below(static_cast<unsigned>(plan.configurations.size()))), -1};
        }
        break;
    case 5:
        if (on.stubborn) {
            return portEvent(m_random.Odds(50) ? fmt::format("hold = {{ port = \"COM{}\" }}", PoolNumber())
                                               : fmt::format("release = \"COM{}\"", PoolNumber()));
        }
        break;
    case 6:
    case 7:
        if (on.problems) {
            const Device& port = SomePort();
            Event event = portEvent(fmt::format("problem = {{ device = '{}', number = {}, quiet = {} }}", port.id,
                                                m_random.Odds(50) ? 0 : 10, m_random.Odds(50)));
            event.unit = static_cast<int>(port.unit);
            return event;
        }
        break;
    case 8:
        return portEvent(fmt::format("devnodes_changed = {}", 1 + m_random.Below(10)));
    case 9:
        if (on.links) {
            return portEvent(fmt::format("dos_name = {{ name = \"COM{}\", target = '{}' }}", 20 + m_random.Below(8),
                                         m_random.Odds(40) ? "" : R"(\Device\Gone7)"));
        }
        break;
    case 10:
        if (on.stops && !on.debugRole) {
            return portEvent(m_random.Odds(90) ? "stop = true" : "shutdown = true");
        }
        break;
    default:
        break;
    }
    return unitEvent(UnitTop());
}

// One more arrival or departure of what has just come, or of one of its ports alone, at a limit since then or a
// millisecond before or after it. Returns when that is over.
std::uint64_t Planner::AddEcho(const Event& event) {
    const std::vector<std::string> quoted = machine::Split(event.text, '\'');
    const std::size_t offAt = event.text.find("off = \"");
    if (event.unit < 0 || (offAt == std::string::npos && !event.text.starts_with("plug"))) {
        return event.atMs;
    }
    const std::uint64_t cameAtMs =
        event.atMs + (offAt == std::string::npos ? 0 : std::stoul(event.text.substr(offAt + 7)));
    const std::uint64_t at = cameAtMs + m_random.Of(Restarts) + m_random.Of(Limits) + m_random.Below(3);
    std::vector<std::string> ids = {quoted[1], quoted[1]};
    for (const std::size_t port : m_ports) {
        if (plan.devices[port].unit == static_cast<std::size_t>(event.unit)) {
            ids.push_back(plan.devices[port].id);
        }
    }
    const std::string& id = ids[m_random.Below(static_cast<unsigned>(ids.size()))];
    // Either it leaves at that time or it is back.
    const std::uint64_t off = std::min<std::uint64_t>(m_random.Of(Around), at - cameAtMs);
    const std::uint64_t leavesAtMs = m_random.Odds(50) ? at : at - off;
    plan.events.push_back({leavesAtMs > 0 ? leavesAtMs - 1 : 0,
                           fmt::format("replug = {{ device = '{}', off = \"{}ms\" }}", id, off), -1, event.unit});
    return leavesAtMs + off;
}

void Planner::MakeHistory() {
    std::uint64_t at = m_random.Odds(20) ? m_random.Below(3000) : 20'000 + m_random.Below(5000);
    for (unsigned i = 8 + m_random.Below(25); i > 0; --i) {
        Event event = MakeEvent();
        event.atMs = at;
        std::uint64_t overAtMs = at;
        if (m_random.Odds(45)) {
            // What a new rule moves is restarted, and a limit counts from there.
            if (plan.switches.edits) {
                plan.events.push_back(
                    {at > 0 ? at - 1 : 0, "",
                     static_cast<int>(m_random.Below(static_cast<unsigned>(plan.configurations.size()))), -1});
            }
            overAtMs = AddEcho(event);
        }
        const bool isStop = event.text == "stop = true" || event.text == "shutdown = true";
        plan.events.push_back(std::move(event));
        if (isStop) {
            plan.events.push_back({at + 200 + m_random.Below(20'000), "start = true", -1, -1});
        }
        at = m_random.Odds(50) ? overAtMs : at;
        const unsigned pause = m_random.Below(10);
        at += pause < 2 ? 0 : pause < 4 ? m_random.Below(300) : pause < 7 ? m_random.Of(Around) : 0;
        if (pause >= 7) {
            at += pause < 9 ? 8000 + m_random.Below(30'000) : Minute + m_random.Below(60'000);
        }
    }
    if (plan.switches.power) {
        AddPowerSpans();
    }
    if (plan.switches.people) {
        AddPeople(plan, m_peopleRandom);
    }
    std::stable_sort(plan.events.begin(), plan.events.end(),
                     [](const Event& a, const Event& b) { return a.atMs < b.atMs; });
    plan.calmAtMs = plan.events.back().atMs + Minute;
    CalmTimes times;
    (void)CalmEvents(plan, &times);
    plan.settledAtMs = times.settledAtMs;
}

// The machine goes to sleep or off somewhere in the history and comes back later: what happens in between happens to a
// machine that does not run. A debug run only sleeps: a shutdown would end it for good.
void Planner::AddPowerSpans() {
    const std::uint64_t last = plan.events.back().atMs;
    const bool hasFastStartup = plan.windows.front().find("10.0") != std::string::npos;
    const unsigned kinds = plan.switches.debugRole ? 1 : hasFastStartup ? 4 : 3;
    for (unsigned i = 1 + m_powerRandom.Below(3); i > 0; --i) {
        const std::uint64_t from = m_powerRandom.Next() % (last + 1);
        const std::uint64_t to =
            from + (m_powerRandom.Odds(50) ? 1 + m_powerRandom.Below(3000) : 8000 + m_powerRandom.Below(120'000));
        const unsigned kind = m_powerRandom.Below(kinds);
        const char* goes = kind == 0   ? "suspend = true"
                           : kind == 1 ? "suspend = \"critical\""
                           : kind == 2 ? "shutdown = true"
                                       : "shutdown = \"fast\"";
        plan.events.push_back({from, goes, -1, -1});
        plan.events.push_back({to, kind < 2 ? "resume = \"automatic\"" : "start = true", -1, -1});
    }
}

std::uint64_t Random::Next() {
    std::uint64_t z = m_state += 0x9E3779B97F4A7C15ull;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ z >> 27) * 0x94D049BB133111EBull;
    return z ^ z >> 31;
}

Plan PlanOf(std::uint64_t seed) {
    return Planner(seed).Make();
}

std::string SwitchesText(const Switches& switches) {
    std::string text = switches.firstNodeOne ? "first-node" : "";
    for (const SwitchRow& row : SwitchRows) {
        if (switches.*row.member) {
            text += fmt::format("{}{}", text.empty() ? "" : " ", row.name);
        }
    }
    if (switches.power) {
        text += text.empty() ? "power" : " power";
    }
    if (switches.people) {
        text += text.empty() ? "people" : " people";
    }
    return text.empty() ? "none" : text;
}

const Section* FittingSection(const Configuration& configuration, const Device& device) {
    for (const Section& section : configuration.sections) {
        const std::string& value = section.key == "DeviceID" ? device.id : device.parent;
        if (!value.empty() && machine::MatchesWildcard(value, section.pattern)) {
            return &section; // they stand in the order of their numbers
        }
    }
    return nullptr;
}

bool IsNeverMeant(const Plan& plan, const Device& device) {
    return std::none_of(plan.configurations.begin(), plan.configurations.end(),
                        [&](const Configuration& configuration) { return FittingSection(configuration, device); });
}

} // namespace storm
