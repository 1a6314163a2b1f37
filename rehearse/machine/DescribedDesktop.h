// The desktop of a described machine before anything happens: task bar, colours, theme, foreground and cursor. Called
// by the machine builder and the events.
#pragma once

#include "rehearse/description/Description.h"

#include "simwin/desktop/Desktop.h"

#include <functional>
#include <string_view>

namespace rehearse {

// A number of pixels, either side of zero; `otherwise` without the key. Throws InputError beyond 65535.
simwin::LONG PixelsIn(const TomlTable& table, std::string_view key, std::int64_t otherwise);
// Changes the bar as the table says. Throws InputError.
void AmendBar(machine::TaskBar& bar, const TomlTable& table);

// The task bar, colours and theme of [windows]; foreground and cursor of the sessions. Throws InputError.
void SetUpDesktop(const TomlTable& description);
// What sets foreground and cursor of a session, described or of a logon, by its number. Throws InputError.
std::function<void(unsigned session)> SessionInputOf(const TomlTable& session);

} // namespace rehearse
