// The events that only stories have: their titles, and what arrives that no description names.
#pragma once

#include "rehearse/events/EventRows.h"

namespace rehearse {

std::span<const EventRow> StoryEventRows();

} // namespace rehearse
