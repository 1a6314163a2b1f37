// Events of devices: plugged, pulled, moved, broken, held open, and DOS names made by others.
#pragma once

#include "rehearse/events/EventRows.h"

namespace rehearse {

std::span<const EventRow> DeviceEventRows();

// Throws InputError for the first of the events, in their order, that pulls out what is out.
void CheckSockets(const std::vector<const TomlTable*>& events);

} // namespace rehearse
