// What happens on the desktop: the task bar moves, other programs show windows, a user moves the mouse, a program
// writes to the balloon's pipe. Also the expectations about it.
#pragma once

#include "rehearse/EventRows.h"
#include "rehearse/Expectations.h"

namespace rehearse {

// The task bar, colours and theme of [windows]; foreground and cursor of the sessions. Throws InputError.
void SetUpDesktop(const TomlTable& description);

// What sets foreground and cursor of a session, described or of a logon, by its number. Throws InputError.
std::function<void(unsigned session)> SessionInputOf(const TomlTable& session);

std::span<const EventRow> DesktopEventRows();

// balloon, shown, tooltip, input.
bool IsAboutDesktop(const TomlTable& expect);
void JudgeDesktop(const TomlTable& expect, const Stage& stage, Wrongs& wrongs);

} // namespace rehearse
