#include "inventory/usb/UsbHubRequests.h"

#include <cstddef>

constexpr DWORD NodeInformationRequest = 0x220408;     // IOCTL_USB_GET_NODE_INFORMATION
constexpr DWORD ConnectionDriverKeyRequest = 0x220420; // IOCTL_USB_GET_NODE_CONNECTION_DRIVERKEY_NAME

namespace {
// USB_NODE_INFORMATION of a hub. The SDK packs it and its descriptor to single bytes; here by offset.
struct NodeInformation {
    DWORD NodeType; // 0: a hub
    BYTE bDescriptorLength;
    BYTE bDescriptorType;
    BYTE bNumberOfPorts;
    BYTE Rest[69];
};
static_assert(sizeof(NodeInformation) == 76 && offsetof(NodeInformation, bNumberOfPorts) == 6);

// USB_NODE_CONNECTION_DRIVERKEY_NAME with room for the longest driver key.
struct ConnectionDriverKey {
    DWORD ConnectionIndex;
    DWORD ActualLength; // bytes that the whole record needs, this head included
    WCHAR DriverKeyName[60];
};
} // namespace
static_assert(sizeof(ConnectionDriverKey) == 128 && offsetof(ConnectionDriverKey, DriverKeyName) == 8);

// Checks the hub's answer and converts its name. Returns: 1, or 0 with the last error.
static int ConvertDriverKey(ConnectionDriverKey* answer, char (&driverKey)[HubDriverKeySize]) {
    if (answer->ActualLength > sizeof(*answer)) {
        // Only the beginning of a longer name was returned.
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    constexpr size_t Last = sizeof(answer->DriverKeyName) / sizeof(WCHAR) - 1;
    answer->DriverKeyName[Last] = 0;
    if (WideCharToMultiByte(CP_ACP, /*flags=*/0, answer->DriverKeyName, /*cchWideChar=*/-1, driverKey,
                            static_cast<int>(HubDriverKeySize), nullptr, nullptr) == 0) {
        return 0;
    }
    driverKey[HubDriverKeySize - 1] = 0;
    return 1;
}

DWORD UsbGetHubPortCount(HANDLE hHub) {
    NodeInformation information = {};
    DWORD returned = 0;
    if (!DeviceIoControl(hHub, NodeInformationRequest, &information, sizeof(information), &information,
                         sizeof(information), &returned, /*overlapped=*/nullptr)) {
        return 0;
    }
    return information.bNumberOfPorts;
}

int UsbGetConnectionDriverKey(HANDLE hHub, DWORD port, char (&driverKey)[HubDriverKeySize], DWORD* error) {
    driverKey[0] = 0;
    ConnectionDriverKey record = {};
    record.ConnectionIndex = port;
    DWORD returned = 0;
    if (!DeviceIoControl(hHub, ConnectionDriverKeyRequest, &record, sizeof(record), &record, sizeof(record), &returned,
                         /*overlapped=*/nullptr) ||
        !ConvertDriverKey(&record, driverKey)) {
        *error = GetLastError();
        driverKey[0] = 0;
        return 0;
    }
    return 1;
}
