// Events of devices: plugged, pulled, moved, broken, held open, and DOS names made by others.
#pragma once

#include "rehearse/EventRows.h"

namespace rehearse {

std::span<const EventRow> DeviceEventRows();

} // namespace rehearse
