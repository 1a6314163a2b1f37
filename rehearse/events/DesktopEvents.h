// What happens on the desktop: the task bar moves, other programs show windows, a user moves the mouse, a program
// writes to the balloon's pipe.
#pragma once

#include "rehearse/events/EventRows.h"

namespace rehearse {

std::span<const EventRow> DesktopEventRows();

} // namespace rehearse
