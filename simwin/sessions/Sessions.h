// The sessions of the machine: who is logged on where. The rehearsal describes them and lets users log on and off; the
// services that want to hear of it get their control. Called on the machine's side; none of this blocks.
#pragma once

#include "simwin/kernel/Process.h"
#include "simwin/sessions/api.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct Session {
    unsigned id = 1;
    std::string user = {}; // 'LAB\anna'
    simwin::WTS_CONNECTSTATE_CLASS state = simwin::WTSActive;
    bool console = true;                  // at the machine itself, not by remote desktop
    bool administrator = true;            // the user is a member of Administrators
    bool filtered = false;                // programs get the filtered token until the user consents to more
    std::vector<std::string> groups = {}; // by name or SID, besides those that each user has
    std::map<std::string, std::string> environment = {}; // of the user's programs, besides what each has
    bool hasShell = true;                                // explorer.exe runs while somebody is logged on
};
struct Logon;
Logon LogonOf(const Session& session);

// Makes a session, or changes the one with this id.
void DefineSession(const Session& session);
// The shells of the sessions that are there. A user who logs on later gets one then.
void StartShells();
Process* ShellOf(const Session& session); // null without one
// What is to be done with each shell as it starts: its windows.
void OnShellStart(std::function<void(Process& shell)> action);
// "active", "disconnected" and the other names of connect states, without regard to case.
std::optional<simwin::WTS_CONNECTSTATE_CLASS> SessionStateFromName(std::string_view name);

// A user logs on: the session is made unless it is described, and WTS_SESSION_LOGON goes to the services. It is the
// console's if the console has this number, or with `console`; whoever else was there is disconnected then.
// In a session with another user it makes a new one: he stays logged on. Returns: the session's number.
unsigned LogOn(Session session);
// A session is disconnected, connected, or comes to the console or leaves it; the services hear of it. An unknown id
// changes nothing.
void ChangeSession(unsigned id, std::optional<simwin::WTS_CONNECTSTATE_CLASS> state, std::optional<bool> console);
// The console is nobody's until a session comes to it.
void LeaveConsoleEmpty();
// The session's programs end, it is gone, and WTS_SESSION_LOGOFF goes to the services. After the console's session a
// new one, connected and with nobody, is there at once. An unknown id changes nothing.
void LogOff(unsigned id);

// The machine goes off: at the next start nobody is logged on.
void ForgetSessions();

// From Windows 6.0 on session 0 is that of the services and never the console; before, it is both.
inline constexpr unsigned ListenerSession = 65536;
// What Windows lists: session 0, those of users in the order of description and logon, last the listener. A machine
// without a described console has one more, connected and with nobody.
std::vector<Session> ListedSessions();
std::optional<unsigned> ConsoleSession();

// Of the described sessions and those of users who logged on; null for another.
const Session* FindSession(unsigned id);
const Session* FindSessionOfUser(std::string_view user);
const std::vector<Session>& AllSessions();

} // namespace machine
