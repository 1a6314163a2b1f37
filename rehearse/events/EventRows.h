// How kinds of events are registered: one row for each, in tables by room. Part of Events.h, for the files with rows.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/events/Events.h"

#include <functional>
#include <span>

namespace rehearse {

// subject: the event's key. make: checks the event (throws InputError) and returns its action.
struct EventRow {
    const char* subject;
    Action (*make)(const TomlTable& event, Stage& stage);
};

} // namespace rehearse
