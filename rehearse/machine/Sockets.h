// What is plugged in, and where, as a series of outside events leaves it one after another: known before anything runs.
#pragma once

#include "rehearse/description/Description.h"

#include "simwin/devices/tree/DeviceTree.h"

#include <cstdint>
#include <map>

namespace rehearse {

class Sockets {
public:
    // Takes one event into account. Events come in the order of time.
    void Happen(const TomlTable& event);

    bool IsIn(const machine::DeviceNode& node) const;
    // What is plugged in on a hub port, other than the device itself; null if nothing is.
    const machine::DeviceNode* OtherOn(const machine::DeviceNode* hub, unsigned port,
                                       const machine::DeviceNode* but) const;
    // The other device on a device's hub port; null if none, or if the device is on no hub port.
    const machine::DeviceNode* OtherOnSocketOf(const machine::DeviceNode& node) const;

    struct Place {
        const machine::DeviceNode* hub = nullptr; // its parent, which need not be a hub
        unsigned port = 0;                        // 0: no hub port
        bool operator==(const Place&) const = default;
    };
    Place PlaceOf(const machine::DeviceNode& node) const;

private:
    void Plug(const machine::DeviceNode& node); // with all below it, except what was pulled out separately

    enum class Is : std::uint8_t { In, Pulled };
    std::map<const machine::DeviceNode*, Is> m_isIn;
    std::map<const machine::DeviceNode*, Place> m_movedTo;
};

// The device that a field names; null if there is no such field or device.
const machine::DeviceNode* NodeIn(const TomlTable& table, std::string_view key);

} // namespace rehearse
