// Who wants device notifications, and how they are delivered. Each recipient gets its notifications one after another,
// the next only after it has returned from the last. How a notification reaches a service or a window is the matter of
// those rooms: they install a route here.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Room.h"
#include "simwin/kernel/types.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

// A service (its status handle) or a window of a process.
struct NotificationRecipient {
    Process* process = nullptr;
    simwin::HANDLE handle = nullptr;
    bool isService = false;
    bool operator==(const NotificationRecipient&) const = default;
};

// The recipient has returned from the notification, or will never see it. To be called exactly once.
using NotificationReturned = std::function<void()>;

// Delivers one notification to the recipient: service control 11 or WM_DEVICECHANGE with this event. data: what the
// event data points to, empty for a null pointer; the route keeps it until the recipient has returned. Must not block.
using DeliverNotification = std::function<void(const NotificationRecipient& recipient, simwin::DWORD event,
                                               const std::vector<std::uint8_t>& data, NotificationReturned returned)>;
void SetServiceRoute(DeliverNotification route);
void SetWindowRoute(DeliverNotification route);
// Whether a handle is the status handle of a service of the process; without a check every handle but null is.
void SetServiceCheck(std::function<bool(Process* process, simwin::HANDLE service)> check);
// Whether a handle names a window; without one every handle but null does.
void SetWindowCheck(std::function<bool(Process* process, simwin::HANDLE window)> check);
// Posts DBT_DEVNODES_CHANGED to all top-level windows: no registration is needed for it.
void SetTreeChangeBroadcast(std::function<void()> broadcast);

// The event data of a device interface or of a port, in the form that the recipient gets: UTF-16 (wide) or ANSI.
std::vector<std::uint8_t> InterfaceEventData(const simwin::GUID& classGuid, std::string_view path, bool wide);
std::vector<std::uint8_t> PortEventData(std::string_view name, bool wide);
std::vector<std::uint8_t> OtherEventData(simwin::DWORD deviceType);

// To everybody who registered for the class of the interface, in the order of registration.
void NotifyInterface(const DeviceInterface& deviceInterface, simwin::DWORD event);
// The tree changed: half a second after the first unannounced change the windows are notified, and services too if a
// description requests that for one of the changes.
void NoteTreeChange(bool servicesToo = false);
// The power is gone, and with it all pending notifications.
void ForgetTreeChange();
// At once: to windows, and with `servicesToo` to every service that registered.
void SendTreeChange(bool servicesToo);
// To one recipient, whatever it registered for: the raw event of a description. With a null handle to the recipient of
// that process which registered first.
void SendNotification(const NotificationRecipient& recipient, simwin::DWORD event, std::vector<std::uint8_t> data);

// Recipients that registered, each once, in the order of their first registration.
std::vector<NotificationRecipient> Recipients();

// '{86e0d1e0-...}' in lower case, and back; false for another text.
std::string GuidText(const simwin::GUID& guid);
const char* LastingGuidText(const simwin::GUID* guid); // in memory that stays; "" for null
bool GuidFromText(std::string_view text, simwin::GUID& guid);

RoomPtr MakeNotifications();

} // namespace machine
