#include "simwin/devices/drivers/Notifications.h"

#include "simwin/devices/api.h"
#include "simwin/kernel/Call.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace machine {

constexpr std::uint64_t TreeChangeDelayMs = 500;

namespace {
struct Pending {
    simwin::DWORD event;
    std::vector<std::uint8_t> data;
};

// The notifications that one recipient still has to get.
struct Queue {
    std::uint64_t id;
    NotificationRecipient recipient;
    std::deque<Pending> waiting;
    bool busy = false; // it has not returned from the last one
};

struct Registration : Object {
    Registration() : Object(ObjectKind::DeviceNotification) {}
    void LastHandleClosed() override;
    NotificationRecipient recipient;
    std::string classGuid; // "": all classes
};

struct Notices {
    std::vector<Registration*> registrations; // in the order in which they were made
    std::vector<std::unique_ptr<Queue>> queues;
    std::uint64_t nextQueue = 1;
    DeliverNotification serviceRoute, windowRoute;
    std::function<bool(Process*, simwin::HANDLE)> isService, isWindow;
    std::function<void()> broadcast;
    std::set<std::string> guidTexts;
    DueId treeChange = 0;
    bool treeChangeToServices = false;
};
} // namespace
static Notices* g_notices;

void Registration::LastHandleClosed() {
    if (g_notices) {
        std::erase(g_notices->registrations, this);
    }
}

static Queue* FindQueue(std::uint64_t id) {
    for (const auto& queue : g_notices->queues) {
        if (queue->id == id) {
            return queue.get();
        }
    }
    return nullptr;
}

static Queue& QueueOf(const NotificationRecipient& recipient) {
    for (const auto& queue : g_notices->queues) {
        if (queue->recipient == recipient) {
            return *queue;
        }
    }
    auto& queue = g_notices->queues.emplace_back(std::make_unique<Queue>());
    queue->id = g_notices->nextQueue++;
    queue->recipient = recipient;
    return *queue;
}

// Delivers what waits as long as the recipient returns at once.
static void Pump(std::uint64_t id) {
    for (Queue* queue = FindQueue(id); queue && !queue->busy && !queue->waiting.empty(); queue = FindQueue(id)) {
        const Pending next = std::move(queue->waiting.front());
        queue->waiting.pop_front();
        const NotificationRecipient recipient = queue->recipient;
        const DeliverNotification& route = recipient.isService ? g_notices->serviceRoute : g_notices->windowRoute;
        if (!route) {
            continue;
        }
        queue->busy = true;
        route(recipient, next.event, next.data, [id] {
            if (!g_notices) {
                return;
            }
            if (Queue* answered = FindQueue(id)) {
                answered->busy = false;
                Pump(id);
            }
        });
    }
}

static void Send(const NotificationRecipient& recipient, simwin::DWORD event, std::vector<std::uint8_t> data) {
    Queue& queue = QueueOf(recipient);
    queue.waiting.push_back({event, std::move(data)});
    Pump(queue.id);
}

static void DropProcess(const Process& process) {
    if (!g_notices) {
        return;
    }
    std::erase_if(g_notices->registrations,
                  [&](const Registration* registration) { return registration->recipient.process == &process; });
    std::erase_if(g_notices->queues, [&](const auto& queue) { return queue->recipient.process == &process; });
}

static std::string Unanswered() {
    std::string text;
    for (const auto& queue : g_notices->queues) {
        if (queue->busy) {
            text += fmt::format("a device notification to a {} is unanswered, {} wait after it",
                                queue->recipient.isService ? "service" : "window", queue->waiting.size());
        }
    }
    return text;
}

RoomPtr MakeNotifications() {
    RoomPtr room = MakeRoom(g_notices);
    OnProcessEnd([](Process& process) { DropProcess(process); });
    AddEndCheck(Unanswered);
    return room;
}

