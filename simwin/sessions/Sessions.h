// The sessions of the machine: who is logged on where. The rehearsal describes them and lets users log on and off;
// services that registered for it get their control. Called on the machine's side; none of this blocks.
#pragma once

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Room.h"
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
    bool hasShell = true;                                // explorer.exe runs while a user is logged on
};
struct Logon;
Logon LogonOf(const Session& session);

// Creates a session, or changes the one with this id.
void DefineSession(const Session& session);
// The shells of the existing sessions. A user who logs on later gets one then.
void StartShells();
Process* ShellOf(const Session& session); // null without one
// Callback for each shell as it starts: its windows.
void OnShellStart(std::function<void(Process& shell)> action);
// "active", "disconnected" and the other names of connect states, without regard to case.
std::optional<simwin::WTS_CONNECTSTATE_CLASS> SessionStateFromName(std::string_view name);

// A user logs on: the session is created unless it is described, and WTS_SESSION_LOGON goes to the services. It is at
// the console if the console has this number, or with `console`; any other user there is disconnected. In a session
// with another user a new one is created: that user stays logged on. Returns: the session's number.
unsigned LogOn(Session session);
// A session is disconnected, connected, or comes to the console or leaves it; the services are notified. An unknown id
// changes nothing.
void ChangeSession(unsigned id, std::optional<simwin::WTS_CONNECTSTATE_CLASS> state, std::optional<bool> console);
// No session has the console until one comes to it.
void LeaveConsoleEmpty();
// The session's programs end, it is gone, and WTS_SESSION_LOGOFF goes to the services. After the console's session
// there is at once a new one, connected and without a user. An unknown id changes nothing.
void LogOff(unsigned id);

// The machine goes off: at the next start nobody is logged on.
void ForgetSessions();

// From Windows 6.0 on session 0 is that of the services and never the console; before, it is both.
inline constexpr unsigned ListenerSession = 65536;
// What Windows lists: session 0, those of users in the order of description and logon, last the listener. A machine
// without a described console has one more, connected and without a user.
std::vector<Session> ListedSessions();
std::optional<unsigned> ConsoleSession();

// Of the described sessions and those of users who logged on; null for another.
const Session* FindSession(unsigned id);
const Session* FindSessionOfUser(std::string_view user);
const std::vector<Session>& AllSessions();

RoomPtr MakeSessions();

} // namespace machine
