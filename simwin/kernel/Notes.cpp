#include "simwin/kernel/Notes.h"

#include "simwin/kernel/Scheduler.h"

#include <algorithm>

namespace machine {

static std::vector<MachineNote>* g_notes;
RoomPtr MakeNotes() {
    return MakeRoom(g_notes);
}

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
