// Events of power, and raw device events to the product alone.
#pragma once

#include "rehearse/EventRows.h"

namespace rehearse {

std::span<const EventRow> PowerEventRows();

} // namespace rehearse
