#include "rehearse/events/SessionEvents.h"

#include "rehearse/machine/DescribedDesktop.h"
#include "rehearse/machine/DescribedSessions.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Text.h"
#include "simwin/sessions/Sessions.h"
#include "simwin/shell/Shell.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

// The event's action and its line in the timeline.
static Action LogonEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("logon");
    const machine::Session session = SessionOf(table, /*isConsole=*/false);
    const auto input = SessionInputOf(table);
    return [&stage, input, session] {
        const unsigned id = machine::LogOn(session); // another one than described if somebody else is in that
        stage.timeline->Outside(fmt::format("{} logs on to session {}", session.user, id));
        input(id);
    };
}

static Action LogoffEvent(const TomlTable& event, Stage& stage) {
    const unsigned id = SessionIn(event, "logoff");
    return [&stage, id] {
        stage.timeline->Outside(fmt::format("session {} ends", id));
        machine::LogOff(id);
    };
}

static Action SessionEvent(const TomlTable& event, Stage& stage) {
    const TomlTable& table = *event.TableOf("session");
    const unsigned id = SessionIn(table, "id");
    const std::optional<simwin::WTS_CONNECTSTATE_CLASS> state = StateIn(table);
    std::optional<bool> console;
    if (table.Has("console")) {
        console = table.FlagOf("console");
    }
    const std::string what = table.TextOf("state", console.value_or(false) ? "at the console" : "not at the console");
    return [&stage, id, state, console, what] {
        stage.timeline->Outside(fmt::format("session {} is {}", id, what));
        machine::ChangeSession(id, state, console);
    };
}

static bool LogsOnLater(const TomlTable& description, const std::string& user) {
    const std::vector<TomlTable>& events = description.TablesOf("event");
    return std::any_of(events.begin(), events.end(), [&](const TomlTable& event) {
        const TomlTable* logon = event.TableOf("logon");
        return logon && machine::EqualNoCase(logon->TextOf("user"), user);
    });
}

// The program of a command line: in quotes, or up to the first blank.
static std::string ProgramOf(const std::string& commandLine) {
    if (commandLine.starts_with('"')) {
        return commandLine.substr(1, commandLine.find('"', 1) - 1);
    }
    return commandLine.substr(0, commandLine.find(' '));
}

static Action RunEvent(const TomlTable& event, Stage& stage) {
    const std::vector<TomlTable>& sessions = stage.description->TablesOf("session");
    const std::string first = sessions.empty() ? NamelessUser : sessions.front().TextOf("user");
    machine::ProcessStart start;
    machine::Logon logon;
    logon.user = event.TextOf("user", first);
    if (!LogsOnLater(*stage.description, logon.user)) {
        logon = LogonOfUser(*stage.description, logon.user, event.At("user"));
    }
    start.commandLine = event.TextOf("run");
    start.imagePath = ProgramOf(start.commandLine);
    if (start.imagePath.size() < 3 || start.imagePath[1] != ':') {
        throw InputError(event.At("run"), "'run' must begin with the full path of a program");
    }
    start.currentDirectory = start.imagePath.substr(0, start.imagePath.rfind('\\'));
    return [&stage, start, logon] {
        machine::ProcessStart now = start;
        machine::Logon user = logon;
        const machine::Session* session = machine::FindSessionOfUser(logon.user);
        if (session) {
            user = machine::LogonOf(*session);
            const machine::Process* shell = machine::ShellOf(*session);
            now.parentId = shell ? shell->id : 0;
        }
        if (!session && (machine::HasBooted() || !machine::AllSessions().empty())) {
            stage.timeline->Outside(fmt::format("{} is not logged on, and runs nothing", logon.user));
            return;
        }
        const machine::Ref token(new machine::Token(machine::LogonToken(user)));
        machine::StartWith(now, *token);
        simwin::DWORD error = 0;
        const bool isStarted = machine::StartProgram(now, &error) != nullptr;
        stage.timeline->Outside(
            fmt::format("{} {}{}", logon.user, isStarted ? "runs " : "cannot run ", start.commandLine));
    };
}

constexpr EventRow Rows[] = {
    {"logon", LogonEvent}, {"logoff", LogoffEvent}, {"session", SessionEvent}, {"run", RunEvent}};

std::span<const EventRow> SessionEventRows() {
    return Rows;
}

} // namespace rehearse
