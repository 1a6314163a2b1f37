#include "rehearse/watch/PortWatch.h"

#include <utility>

namespace rehearse {

static PortWatcher g_watcher;

PortWatch::PortWatch(PortWatcher watcher) {
    g_watcher = std::move(watcher);
}

PortWatch::~PortWatch() {
    g_watcher = nullptr;
}

void PortMayHaveChanged(const machine::DeviceNode* port) {
    if (g_watcher) {
        g_watcher(port);
    }
}

} // namespace rehearse
