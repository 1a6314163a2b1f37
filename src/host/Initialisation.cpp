#include "host/Initialisation.h"

#include "actions/CurrentUser.h"
#include "config/CSettings.h"
#include "engine/AssignmentCheck.h"
#include "engine/NewDeviceArrived.h"
#include "host/CService.h"
#include "host/PermissionCheck.h"
#include "inventory/names/ComNameArbiter.h"
#include "inventory/ports/CComPorts.h"
#include "inventory/ports/CDeviceArrivals.h"
#include "inventory/usb/CUsbHubs.h"
#include "inventory/usb/CUsbRoothubs.h"
#include "support/log/LogFile.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/system/WorkerThreads.h"

constexpr DWORD Windows50 = 0x0500;

// Ports whose driver is still being installed would be read half configured.
static void WaitForDeviceInstalls() {
    const DWORD limitMs = static_cast<DWORD>(g_pSettings->WaitNoPendingInstallEventsOnInit);
    WriteLog(2, "WaitNoPendingInstallEvents(%u)...", limitMs);
    const DWORD startTicks = GetTickCount();
    const DWORD result = CMP_WaitNoPendingInstallEvents(limitMs);
    WriteLog(2, "waitres=%i time=%u", static_cast<LONG>(result), GetTickCount() - startTicks);
}

static void CreateTables() {
    g_InitialSnapshot = 1;
    g_pDeviceArrivals = new CDeviceArrivals;
    g_pUsbRoothubs = new CUsbRoothubs;
    g_pUsbRoothubs->CreateSnapshot();
    // Before the ports: the names of USB ports are built from those of their hubs.
    g_pUsbHubs = new CUsbHubs;
    g_pUsbHubs->CreateSnapshot();
    g_pComPorts = new CComPorts;
    g_pComPorts->CreateSnapshot(/*reason=*/0);
    g_InitialSnapshot = 0;
}

// A debug run without its window would never receive a device event, nor end. The WM_QUIT waits in the first thread's
// queue, so the run ends as if the window had been closed.
static void EndRunWithoutWindow() {
    WriteLog(1, "g_hwndMain==NULL -> INT3");
    FATAL_SOFT("Quillmarch", "InitializeQuillmarchService_ThreadProc");
    g_StopRequested = 1;
    PostThreadMessageA(g_pService->RunThreadId, WM_QUIT, 0, 0);
}

static DWORD InitializeQuillmarchService() {
    if (g_os.VersionBcd > Windows50) {
        WaitForDeviceInstalls();
    }
    WriteLog(4, "ISVC_1");
    if (g_StopRequested) {
        return 0;
    }
    WriteLog(4, "ISVC_3");
    if (g_pSettings->ComNameArbiterClean[0] != 0) {
        CleanRegComPortArbiter(g_pSettings->ComNameArbiterClean);
    }
    CreateTables();
    if (g_pSettings->RemoveDosDeviceNameOnStartup) {
        g_pComPorts->DeleteNotFoundPorts();
    }
    if (g_pSettings->CheckPortsOnStartup) {
        CheckPortsTwice();
    }
    if (g_DebugMode) {
        WriteLog(4, "ISVC_9a");
        if (g_hwndMain == nullptr) {
            EndRunWithoutWindow();
        }
    } else {
        WriteLog(4, "ISVC_9b");
        RegisterDeviceNotifications(static_cast<HANDLE>(g_pService->hServiceStatus), DEVICE_NOTIFY_SERVICE_HANDLE);
        LogWhatUsersMayChange();
    }
    WriteLog(4, "ISVC_10");
    if (g_StopRequested) {
        return 0;
    }
    if (!IsUserKnown()) {
        (void)SetCurrentUserInfo();
    }
    WriteLog(4, "ISVC_end");
    return 1;
}

DWORD WINAPI InitializeQuillmarchService_ThreadProc(LPVOID) {
    const WorkerScope worker;
    return InitializeQuillmarchService();
}
