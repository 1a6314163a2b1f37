#include "simwin/devices/build/Guesses.h"

#include "simwin/machine/Machine.h"

#include <map>

namespace machine {

static std::map<const DeviceNode*, std::string>* g_guesses;

static void Create() {
    g_guesses = new std::map<const DeviceNode*, std::string>;
}

static void Destroy() {
    delete g_guesses;
    g_guesses = nullptr;
}

static Room g_room(67, Create, Destroy);

void NoteGuess(const DeviceNode& node, std::string_view what) {
    std::string& text = (*g_guesses)[&node];
    text += (text.empty() ? "" : "; ") + std::string(what);
}

std::string GuessOf(const DeviceNode& node) {
    const auto found = g_guesses->find(&node);
    return found == g_guesses->end() ? "" : found->second;
}

} // namespace machine
