#include "simwin/machine/Connections.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/services/Services.h"

namespace machine {

using namespace simwin;

constexpr WPARAM TreeChanged = 7; // DBT_DEVNODES_CHANGED

static void DeliverToService(const NotificationRecipient& recipient, DWORD event, const std::vector<std::uint8_t>& data,
                             const NotificationReturned& returned) {
    const auto handle = static_cast<SERVICE_STATUS_HANDLE>(recipient.handle);
    const bool isQueued =
        PostServiceControl(handle, SERVICE_CONTROL_DEVICEEVENT, event, data, [returned](DWORD) { returned(); });
    if (!isQueued) {
        returned();
    }
}

static bool IsServiceOf(Process* process, HANDLE service) {
    return ServiceProcess(static_cast<SERVICE_STATUS_HANDLE>(service)) == process;
}

static void DeliverToWindow(const NotificationRecipient& recipient, DWORD event, const std::vector<std::uint8_t>& data,
                            NotificationReturned returned) {
    SendFromMachine(static_cast<HWND>(recipient.handle), WM_DEVICECHANGE, event, data, std::move(returned));
}

static bool IsWindow(Process*, HANDLE window) {
    return FindWindowByHandle(static_cast<HWND>(window)) != nullptr;
}

static void BroadcastTreeChange() {
    for (const Window* window : Windows()) {
        if (window->threadId) {
            SendFromMachine(window->handle, WM_DEVICECHANGE, TreeChanged, {});
        }
    }
}

void ConnectRooms() {
    SetServiceRoute(DeliverToService);
    SetServiceCheck(IsServiceOf);
    SetWindowRoute(DeliverToWindow);
    SetWindowCheck(IsWindow);
    SetTreeChangeBroadcast(BroadcastTreeChange);
}

} // namespace machine
