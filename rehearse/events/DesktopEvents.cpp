#include "rehearse/events/DesktopEvents.h"

#include "rehearse/machine/DescribedDesktop.h"
#include "rehearse/machine/DescribedSessions.h"
#include "rehearse/watch/Balloons.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/pipes/Pipes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace rehearse {

using machine::TaskBar;

constexpr std::int64_t LargestSession = 0xFFFF;
constexpr const char* PipeName = "\\\\.\\pipe\\QuillmarchBalloonUpdate";
constexpr std::size_t RecordBytes = 1160, LargestMessage = 65536;
constexpr std::int64_t MostClients = 100;

static unsigned SessionIn(const TomlTable& table, const Stage& stage) {
    const std::vector<TomlTable>& sessions = stage.description->TablesOf("session");
    const std::int64_t first = sessions.empty() ? 1 : sessions.front().NumberOf("id", 1);
    const std::int64_t id = table.NumberOf("session", first);
    if (id < 0 || id > LargestSession) {
        throw InputError(table.At("session"), "'session' must be 0 to 65535");
    }
    return static_cast<unsigned>(id);
}

static Action MoveTaskBarEvent(const TomlTable& event, Stage& stage) {
    const TomlTable table = *event.TableOf("move_taskbar");
    TaskBar checked;
    AmendBar(checked, table);
    return [&stage, table] {
        TaskBar bar = machine::TheTaskBar();
        AmendBar(bar, table);
        stage.timeline->Outside(bar.isGone ? "the task bar goes" : "the task bar moves");
        machine::SetTaskBar(bar);
    };
}

static Action WindowEvent(const TomlTable& event, Stage& stage, const char* subject, bool isToolTip) {
    const TomlTable& table = *event.TableOf(subject);
    machine::ForeignWindow window;
    window.name = table.TextOf("name");
    window.session = SessionIn(table, stage);
    if (table.FlagOf("gone")) {
        return [&stage, window] {
            stage.timeline->Outside(fmt::format("the window '{}' goes", window.name));
            machine::RemoveForeignWindow(window.session, window.name);
        };
    }
    window.isToolTip = isToolTip;
    for (const auto& [key, field] : {std::pair("x", &window.x), std::pair("y", &window.y),
                                     std::pair("width", &window.width), std::pair("height", &window.height)}) {
        if (table.Has(key)) {
            *field = PixelsIn(table, key, 0);
        }
    }
    if (table.Has("style")) {
        constexpr std::int64_t LargestDword = 0xFFFFFFFF;
        const std::int64_t style = table.NumberOf("style");
        if (style < 0 || style > LargestDword) {
            throw InputError(table.At("style"), "'style' must be 0 to 4294967295");
        }
        window.style = static_cast<simwin::DWORD>(style);
    }
    if (table.Has("class")) {
        window.className = table.TextOf("class");
    }
    if (table.Has("topmost")) {
        window.isTopmost = table.FlagOf("topmost");
    }
    return [&stage, window] {
        machine::ShowForeignWindow(window);
        const machine::Window* shown = machine::FindForeignWindow(window.name);
        stage.timeline->Outside(
            fmt::format("the window '{}' is shown at {}, {}", window.name, shown->rect.left, shown->rect.top));
    };
}

static Action ToolTipEvent(const TomlTable& event, Stage& stage) {
    return WindowEvent(event, stage, "tooltip", /*isToolTip=*/true);
}

static Action ForeignWindowEvent(const TomlTable& event, Stage& stage) {
    return WindowEvent(event, stage, "window", /*isToolTip=*/false);
}

namespace {
// The target of the mouse; nothing without the balloon that it is relative to.
struct Target {
    bool isOnBalloon = false;
    std::optional<simwin::LONG> x, y;
    std::optional<unsigned> session;

    std::optional<std::pair<unsigned, simwin::POINT>> Find(const Balloons& balloons) const {
        if (!isOnBalloon) {
            return std::pair(session.value_or(1), simwin::POINT{x.value_or(0), y.value_or(0)});
        }
        const Balloon* balloon = balloons.Front(session);
        if (!balloon) {
            return std::nullopt;
        }
        const simwin::RECT& place = balloon->now.place;
        return std::pair(balloon->session, simwin::POINT{place.left + x.value_or((place.right - place.left) / 2),
                                                         place.top + y.value_or((place.bottom - place.top) / 2)});
    }
};
} // namespace

static Target TargetOf(const TomlTable* table, const Stage& stage) {
    Target target;
    if (!table) {
        target.isOnBalloon = true;
        return target;
    }
    target.isOnBalloon = table->Has("on");
    if (table->Has("x")) {
        target.x = PixelsIn(*table, "x", 0);
    }
    if (table->Has("y")) {
        target.y = PixelsIn(*table, "y", 0);
    }
    if (!target.isOnBalloon || table->Has("session")) {
        target.session = SessionIn(*table, stage);
    }
    return target;
}

static Action ClickEvent(const TomlTable& event, Stage& stage) {
    const TomlTable* table = event.TableOf("click");
    const std::string name = table ? table->TextOf("button", "left") : "left";
    const machine::MouseButton button = name == "left"    ? machine::MouseButton::Left
                                        : name == "right" ? machine::MouseButton::Right
                                                          : machine::MouseButton::Middle;
    return [&stage, button, target = TargetOf(table, stage)] {
        const auto place = target.Find(*stage.balloons);
        if (!place) {
            stage.timeline->Outside("there is no balloon to click on");
            return;
        }
        machine::MoveMouse(place->first, place->second);
        machine::ClickMouse(place->first, button);
    };
}

