// Events of sessions: who logs on and off, whose session comes to the console, who runs a program.
#pragma once

#include "rehearse/events/EventRows.h"

namespace rehearse {

std::span<const EventRow> SessionEventRows();

} // namespace rehearse
