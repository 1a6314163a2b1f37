#include "simwin/sessions/Sessions.h"

#include "simwin/kernel/Machine.h"
#include "simwin/kernel/Text.h"
#include "simwin/services/Services.h"

#include <algorithm>
#include <cstring>

namespace machine {

using namespace simwin;

namespace {

std::vector<Session>* g_sessions;

constexpr const char* StateNames[] = {"active", "connected", "connectquery", "shadow", "disconnected",
                                      "idle",   "listen",    "reset",        "down",   "init"};

Room g_room(
    45, [] { g_sessions = new std::vector<Session>; },
    [] {
        delete g_sessions;
        g_sessions = nullptr;
    });

void TellServices(DWORD event, unsigned id) {
    const WTSSESSION_NOTIFICATION notification = {sizeof(WTSSESSION_NOTIFICATION), id};
    std::vector<BYTE> data(sizeof(notification));
    std::memcpy(data.data(), &notification, sizeof(notification));
    BroadcastServiceControl(SERVICE_CONTROL_SESSIONCHANGE, event, data);
}

} // namespace

void DefineSession(const Session& session) {
    const auto known = std::find_if(g_sessions->begin(), g_sessions->end(),
                                    [&](const Session& other) { return other.id == session.id; });
    if (known != g_sessions->end())
        *known = session;
    else
        g_sessions->push_back(session);
}

std::optional<WTS_CONNECTSTATE_CLASS> SessionStateFromName(std::string_view name) {
    for (int state = WTSActive; state <= WTSInit; ++state)
        if (EqualNoCase(name, StateNames[state]))
            return static_cast<WTS_CONNECTSTATE_CLASS>(state);
    return std::nullopt;
}

void LogOn(unsigned id, std::string_view user) {
    const Session* known = FindSession(id);
    Session session = known ? *known : Session();
    if (!known)
        session.administrator = false;
    session.id = id;
    session.user = user;
    session.state = WTSActive;
    if (known && !EqualNoCase(known->user, user))
        LogOff(id);
    DefineSession(session);
    TellServices(WTS_SESSION_LOGON, id);
}

void LogOff(unsigned id) {
    if (std::erase_if(*g_sessions, [&](const Session& session) { return session.id == id; }) == 0)
        return;
    // A copy: ending one process may start or end others.
    const std::vector<Process*> processes = AllProcesses();
    for (Process* process : processes)
        if (!process->ended && process->session == id && process->rights != Rights::System)
            EndProcess(process, 0);
    TellServices(WTS_SESSION_LOGOFF, id);
}

const Session* FindSession(unsigned id) {
    for (const Session& session : *g_sessions)
        if (session.id == id)
            return &session;
    return nullptr;
}

const Session* FindSessionOfUser(std::string_view user) {
    for (const Session& session : *g_sessions)
        if (EqualNoCase(session.user, user))
            return &session;
    return nullptr;
}

const std::vector<Session>& AllSessions() {
    return *g_sessions;
}

} // namespace machine
