#include "rehearse/machine/DescribedSessions.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Text.h"
#include "simwin/shell/Shell.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

constexpr std::int64_t LargestSession = 65535;

unsigned SessionIn(const TomlTable& table, std::string_view key) {
    const std::int64_t id = table.NumberOf(key, 1);
    if (id < 0 || id > LargestSession) {
        throw InputError(table.At(key), fmt::format("'{}' must be 0 to {}", key, LargestSession));
    }
    return static_cast<unsigned>(id);
}

std::optional<simwin::WTS_CONNECTSTATE_CLASS> StateIn(const TomlTable& table) {
    return machine::SessionStateFromName(table.TextOf("state"));
}

machine::Session SessionOf(const TomlTable& table, bool isConsole) {
    machine::Session session;
    session.id = SessionIn(table, "id");
    session.user = table.TextOf("user");
    session.state = StateIn(table).value_or(session.user.empty() ? simwin::WTSConnected : simwin::WTSActive);
    session.console = table.FlagOf("console", isConsole);
    session.administrator = table.FlagOf("administrator");
    session.filtered = table.FlagOf("uac");
    session.groups = table.TextsOf("groups");
    session.hasShell = table.FlagOf("shell", true);
    if (const TomlTable* environment = table.TableOf("environment")) {
        for (const auto& [name, value] : environment->Fields()) {
            session.environment.emplace(name, value.text);
        }
    }
    return session;
}

machine::Logon LogonOfUser(const TomlTable& description, const std::string& user, const Position& at) {
    const std::vector<TomlTable>& sessions = description.TablesOf("session");
    if (sessions.empty()) {
        machine::Logon logon;
        logon.user = user;
        logon.session = 1;
        return logon;
    }
    const auto session = std::find_if(sessions.begin(), sessions.end(), [&](const TomlTable& table) {
        return machine::EqualNoCase(table.TextOf("user"), user);
    });
    if (session == sessions.end()) {
        throw InputError(at, fmt::format("there is no session of '{}'", user));
    }
    return machine::LogonOf(SessionOf(*session, /*isConsole=*/true));
}

void SetUpSessions(const TomlTable& description) {
    const std::vector<TomlTable>& tables = description.TablesOf("session");
    const TomlTable* windows = description.TableOf("windows");
    const bool isEmpty = windows && windows->Has("console");
    const bool saysConsole = isEmpty || std::any_of(tables.begin(), tables.end(), [](const TomlTable& table) {
                                 return table.FlagOf("console", false);
                             });
    bool isFirst = true;
    for (const TomlTable& table : tables) {
        machine::DefineSession(SessionOf(table, isFirst && !saysConsole));
        isFirst = false;
    }
    if (isEmpty) {
        machine::LeaveConsoleEmpty();
    }
    machine::OnShellStart([](machine::Process& shell) { machine::ShellStarted(&shell); });
    machine::StartShells();
}

} // namespace rehearse
