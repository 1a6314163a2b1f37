#include "simwin/devices/build/Guesses.h"

#include <map>

namespace machine {

static std::map<const DeviceNode*, std::string>* g_guesses;

RoomPtr MakeGuesses() {
    return MakeRoom(g_guesses);
}

void NoteGuess(const DeviceNode& node, std::string_view what) {
    std::string& text = (*g_guesses)[&node];
    text += (text.empty() ? "" : "; ") + std::string(what);
}

std::string GuessOf(const DeviceNode& node) {
    const auto found = g_guesses->find(&node);
    return found == g_guesses->end() ? "" : found->second;
}

} // namespace machine
