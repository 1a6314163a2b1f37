#include "simwin/kernel/Notes.h"

#include "simwin/kernel/Scheduler.h"
#include "simwin/machine/Machine.h"

#include <algorithm>

namespace machine {

static std::vector<MachineNote>* g_notes;
static Room g_room(
    20, [] { g_notes = new std::vector<MachineNote>; },
    [] {
        delete g_notes;
        g_notes = nullptr;
    });

void AddNote(std::string utf8) {
    const bool isKnown =
        std::any_of(g_notes->begin(), g_notes->end(), [&](const MachineNote& note) { return note.text == utf8; });
    if (!isKnown) {
        g_notes->push_back({Now(), std::move(utf8)});
    }
}

const std::vector<MachineNote>& AllNotes() {
    return *g_notes;
}

} // namespace machine
