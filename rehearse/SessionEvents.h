// Sessions and users of a described machine: who is logged on at the start, who logs on and off, whose session comes to
// the console, who runs a program. Called by the machine builder and the events.
#pragma once

#include "rehearse/EventRows.h"

#include "simwin/sessions/Tokens.h"

#include <string>

namespace rehearse {

// Who runs programs on a machine without described sessions.
inline constexpr const char* NamelessUser = "DESK\\user";

// The logon of a described session's user; without any [[session]] the user has session 1. Throws InputError at `at` if
// there are sessions but none of this user.
machine::Logon LogonOfUser(const TomlTable& description, const std::string& user, const Position& at);

// After the registry is filled: it says whether administrators get two tokens.
void SetUpSessions(const TomlTable& description);

std::span<const EventRow> SessionEventRows();

} // namespace rehearse
