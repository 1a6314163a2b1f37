// Sessions and users of a described machine: who is logged on at the start. Called by the machine builder and the
// events.
#pragma once

#include "rehearse/description/Description.h"

#include "simwin/sessions/Sessions.h"
#include "simwin/sessions/Tokens.h"

#include <optional>
#include <string>

namespace rehearse {

// Who runs programs on a machine without described sessions.
inline constexpr const char* NamelessUser = "DESK\\user";

// A session's number, 1 without the key. Throws InputError unless it is 0 to 65535.
unsigned SessionIn(const TomlTable& table, std::string_view key);
// The key 'state'; nothing without it.
std::optional<simwin::WTS_CONNECTSTATE_CLASS> StateIn(const TomlTable& table);
// A session as [[session]] and the event `logon` describe it. isConsole: what it is where 'console' is missing.
machine::Session SessionOf(const TomlTable& table, bool isConsole);

// The logon of a described session's user; without any [[session]] the user has session 1. Throws InputError at `at` if
// there are sessions but none of this user.
machine::Logon LogonOfUser(const TomlTable& description, const std::string& user, const Position& at);

// After the registry is filled: it says whether administrators get two tokens.
void SetUpSessions(const TomlTable& description);

} // namespace rehearse
