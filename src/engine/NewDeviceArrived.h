// Entry point of device notifications: registers for them, sorts each one by event, device type and interface class,
// and passes it on. A port arrives on a thread of its own and leaves on the thread of the notification.
// Thread: the control dispatcher's in a service run, where the handler holds CS_main; the main window's in a debug run,
// with no lock.
#pragma once

#include "platform/win32.h"

// Registers for the interface classes of ports, modems and USB, or for all classes if the settings say so. Called once.
// recipient: g_hwndMain with flags DEVICE_NOTIFY_WINDOW_HANDLE, or the service status handle with
// DEVICE_NOTIFY_SERVICE_HANDLE. A class that cannot be registered is logged and sends no notifications. Blocks in the
// service process until a window recipient answers.
void RegisterDeviceNotifications(HANDLE recipient, DWORD flags);
// Called in a debug run when its window closes; a service keeps its registrations until the process ends.
void UnregisterDeviceNotifications();

// One notification. eventCode: DBT_...; broadcast: its record, may be null where the code has none.
// Returns: always 0.
DWORD DeviceChangeMsg(DWORD eventCode, const DEV_BROADCAST_HDR* broadcast);

LRESULT CALLBACK MainWndProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);

// Starts the thread of one arrival with a copy of the path.
// Returns: the thread's handle, which the caller closes, or null if the arrival is lost.
HANDLE ComPortArrivedAsync(const char* devpath);

DWORD WINAPI ComPortArrived_ThreadProc(void* param);
void ProcessDevnodesChanged_TimerProc(DWORD id, ULONG_PTR arg);
