// Who wants to see every port change while a machine runs, as the timeline comes to know of it.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"

#include <functional>

namespace rehearse {

// port: which may have changed, or changes within this moment of virtual time; null: it may be any.
using PortWatcher = std::function<void(const machine::DeviceNode* port)>;

// One at a time. Undone when it goes.
class PortWatch {
public:
    explicit PortWatch(PortWatcher watcher);
    ~PortWatch();
    PortWatch(const PortWatch&) = delete;
    PortWatch& operator=(const PortWatch&) = delete;
};

void PortMayHaveChanged(const machine::DeviceNode* port);

} // namespace rehearse
