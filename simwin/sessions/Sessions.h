// The sessions of the machine: who is logged on where. The rehearsal describes them and lets users log on and off; the
// services that want to hear of it get their control. Called on the machine's side; none of this blocks.
#pragma once

#include "simwin/kernel/Process.h"
#include "simwin/sessions/api.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct Session {
    unsigned id = 1;
    std::string user; // 'LAB\anna'
    simwin::WTS_CONNECTSTATE_CLASS state = simwin::WTSActive;
    bool console = true;       // at the machine itself, not by remote desktop
    bool administrator = true; // the user is a member of Administrators
    bool filtered = false;     // programs get the filtered token until the user consents to more
};

// Makes a session, or changes the one with this id.
void DefineSession(const Session& session);
// "active", "disconnected" and the other names of connect states, without regard to case.
std::optional<simwin::WTS_CONNECTSTATE_CLASS> SessionStateFromName(std::string_view name);

// A user logs on: the session is made unless it is described, and WTS_SESSION_LOGON goes to the services.
void LogOn(unsigned id, std::string_view user);
// The session's programs end, it is gone, and WTS_SESSION_LOGOFF goes to the services. An unknown id changes nothing.
void LogOff(unsigned id);

const Session* FindSession(unsigned id);
const Session* FindSessionOfUser(std::string_view user);
const std::vector<Session>& AllSessions();

} // namespace machine