static Action MouseEvent(const TomlTable& event, Stage& stage) {
    return [&stage, target = TargetOf(event.TableOf("mouse"), stage)] {
        const auto place = target.Find(*stage.balloons);
        if (!place) {
            stage.timeline->Outside("there is no balloon for the mouse to go to");
            return;
        }
        stage.timeline->Outside(fmt::format("the mouse goes to {}, {}", place->second.x, place->second.y));
        machine::MoveMouse(place->first, place->second);
    };
}

// "\u0000" to "\u00FF", a byte each.
static std::string BytesIn(const TomlTable& table, std::string_view key) {
    const std::u16string text = machine::Utf16FromUtf8(table.TextOf(key));
    std::string bytes;
    for (const char16_t c : text) {
        if (c > 0xFF) {
            throw InputError(table.At(key), fmt::format("'{}' holds characters above \\u00FF", key));
        }
        bytes += static_cast<char>(c);
    }
    return bytes;
}

static void PutText(std::string& record, std::size_t at, std::size_t size, const std::string& text) {
    text.copy(record.data() + at, std::min(size - 1, text.size()));
}

static void PutNumber(std::string& record, std::size_t at, std::int64_t number) {
    const auto value = static_cast<std::int32_t>(number);
    std::memcpy(record.data() + at, &value, sizeof(value));
}

static std::string MessageOf(const TomlTable& table) {
    const std::int64_t size = table.NumberOf("size", static_cast<std::int64_t>(RecordBytes));
    if (size < 0 || size > static_cast<std::int64_t>(LargestMessage)) {
        throw InputError(table.At("size"), "'size' must be 0 to 65536");
    }
    if (table.Has("raw")) {
        return BytesIn(table, "raw");
    }
    constexpr std::int64_t DefaultMs = 5000, DefaultIcon = 102;
    std::string record(RecordBytes, '\0');
    PutNumber(record, 0, table.NumberOf("time", DefaultMs));
    PutNumber(record, 4, table.NumberOf("charset", 1));
    PutText(record, 8, 120, table.TextOf("title"));
    PutText(record, 128, 256, table.TextOf("text1"));
    PutText(record, 384, 768, table.TextOf("text2"));
    PutNumber(record, 1152, table.NumberOf("icon", DefaultIcon));
    record.resize(static_cast<std::size_t>(size));
    return record;
}

namespace {
struct PipeWriter {
    std::string user, message;
    bool administrator = false, filtered = false;
    std::optional<std::uint64_t> silentMs;
    std::int64_t clients = 1;
};
} // namespace

static void WriteOnce(const PipeWriter& writer, Timeline& timeline) {
    machine::PipeClient client;
    const machine::Caller caller = machine::MakeCaller(writer.user, writer.administrator, writer.filtered);
    simwin::DWORD error = machine::ConnectPipeClient(PipeName, caller, /*writes=*/true, &client);
    if (error) {
        timeline.Outside(fmt::format("{} cannot open the balloon's pipe: error {}", writer.user, error));
        return;
    }
    if (writer.silentMs) {
        timeline.Outside(fmt::format("{} opens the balloon's pipe and writes nothing", writer.user));
        machine::After(*writer.silentMs, [client, &timeline, user = writer.user] {
            const bool isThere = machine::IsPipeConnected(client);
            timeline.Outside(
                fmt::format("{} {}", user, isThere ? "closes the pipe" : "had been dropped from the pipe"));
            machine::ClosePipeClient(client);
        });
        return;
    }
    error = machine::WriteToPipe(client, writer.message);
    machine::ClosePipeClient(client);
    const std::size_t size = writer.message.size();
    timeline.Outside(fmt::format("{} writes {} byte{} to the balloon's pipe{}", writer.user, size, size == 1 ? "" : "s",
                                 error ? fmt::format(": error {}", error) : ""));
}

static Action PipeEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("pipe");
    const std::vector<TomlTable>& sessions = stage.description->TablesOf("session");
    PipeWriter writer;
    writer.user = table.TextOf("user", sessions.empty() ? NamelessUser : sessions.front().TextOf("user"));
    for (const TomlTable& session : sessions) {
        if (machine::EqualNoCase(session.TextOf("user"), writer.user)) {
            writer.administrator = session.FlagOf("administrator");
            writer.filtered = session.FlagOf("uac");
        }
    }
    writer.message = MessageOf(table);
    if (table.Has("silent")) {
        writer.silentMs = table.MsOf("silent");
    }
    writer.clients = table.NumberOf("clients", 1);
    if (writer.clients < 1 || writer.clients > MostClients) {
        throw InputError(table.At("clients"), "'clients' must be 1 to 100");
    }
    return [&stage, writer] {
        for (std::int64_t i = 0; i < writer.clients; ++i) {
            WriteOnce(writer, *stage.timeline);
        }
    };
}

constexpr EventRow Rows[] = {
    {"move_taskbar", MoveTaskBarEvent},
    {"tooltip", ToolTipEvent},
    {"window", ForeignWindowEvent},
    {"click", ClickEvent},
    {"mouse", MouseEvent},
    {"pipe", PipeEvent},
};

std::span<const EventRow> DesktopEventRows() {
    return Rows;
}

} // namespace rehearse
