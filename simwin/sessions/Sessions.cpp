#include "simwin/sessions/Sessions.h"

#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/Security.h"
#include "simwin/services/Services.h"
#include "simwin/sessions/Tokens.h"
#include "simwin/texts/Environment.h"

#include <algorithm>
#include <cstring>

namespace machine {

using namespace simwin;

namespace {
struct SessionRoom {
    std::vector<Session> sessions; // in the order of description and logon
    std::vector<std::function<void(Process&)>> onShell;
    bool consoleIsEmpty = false;
};
} // namespace
static SessionRoom* g_room;

constexpr const char* StateNames[] = {"active", "connected", "connectquery", "shadow", "disconnected",
                                      "idle",   "listen",    "reset",        "down",   "init"};

RoomPtr MakeSessions() {
    return MakeRoom(g_room);
}

static void TellServices(DWORD event, unsigned id) {
    const WTSSESSION_NOTIFICATION notification = {sizeof(WTSSESSION_NOTIFICATION), id};
    std::vector<BYTE> data(sizeof(notification));
    std::memcpy(data.data(), &notification, sizeof(notification));
    BroadcastServiceControl(SERVICE_CONTROL_SESSIONCHANGE, event, data);
}

static bool HasServicesSession() {
    return TheSetup().version.major >= 6;
}

static std::string ShellPath() {
    return WindowsDirectory() + "\\explorer.exe";
}

static bool IsOfSession(const Process& process, const Session& session) {
    return !process.ended && process.session == session.id && EqualNoCase(process.user, session.user);
}

static void StartShell(const Session& session) {
    if (!session.hasShell || session.user.empty() || ShellOf(session)) {
        return;
    }
    ProcessStart start;
    start.imagePath = ShellPath();
    start.commandLine = start.imagePath;
    start.currentDirectory = SystemDirectory();
    const Ref<Token> token(new Token(LogonToken(LogonOf(session))));
    StartWith(start, *token);
    Process* shell = StartScripted(start);
    for (const auto& action : g_room->onShell) {
        action(*shell);
    }
}

// The console goes to session `id`: a session without a user is no longer needed, a user's is disconnected.
static void LeaveConsole(unsigned id) {
    std::erase_if(g_room->sessions,
                  [&](const Session& other) { return other.console && other.id != id && other.user.empty(); });
    for (Session& other : g_room->sessions) {
        if (other.console && other.id != id) {
            other.console = false;
            other.state = WTSDisconnected;
            TellServices(WTS_CONSOLE_DISCONNECT, other.id);
        }
    }
}

void DefineSession(const Session& session) {
    const auto known = std::find_if(g_room->sessions.begin(), g_room->sessions.end(),
                                    [&](const Session& other) { return other.id == session.id; });
    if (known != g_room->sessions.end()) {
        *known = session;
    } else {
        g_room->sessions.push_back(session);
    }
    if (session.console) {
        g_room->consoleIsEmpty = false;
    }
    if (session.user.empty()) {
        return;
    }
    (void)SidOfAccount(session.user); // SIDs are given in the order of the sessions
    for (const auto& [name, value] : session.environment) {
        SetUserEnvironment(session.user, name, value);
    }
}

Process* ShellOf(const Session& session) {
    for (Process* process : AllProcesses()) {
        if (IsOfSession(*process, session) && EqualNoCase(process->imagePath, ShellPath())) {
            return process;
        }
    }
    return nullptr;
}

void StartShells() {
    for (const Session& session : g_room->sessions) {
        StartShell(session);
    }
}

Logon LogonOf(const Session& session) {
    return {session.user, session.id, session.console, session.administrator, session.filtered, session.groups};
}

void OnShellStart(std::function<void(Process&)> action) {
    g_room->onShell.push_back(std::move(action));
}

void LeaveConsoleEmpty() {
    g_room->consoleIsEmpty = true;
}

void ChangeSession(unsigned id, std::optional<WTS_CONNECTSTATE_CLASS> state, std::optional<bool> console) {
    const auto at = std::find_if(g_room->sessions.begin(), g_room->sessions.end(),
                                 [&](const Session& session) { return session.id == id; });
    if (at == g_room->sessions.end()) {
        return;
    }
    Session session = *at;
    const bool wasConnected = session.state == WTSActive || session.state == WTSConnected;
    const bool moves = console && *console != session.console;
    const DWORD connect[] = {WTS_REMOTE_CONNECT, WTS_CONSOLE_CONNECT};
    const DWORD disconnect[] = {WTS_REMOTE_DISCONNECT, WTS_CONSOLE_DISCONNECT};
    const DWORD leaves = disconnect[session.console];
    session.console = console.value_or(session.console);
    session.state = state ? *state : moves && session.console ? WTSActive : session.state;
    const bool isConnected = session.state == WTSActive || session.state == WTSConnected;
    if (moves && session.console) {
        LeaveConsole(id);
    }
    DefineSession(session);
    if (wasConnected && (moves || !isConnected)) {
        TellServices(leaves, id);
    }
    if (isConnected && (moves || !wasConnected)) {
        TellServices(connect[session.console], id);
    }
}

std::optional<WTS_CONNECTSTATE_CLASS> SessionStateFromName(std::string_view name) {
    for (int state = WTSActive; state <= WTSInit; ++state) {
        if (EqualNoCase(name, StateNames[state])) {
            return static_cast<WTS_CONNECTSTATE_CLASS>(state);
        }
    }
    return std::nullopt;
}

unsigned LogOn(Session session) {
    session.console = session.console || ConsoleSession() == session.id;
    session.state = WTSActive;
    const auto isOthers = [&](const Session* known) {
        return known && !known->user.empty() && !EqualNoCase(known->user, session.user);
    };
    while (isOthers(FindSession(session.id))) { // a user who is there stays logged on
        ++session.id;
    }
    if (session.console) {
        LeaveConsole(session.id);
    }
    DefineSession(session);
    StartShell(session);
    TellServices(WTS_SESSION_LOGON, session.id);
    return session.id;
}

void LogOff(unsigned id) {
    const Session* known = FindSession(id);
    if (!known) {
        return;
    }
    const bool wasConsole = known->console;
    std::erase_if(g_room->sessions, [&](const Session& session) { return session.id == id; });
    if (wasConsole) {
        Session next;
        next.id = HasServicesSession() ? id + 1 : 0;
        while (HasServicesSession() && FindSession(next.id)) {
            ++next.id;
        }
        next.state = WTSConnected;
        DefineSession(next);
    }
    // A copy: ending one process may start or end others.
    const std::vector<Process*> processes = AllProcesses();
    for (Process* process : processes) {
        if (!process->ended && process->session == id && process->rights != Rights::System) {
            EndProcess(process, 0);
        }
    }
    TellServices(WTS_SESSION_LOGOFF, id);
}

void ForgetSessions() {
    g_room->sessions.clear();
}

std::vector<Session> ListedSessions() {
    std::vector<Session> listed;
    for (const Session& session : g_room->sessions) {
        if (session.id != 0) {
            listed.push_back(session);
        }
    }
    const bool hasConsole = std::any_of(g_room->sessions.begin(), g_room->sessions.end(),
                                        [](const Session& session) { return session.console; });
    Session first;
    first.id = 0;
    first.state = WTSDisconnected;
    first.console = false;
    if (const Session* described = FindSession(0)) {
        first = *described;
    } else if (!hasConsole && !HasServicesSession() && !g_room->consoleIsEmpty) {
        first.state = WTSConnected;
        first.console = true;
    }
    listed.insert(listed.begin(), first);
    if (!hasConsole && HasServicesSession() && !g_room->consoleIsEmpty) {
        Session console;
        while (FindSession(console.id)) {
            ++console.id;
        }
        console.state = WTSConnected;
        listed.push_back(console);
    }
    Session listener;
    listener.id = ListenerSession;
    listener.state = WTSListen;
    listener.console = false;
    listed.push_back(listener);
    return listed;
}

std::optional<unsigned> ConsoleSession() {
    for (const Session& session : ListedSessions()) {
        if (session.console) {
            return session.id;
        }
    }
    return std::nullopt;
}

const Session* FindSession(unsigned id) {
    for (const Session& session : g_room->sessions) {
        if (session.id == id) {
            return &session;
        }
    }
    return nullptr;
}

const Session* FindSessionOfUser(std::string_view user) {
    for (const Session& session : g_room->sessions) {
        if (EqualNoCase(session.user, user)) {
            return &session;
        }
    }
    return nullptr;
}

const std::vector<Session>& AllSessions() {
    return g_room->sessions;
}

} // namespace machine
