// The USB adapters of a machine that carry serial ports, as the stories move them about, and others of their kind: what
// Windows makes of the same adapter on another socket, or of one more of it. Reads the machine's own tree and registry;
// between the building of the machine and the end of its run.
#pragma once

#include "rehearse/machine/Sockets.h"

#include "simwin/devices/tree/Description.h"
#include "simwin/devices/tree/DeviceTree.h"

#include <optional>
#include <string>
#include <vector>

namespace rehearse {

// What is on a hub, is no hub, and has a port or modem at or below it. In the order of enumeration, those only that are
// plugged in.
std::vector<const machine::DeviceNode*> PluggedAdapters(const Sockets& sockets);

// A radio's ports are made by pairing: another radio, or the same one as another device, has none.
bool IsRadio(const machine::DeviceNode& adapter);

struct Socket {
    const machine::DeviceNode* hub = nullptr;
    unsigned port = 0;
};
// The next one after the adapter's own on its hub, then on the hubs in the order of enumeration; a hub of the exports
// whose known sockets are all taken has one more. Nothing if all are taken.
std::optional<Socket> NextFreeSocket(const machine::DeviceNode& adapter, const Sockets& sockets);

// The instance id that the adapter has on a socket: its own, unless it has no serial number.
std::string IdOnSocket(const machine::DeviceNode& adapter, const Socket& socket);
// The id of one more adapter of the kind, there. A device may have it if ids of the kind follow the socket.
std::string IdOfNewcomer(const machine::DeviceNode& adapter, const Socket& socket);

// The ids of an adapter and of all that is plugged in below it, parents first.
std::vector<std::string> PartsOf(const machine::DeviceNode& adapter, const Sockets& sockets);
// The same parts as they would be under another id of the adapter, never seen by Windows.
std::vector<machine::DeviceDescription> LikeAdapter(const std::vector<std::string>& parts, const std::string& id,
                                                    const Socket& socket);

} // namespace rehearse