static void Append(std::vector<std::uint8_t>& data, std::string_view name, bool wide) {
    if (!wide) {
        data.insert(data.end(), name.begin(), name.end());
        data.push_back(0);
        return;
    }
    for (const char16_t c : Utf16FromAnsi(name)) {
        data.push_back(static_cast<std::uint8_t>(c & 0xFF));
        data.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    data.push_back(0);
    data.push_back(0);
}

// Fills in the header's size once the whole is known.
static std::vector<std::uint8_t> Sized(std::vector<std::uint8_t> data) {
    const auto size = static_cast<simwin::DWORD>(data.size());
    std::memcpy(data.data(), &size, sizeof(size));
    return data;
}

void SetServiceRoute(DeliverNotification route) {
    g_notices->serviceRoute = std::move(route);
}

void SetWindowRoute(DeliverNotification route) {
    g_notices->windowRoute = std::move(route);
}

void SetServiceCheck(std::function<bool(Process*, simwin::HANDLE)> check) {
    g_notices->isService = std::move(check);
}

void SetWindowCheck(std::function<bool(Process*, simwin::HANDLE)> check) {
    g_notices->isWindow = std::move(check);
}

void SetTreeChangeBroadcast(std::function<void()> broadcast) {
    g_notices->broadcast = std::move(broadcast);
}

std::vector<std::uint8_t> InterfaceEventData(const simwin::GUID& classGuid, std::string_view path, bool wide) {
    simwin::DEV_BROADCAST_DEVICEINTERFACE_A head{};
    head.dbcc_devicetype = simwin::DBT_DEVTYP_DEVICEINTERFACE;
    head.dbcc_classguid = classGuid;
    std::vector<std::uint8_t> data(offsetof(simwin::DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name));
    std::memcpy(data.data(), &head, data.size());
    Append(data, path, wide);
    return Sized(std::move(data));
}

std::vector<std::uint8_t> PortEventData(std::string_view name, bool wide) {
    std::vector<std::uint8_t> data = OtherEventData(simwin::DBT_DEVTYP_PORT);
    Append(data, name, wide);
    return Sized(std::move(data));
}

std::vector<std::uint8_t> OtherEventData(simwin::DWORD deviceType) {
    const simwin::DEV_BROADCAST_HDR head = {sizeof(head), deviceType, 0};
    std::vector<std::uint8_t> data(sizeof(head));
    std::memcpy(data.data(), &head, sizeof(head));
    return data;
}

void NotifyInterface(const DeviceInterface& deviceInterface, simwin::DWORD event) {
    simwin::GUID guid{};
    GuidFromText(deviceInterface.classGuid, guid);
    // A copy: delivery may end a recipient.
    const std::vector<Registration*> registrations = g_notices->registrations;
    for (const Registration* registration : registrations) {
        if (std::find(g_notices->registrations.begin(), g_notices->registrations.end(), registration) ==
            g_notices->registrations.end()) {
            continue;
        }
        if (registration->classGuid.empty() || registration->classGuid == deviceInterface.classGuid) {
            Send(registration->recipient, event,
                 InterfaceEventData(guid, deviceInterface.noticePath, registration->recipient.isService));
        }
    }
}

void NoteTreeChange(bool servicesToo) {
    g_notices->treeChangeToServices |= servicesToo;
    if (g_notices->treeChange) {
        return; // a long series must not keep its first change from being announced
    }
    g_notices->treeChange = After(TreeChangeDelayMs, [] {
        g_notices->treeChange = 0;
        SendTreeChange(std::exchange(g_notices->treeChangeToServices, false));
    });
}

void ForgetTreeChange() {
    g_notices->treeChange = 0;
    g_notices->treeChangeToServices = false;
}

void SendTreeChange(bool servicesToo) {
    if (g_notices->broadcast) {
        g_notices->broadcast();
    }
    if (!servicesToo) {
        return;
    }
    for (const NotificationRecipient& recipient : Recipients()) {
        if (recipient.isService) {
            Send(recipient, simwin::DBT_DEVNODES_CHANGED, {});
        }
    }
}

void SendNotification(const NotificationRecipient& recipient, simwin::DWORD event, std::vector<std::uint8_t> data) {
    NotificationRecipient to = recipient;
    if (!to.handle) {
        for (const NotificationRecipient& known : Recipients()) {
            if (known.isService == to.isService && (!to.process || known.process == to.process)) {
                to = known;
                break;
            }
        }
    }
    Send(to, event, std::move(data));
}

std::vector<NotificationRecipient> Recipients() {
    std::vector<NotificationRecipient> recipients;
    for (const Registration* registration : g_notices->registrations) {
        if (std::find(recipients.begin(), recipients.end(), registration->recipient) == recipients.end()) {
            recipients.push_back(registration->recipient);
        }
    }
    return recipients;
}

std::string GuidText(const simwin::GUID& guid) {
    std::string text = fmt::format("{{{:08x}-{:04x}-{:04x}-{:02x}{:02x}-", guid.Data1, guid.Data2, guid.Data3,
                                   guid.Data4[0], guid.Data4[1]);
    for (int i = 2; i < 8; ++i) {
        text += fmt::format("{:02x}", guid.Data4[i]);
    }
    return text + "}";
}

const char* LastingGuidText(const simwin::GUID* guid) {
    return guid ? g_notices->guidTexts.insert(GuidText(*guid)).first->c_str() : "";
}

bool GuidFromText(std::string_view text, simwin::GUID& guid) {
    constexpr std::string_view Form = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    if (text.size() != Form.size()) {
        return false;
    }
    std::uint8_t digits[32] = {};
    std::size_t count = 0;
    for (std::size_t i = 0; i < Form.size(); ++i) {
        const char c = LowerChar(text[i]);
        if (Form[i] != 'x') {
            if (c != Form[i]) {
                return false;
            }
        } else if (c >= '0' && c <= '9') {
            digits[count++] = static_cast<std::uint8_t>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            digits[count++] = static_cast<std::uint8_t>(c - 'a' + 10);
        } else {
            return false;
        }
    }
    const auto number = [&](std::size_t from, std::size_t length) {
        simwin::DWORD value = 0;
        for (std::size_t i = from; i < from + length; ++i) {
            value = value << 4 | digits[i];
        }
        return value;
    };
    guid.Data1 = number(0, 8);
    guid.Data2 = static_cast<simwin::WORD>(number(8, 4));
    guid.Data3 = static_cast<simwin::WORD>(number(12, 4));
    for (std::size_t i = 0; i < 8; ++i) {
        guid.Data4[i] = static_cast<simwin::BYTE>(number(16 + i * 2, 2));
    }
    return true;
}

// The class that a filter names, for the trace and the faults.
static const char* ClassOfFilter(const void* filter, simwin::DWORD flags) {
    if (!filter || flags & simwin::DEVICE_NOTIFY_ALL_INTERFACE_CLASSES) {
        return "";
    }
    const auto* asked = static_cast<const simwin::DEV_BROADCAST_DEVICEINTERFACE_A*>(filter);
    return asked->dbcc_devicetype == simwin::DBT_DEVTYP_DEVICEINTERFACE ? LastingGuidText(&asked->dbcc_classguid) : "";
}

// The registration that the filter asks for, or null with the last error.
static Registration* MakeRegistration(simwin::HANDLE recipient, const void* filter, simwin::DWORD flags) {
    constexpr simwin::DWORD Known = simwin::DEVICE_NOTIFY_SERVICE_HANDLE | simwin::DEVICE_NOTIFY_ALL_INTERFACE_CLASSES;
    simwin::DEV_BROADCAST_DEVICEINTERFACE_A asked{};
    constexpr std::size_t Needed = offsetof(simwin::DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name);
    if (!filter || flags & ~Known) {
        SetError(simwin::ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::memcpy(&asked, filter, sizeof(simwin::DEV_BROADCAST_HDR));
    if (asked.dbcc_devicetype == simwin::DBT_DEVTYP_HANDLE) {
        NotModelled("RegisterDeviceNotificationA", "a filter for a handle");
    }
    if (asked.dbcc_devicetype != simwin::DBT_DEVTYP_DEVICEINTERFACE || asked.dbcc_size < Needed) {
        SetError(simwin::ERROR_INVALID_DATA);
        return nullptr;
    }
    std::memcpy(&asked, filter, Needed);
    Process* process = CurrentProcess();
    const bool isService = flags & simwin::DEVICE_NOTIFY_SERVICE_HANDLE;
    const auto& check = isService ? g_notices->isService : g_notices->isWindow;
    const bool isThere = recipient && (!check || check(process, recipient));
    if (!isThere) {
        SetError(simwin::ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto* registration = new Registration;
    registration->recipient = {process, recipient, isService};
    if (!(flags & simwin::DEVICE_NOTIFY_ALL_INTERFACE_CLASSES)) {
        registration->classGuid = GuidText(asked.dbcc_classguid);
    }
    return registration;
}

} // namespace machine

namespace simwin {

HDEVNOTIFY RegisterDeviceNotificationA(HANDLE recipient, LPVOID filter, DWORD flags) {
    SIM_CALL("RegisterDeviceNotificationA", machine::ClassOfFilter(filter, flags), ERROR_ACCESS_DENIED,
             ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_DATA, ERROR_INVALID_PARAMETER, ERROR_SERVICE_NOT_ACTIVE);
    if (simCall.error) {
        machine::SetError(simCall.error);
        return nullptr;
    }
    machine::Registration* registration = machine::MakeRegistration(recipient, filter, flags);
    if (!registration) {
        return nullptr;
    }
    machine::g_notices->registrations.push_back(registration);
    return machine::CurrentProcess()->handles.Open(registration);
}

BOOL UnregisterDeviceNotification(HDEVNOTIFY notification) {
    SIM_CALL("UnregisterDeviceNotification", "", ERROR_INVALID_HANDLE);
    if (!simCall.error &&
        machine::FromHandle<machine::Registration>(notification, machine::ObjectKind::DeviceNotification)) {
        machine::CurrentProcess()->handles.Close(notification);
        return TRUE;
    }
    machine::SetError(simCall.error ? simCall.error : ERROR_INVALID_HANDLE);
    return FALSE;
}

} // namespace simwin
