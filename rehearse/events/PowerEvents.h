// Events of power, and raw device events to the product alone.
#pragma once

#include "rehearse/events/EventRows.h"

#include <string_view>

namespace rehearse {

std::span<const EventRow> PowerEventRows();

// The action of an event with this subject, or its replacement while the machine sleeps: what users and programs do
// waits until it wakes. Plugs and pulls are handled by the machine itself.
Action InItsPowerState(std::string_view subject, Action action, Stage& stage);

} // namespace rehearse
