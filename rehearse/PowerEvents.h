// Events of power, and raw device events to the product alone.
#pragma once

#include "rehearse/EventRows.h"

#include <string_view>

namespace rehearse {

std::span<const EventRow> PowerEventRows();

// The action of an event with this subject, or what becomes of it when the machine sleeps: what people and programs do
// waits for its waking. What is plugged in and pulled out is the machine's own matter.
Action InItsPowerState(std::string_view subject, Action action, Stage& stage);

} // namespace rehearse
