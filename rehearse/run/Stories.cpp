#include "rehearse/run/Stories.h"

#include "rehearse/description/Manners.h"
#include "rehearse/events/Events.h"
#include "rehearse/expectations/Expectations.h"
#include "rehearse/host/Durations.h"
#include "rehearse/machine/Adapters.h"
#include "rehearse/machine/Sockets.h"

#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <set>
#include <utility>
#include <vector>

namespace rehearse {

// Long enough for the service to have done what it does about a port, a restart with all its waits included.
constexpr std::uint64_t StepMs = 30 * MsPerSecond;
constexpr std::uint64_t BetweenMs = 5 * MsPerMinute; // before a story, and after what concerns all ports
constexpr std::uint64_t OffMs = 2 * MsPerMinute;     // the machine is off or asleep
constexpr std::uint64_t OutMs = MsPerSecond;         // a plug in somebody's hand
constexpr unsigned FirstWithFastStartup = 0x0602;

static std::string Counted(std::size_t count, const char* what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

namespace {

// Writes events one after another.
class Planner {
public:
    Planner(const TomlTable& description, std::uint64_t fromMs);

    void Boot();
    void Replug();
    void Sockets();
    void Storm();
    void Sleep();
    void Newcomer();

    std::vector<TomlTable> Take() { return std::move(m_events); }

private:
    using Fields = std::initializer_list<std::pair<const char*, Value>>;
    Value OfType(unsigned type) const;
    Value Yes() const;
    Value TextValue(const std::string& text) const;
    Value Ms(std::uint64_t ms) const;
    Value TableValue(Fields fields) const;

    void Begin(const char* name, const std::string& title);
    void Add(const char* subject, Value value); // at m_atMs
    void Wait(std::uint64_t ms) { m_atMs += ms; }
    void WakeUp(const TomlTable& description);
    void PlugNew(const machine::DeviceNode& adapter, const std::string& id, const Socket& socket);
    void ToSocket(const machine::DeviceNode& adapter, const Socket& socket);
    void ComeAndGo(const machine::DeviceNode& adapter, const Socket& socket);

    const Position& m_at;
    std::uint64_t m_atMs;
    rehearse::Sockets m_sockets; // as the description's own events leave them; each story leaves them so too
    std::vector<const machine::DeviceNode*> m_adapters;
    std::vector<TomlTable> m_events;
};

struct Story {
    const char* name;
    void (Planner::*plan)();
};
constexpr Story Stories[] = {
    {"boot", &Planner::Boot},   {"replug", &Planner::Replug}, {"sockets", &Planner::Sockets},
    {"storm", &Planner::Storm}, {"sleep", &Planner::Sleep},   {"newcomer", &Planner::Newcomer},
};

} // namespace

static std::vector<const TomlTable*> InOrder(const std::vector<TomlTable>& events) {
    std::vector<const TomlTable*> sorted;
    sorted.reserve(events.size());
    for (const TomlTable& event : events) {
        sorted.push_back(&event);
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const TomlTable* a, const TomlTable* b) { return a->MsOf("at") < b->MsOf("at"); });
    return sorted;
}

Planner::Planner(const TomlTable& description, std::uint64_t fromMs) : m_at(description.at), m_atMs(fromMs) {
    for (const TomlTable* event : InOrder(description.TablesOf("event"))) {
        m_sockets.Happen(*event);
    }
    m_adapters = PluggedAdapters(m_sockets);
    WakeUp(description);
}

// Without it nothing of a story would happen on a machine that the description leaves asleep or off.
void Planner::WakeUp(const TomlTable& description) {
    const char* needed = nullptr;
    for (const TomlTable* event : InOrder(description.TablesOf("event"))) {
        const bool isQuestion = event->TextOf("suspend") == "query";
        if (event->Has("suspend") && !isQuestion) {
            needed = needed ? needed : "resume";
        } else if (event->Has("shutdown")) {
            needed = needed ? needed : "start";
        } else if (needed && event->Has(needed)) {
            needed = nullptr;
        }
    }
    if (!needed) {
        return;
    }
    Wait(BetweenMs);
    Add(needed, needed == std::string_view("start") ? Yes() : TextValue("automatic"));
}

Value Planner::OfType(unsigned type) const {
    Value value;
    value.at = m_at;
    value.type = type;
    return value;
}

Value Planner::Yes() const {
    Value value = OfType(Flag);
    value.number = 1;
    return value;
}

Value Planner::TextValue(const std::string& text) const {
    Value value = OfType(Text);
    value.text = text;
    return value;
}

Value Planner::Ms(std::uint64_t ms) const {
    Value value = OfType(Duration);
    value.number = static_cast<std::int64_t>(ms);
    return value;
}

Value Planner::TableValue(Fields fields) const {
    Value value = OfType(Table);
    TomlTable& table = value.tables.emplace_back();
    table.at = m_at;
    for (const auto& [key, field] : fields) {
        table.Set(key, field);
    }
    return value;
}

void Planner::Add(const char* subject, Value value) {
    TomlTable& event = m_events.emplace_back();
    event.at = m_at;
    event.section = "event";
    event.Set("at", Ms(m_atMs));
    event.Set(subject, std::move(value));
}

void Planner::Begin(const char* name, const std::string& title) {
    Wait(BetweenMs);
    Add("story", TableValue({{"name", TextValue(name)}, {"title", TextValue(title)}}));
}

void Planner::Boot() {
    const bool isFastToo = machine::TheSetup().version.Packed() >= FirstWithFastStartup;
    Begin("boot", isFastToo ? "Windows shuts down and starts, then once more by a fast startup"
                            : "Windows shuts down and starts");
    Add("shutdown", Yes());
    Wait(OffMs);
    Add("start", Yes());
    if (isFastToo) {
        Wait(BetweenMs);
        Add("shutdown", TextValue("fast"));
        Wait(OffMs);
        Add("start", Yes());
    }
}

void Planner::Replug() {
    Begin("replug", m_adapters.empty() ? "nothing to do, since no port is on a USB socket"
                                       : fmt::format("{}, one after another, pulled out and plugged in again",
                                                     Counted(m_adapters.size(), "adapter")));
    for (const machine::DeviceNode* adapter : m_adapters) {
        Add("replug", TableValue({{"device", TextValue(adapter->id)}, {"off", Ms(OutMs)}}));
        Wait(StepMs);
    }
}

// One that Windows has not seen on that socket yet.
void Planner::PlugNew(const machine::DeviceNode& adapter, const std::string& id, const Socket& socket) {
    Value parts = OfType(Texts), port = OfType(Number);
    parts.texts = PartsOf(adapter, m_sockets);
    port.number = socket.port;
    Add("newcomer", TableValue({{"id", TextValue(id)},
                                {"parts", std::move(parts)},
                                {"hub", TextValue(socket.hub->id)},
                                {"hub_port", std::move(port)},
                                {"stays", Ms(StepMs)}}));
}

// Another device of the kind comes to the socket, and goes again after a step.
void Planner::ComeAndGo(const machine::DeviceNode& adapter, const Socket& socket) {
    const std::string id = IdOfNewcomer(adapter, socket);
    if (!machine::TheDeviceTree().FindById(id)) {
        PlugNew(adapter, id, socket);
        Wait(StepMs);
        return;
    }
    Add("plug", TextValue(id));
    Wait(StepMs);
    Add("unplug", TextValue(id));
}

// With a serial number it is the same device everywhere; without one it is another device on each socket.
void Planner::ToSocket(const machine::DeviceNode& adapter, const Socket& socket) {
    const rehearse::Sockets::Place home = m_sockets.PlaceOf(adapter);
    const auto move = [&](const machine::DeviceNode& hub, unsigned number) {
        Value port = OfType(Number);
        port.number = number;
        Add("move",
            TableValue({{"device", TextValue(adapter.id)}, {"hub", TextValue(hub.id)}, {"hub_port", std::move(port)}}));
        Wait(StepMs);
    };
    if (IdOnSocket(adapter, socket) == adapter.id) {
        move(*socket.hub, socket.port);
        move(*home.hub, home.port);
        return;
    }
    Add("unplug", TextValue(adapter.id));
    Wait(OutMs);
    ComeAndGo(adapter, socket);
    Wait(OutMs);
    Add("plug", TextValue(adapter.id));
    Wait(StepMs);
}

void Planner::Sockets() {
    std::vector<std::pair<const machine::DeviceNode*, Socket>> moves;
    for (const machine::DeviceNode* adapter : m_adapters) {
        const std::optional<Socket> socket = IsRadio(*adapter) ? std::nullopt : NextFreeSocket(*adapter, m_sockets);
        if (socket) {
            moves.emplace_back(adapter, *socket);
        }
    }
    Begin("sockets", moves.empty() ? "nothing to do, since no adapter with a port can move to a free USB socket"
                                   : fmt::format("{}, one after another, to the next free socket and back",
                                                 Counted(moves.size(), "adapter")));
    for (const auto& [adapter, socket] : moves) {
        ToSocket(*adapter, socket);
    }
}

// Twice, so that the second arrival in reverse finds kernel names and order changed.
void Planner::Storm() {
    Begin("storm", m_adapters.empty() ? "nothing to do, since no port is on a USB socket"
                                      : fmt::format("{} go at once and come back at once, then in reverse order",
                                                    Counted(m_adapters.size(), "adapter")));
    for (const bool isReversed : {false, true}) {
        std::vector<const machine::DeviceNode*> order = m_adapters;
        if (isReversed) {
            std::reverse(order.begin(), order.end());
        }
        for (const machine::DeviceNode* adapter : order) {
            Add("replug", TableValue({{"device", TextValue(adapter->id)}, {"off", Ms(OutMs)}}));
        }
        Wait(m_adapters.empty() ? 0 : BetweenMs);
    }
}

void Planner::Sleep() {
    Begin("sleep", "the machine sleeps and wakes, then once more with USB devices that come back as new arrivals");
    Add("suspend", Yes());
    Wait(OffMs);
    Add("resume", TextValue("automatic"));
    Wait(BetweenMs);
    Add("suspend", Yes());
    Wait(OffMs);
    Add("resume", TableValue({{"devices", TextValue("replug")}}));
}

void Planner::Newcomer() {
    std::vector<std::pair<const machine::DeviceNode*, Socket>> newcomers;
    std::set<std::string, machine::NoCaseLess> kinds;
    for (const machine::DeviceNode* adapter : m_adapters) {
        const std::optional<Socket> socket = IsRadio(*adapter) ? std::nullopt : NextFreeSocket(*adapter, m_sockets);
        if (socket && kinds.insert(adapter->id.substr(0, adapter->id.rfind('\\'))).second) {
            newcomers.emplace_back(adapter, *socket);
        }
    }
    Begin("newcomer", newcomers.empty()
                          ? "nothing to do, since there is no adapter with a port, or no free USB socket for one more"
                          : fmt::format("one more adapter of {}, plugged in and after half a minute pulled out again",
                                        newcomers.size() == 1 ? "the one kind that is there"
                                                              : fmt::format("each of {} kinds", newcomers.size())));
    for (const auto& [adapter, socket] : newcomers) {
        ComeAndGo(*adapter, socket);
        Wait(StepMs);
    }
}

static std::vector<std::string> NamesWithWords() {
    std::vector<std::string> names;
    for (const Story& story : Stories) {
        names.emplace_back(story.name);
    }
    names.insert(names.end(), {"all", "none"});
    return names;
}

std::string WrongStory(std::string_view name) {
    const std::vector<std::string> names = NamesWithWords();
    return std::find(names.begin(), names.end(), name) != names.end()
               ? ""
               : fmt::format("there is no story '{}'{}", name, DidYouMean(name, names));
}

std::string StoryNames() {
    return fmt::format("{}", fmt::join(NamesWithWords(), ", "));
}

// Each once, in the order in which they are named.
static std::vector<const Story*> WantedStories(const TomlTable& description, const Options& options) {
    const std::vector<std::string> names = options.stories.empty() ? description.TextsOf("stories") : options.stories;
    std::vector<const Story*> wanted;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (const std::string wrong = WrongStory(names[i]); !wrong.empty()) {
            const Value* value = description.Find("stories");
            const bool hasPlace = options.stories.empty() && value && i < value->itemsAt.size();
            throw InputError(hasPlace ? value->itemsAt[i] : description.At("stories"), wrong);
        }
        for (const Story& story : Stories) {
            if ((names[i] == "all" || names[i] == story.name) &&
                std::find(wanted.begin(), wanted.end(), &story) == wanted.end()) {
                wanted.push_back(&story);
            }
        }
    }
    return wanted;
}

void AddStories(TomlTable& description, const Options& options) {
    const std::vector<const Story*> wanted = WantedStories(description, options);
    if (wanted.empty()) {
        return;
    }
    Planner planner(description, std::max(LastEventMs(description), Expectations::LastMs(description)));
    for (const Story* story : wanted) {
        (planner.*story->plan)();
    }
    Value events;
    if (const Value* own = description.Find("event")) {
        events = *own;
    }
    events.type = Tables;
    for (TomlTable& event : planner.Take()) {
        events.tables.push_back(std::move(event));
    }
    description.Set("event", std::move(events));
}

} // namespace rehearse
