#include "host/Quillmarch.h"

#include "actions/CallBackTimer.h"
#include "actions/CurrentUser.h"
#include "actions/ExecuteMode.h"
#include "actions/ServiceTools.h"
#include "balloon/BalloonDelivery.h"
#include "balloon/BalloonWindow.h"
#include "config/CCfgReader.h"
#include "config/CSettings.h"
#include "host/BuildStamp.h"
#include "host/CService.h"
#include "host/CommandTable.h"
#include "host/HelpFile.h"
#include "host/IniEditor.h"
#include "host/Initialisation.h"
#include "host/MainWindow.h"
#include "host/PermissionCheck.h"
#include "host/StartModes.h"
#include "inventory/ports/CComPorts.h"
#include "inventory/ports/CDeviceArrivals.h"
#include "inventory/usb/CUsbHubs.h"
#include "inventory/usb/CUsbRoothubs.h"
#include "support/log/LogFile.h"
#include "support/registry/RegistryTools.h"
#include "support/system/Accounts.h"
#include "support/system/CRTreplace.h"
#include "support/system/FileVersion.h"
#include "support/system/Handles.h"
#include "support/system/MessageTools.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"
#include "support/system/SupportLocks.h"
#include "support/system/SystemTools.h"
#include "support/system/ThreadTools.h"
#include "support/system/WorkerThreads.h"
#include "support/texts/BoundedText.h"
#include "support/texts/PathTools.h"
#include "support/texts/TimeTools.h"

constexpr char DebugSwitch[] = "-debug";
constexpr DWORD DebugInitWaitStepMs = 4500;
constexpr DWORD DebugInitWaitLimitMs = 25000;
constexpr DWORD BalloonWaitMs = 60000;

static bool AsksForDebugRun(const char* commandLine) {
    return StrStrA(commandLine, DebugSwitch) != nullptr;
}

static bool IsUserSession() {
    DWORD sessionId = 0;
    return ProcessIdToSessionId(GetCurrentProcessId(), &sessionId) && sessionId > 0;
}

// The name of the executable with the extension replaced, or appended if it has none.
static void FindIniFile() {
    CopyText(szIniFile, szExePath);
    char* extension = StrRChrA(szIniFile, nullptr, '.');
    if (extension != nullptr && StrChrA(extension, '\\') == nullptr) {
        *extension = 0;
    }
    AppendText(szIniFile, ".INI");
}

static void FindPathsAndVersions() {
    GetModuleFileNameA(nullptr, szExePath, sizeof(szExePath) - 1);
    GetDirectoryOfPath(szExePath, szExeDir);
    GetWindowsDirectoryA(szWindowsDir, sizeof(szWindowsDir));
    GetSystemDirectoryA(szSystemDir, sizeof(szSystemDir));
    GetUserSidText(szUserSid);
    GetOsVersion(&g_os);
    InitSupportLocks();
    InitServiceTools();
    FixServiceImagePath();
    FindIniFile();
    FileVersion version;
    (void)GetFileVersionData(szExePath, &version); // after a failure the text names the error, which the log then shows
    FormatText(szVersionLine, "Quillmarch.EXE V%s %s build %s %s", version.Text, "Win32", QM_BUILD_DATE, QM_BUILD_TIME);
}

static void LogSystem() {
    if (!LogFile_Wants(1)) {
        return;
    }
    const int isUacEnabled = IsUacEnabled();
    WriteLog(1, "OS version=%u.%u.%u (SP%u) %s %s suite=%X type=%u acp=%u uac=%u lang=0x%x", g_os.MajorVersion,
             g_os.MinorVersion, g_os.BuildNumber, g_os.ServicePack, g_os.ProductName, g_os.ArchText, g_os.SuiteMask,
             g_os.ProductType, GetACP(), static_cast<DWORD>(isUacEnabled), static_cast<DWORD>(GetUserDefaultLangID()));
}

static void LogHead(const char* commandLine, int nCmdShow) {
    WriteLog(2, "--------------------------------------------------------");
    WriteLog(1, "------------------ Quillmarch WinMain ------------------");
    WriteLog(2, "------------------------------------------------------->");
    char date[32];
    FormatDate(date, "-");
    WriteLog(1, "Date=%s", date);
    WriteLog(1, "%s", szVersionLine);
    WriteLog(1, "Path=%s", szExePath);
    WriteLog(1, "LogFile='%s' LogLevel=%u WriteLogFile=%u WriteDbg=%u", g_log.LogFileName,
             static_cast<DWORD>(g_log.LogLevel), g_log.WriteLogfile, g_log.WriteDebugOutput);
    WriteLog(1, "CmdLine='%s' CmdShow=%i", commandLine, nCmdShow);
    WriteLog(1, "sid=%s mode=%s", szUserSid, StartModeName(g_Mode));
    LogSystem();
    char currentDir[MAX_PATH] = {};
    GetCurrentDirectoryA(sizeof(currentDir), currentDir);
    WriteLog(3, "CurDir=%s", currentDir);
    const DWORD ticks = GetTickCount();
    WriteLog(2, "TickCount=%u (%u Seconds)", ticks, ticks / 1000);
}

static void LogEnd() {
    WriteLog(1, "<---------------- /Quillmarch WinMain ------------------");
}

// The objects that exist in every role of the service, in the order of their dependencies.
static void CreateObjects(const char* commandLine) {
    g_pService = new CService;
    g_pService->Init(ServiceName, ServiceName);
    if (!AsksForDebugRun(commandLine) && IsSystemAccount()) {
        g_Mode = ModeService;
        g_pService->IsServiceProcess = 1;
    }
    g_pCfgReader = new CCfgReader(szIniFile, HKEY_LOCAL_MACHINE, ConfigurationKey);
    g_pCfgReader->CreateSnapshot("main");
    g_pSettings = new CSettings;
    g_pSettings->ReadSettings();
    (void)SetCurrentUserInfo();
    if (LastLogonSession == NoSession) {
        LastLogonSession = GetBestUserSessionId();
    }
}

// Whether another instance prevents this one from running. A message has said so.
static bool IsRefusedByOtherInstance() {
    if (g_DebugMode && g_pService->IsRegistered(/*Verbose=*/0) && g_pService->QueryState() == SERVICE_RUNNING) {
        ShowMessage("Cannot run while another instance is running as service", MB_ICONSTOP);
        return true;
    }
    if (FindWindowA(MainWindowClass, MainWindowTitle) != nullptr) {
        ShowMessage("Cannot run while another instance is running", MB_ICONSTOP);
        return true;
    }
    return false;
}

// The debug run, until its window is closed. Returns: the exit code, or ExitDone when the destruction is to follow.
static int RunDebug(HINSTANCE hInstance) {
    g_pService->AdoptRunThread();
    CreateMainWindowProc(hInstance);
    {
        // Nothing that needs `CS_main` runs before the tables are there.
        LockGuard lock(CS_main);
        const OwnedThread thread = StartWorker(InitializeQuillmarchService_ThreadProc, nullptr);
        if (!thread) {
            return ExitRefused;
        }
        SetThreadPriority(thread.Get(), THREAD_PRIORITY_HIGHEST);
        const DWORD startTicks = GetTickCount();
        while (WaitForSingleObject(thread.Get(), DebugInitWaitStepMs) == WAIT_TIMEOUT &&
               GetTickCount() - startTicks <= DebugInitWaitLimitMs) {
        }
    }
    g_pService->IsServiceProcess = 0;
    g_pService->Run();
    return ExitDone;
}

template<typename T>
static void Destroy(T*& object) {
    T* const doomed = object;
    object = nullptr;
    delete doomed;
}

// An arrival that hangs in a device call, or a timer's procedure, may outlive the run. What it can reach is then kept
// until the process ends: freeing it would crash the process.
static void DestroyObjects() {
    ExitCallbackTimers();
    if (LiveWorkers() != 0) {
        return;
    }
    ExitServiceTools();
    DeleteCriticalSection(&CS_assign);
    Destroy(g_pDeviceArrivals);
    Destroy(g_pUsbRoothubs);
    Destroy(g_pUsbHubs);
    Destroy(g_pSettings);
    Destroy(g_pCfgReader);
    Destroy(g_pComPorts);
    Destroy(g_pService);
    DeleteCriticalSection(&CS_main);
}

// The balloon child, until its balloon has closed or the wait for it ends. What a running thread can still reach is
// kept until the process ends.
static void RunBalloonChild(HINSTANCE hInstance) {
    FreeBalloon_Init(hInstance);
    OwnedThread thread = StartWorker(ShowBalloonByCommandLine_ThreadProc, nullptr);
    if (thread) {
        (void)WaitForSingleObject(thread.Get(), BalloonWaitMs);
    }
    thread.Reset();
    LogEnd();
    FreeBalloon_Exit();
    if (LiveWorkers() == 0) {
        ExitSupportLocks();
    }
    LogFile_Exit();
}

// Modes 1 to 4, and everything else without a path of its own.
static int RunMainPath(HINSTANCE hInstance, char* commandLine) {
    if (g_os.IsWow64) {
        ShowMessage("On x64 use the x64 edition of this exe", MB_ICONSTOP);
        return ExitRefused;
    }
    CreateObjects(commandLine);
    if (commandLine[0] != 0) {
        int exitCode = ExitRefused;
        if (!RunCommand(commandLine, &exitCode)) {
            LogEnd();
            return exitCode;
        }
    }
    if (!g_pService->IsRegistered(/*Verbose=*/0) && !g_DebugMode) {
        Usage();
        return ExitRefused;
    }
    InitializeCriticalSection(&CS_main);
    InitializeCriticalSection(&CS_assign);
    InitCallbackTimers();
    if (IsRefusedByOtherInstance()) {
        return ExitRefused;
    }
    if (g_DebugMode) {
        const int exitCode = RunDebug(hInstance);
        if (exitCode != ExitDone) {
            return exitCode;
        }
    } else {
        g_pService->IsServiceProcess = 1;
        g_pService->Start();
    }
    const bool hadNoWindow = g_DebugMode && g_hwndMain == nullptr;
    DestroyObjects();
    LogEnd();
    return hadNoWindow ? ExitRefused : ExitDone;
}

extern "C" int WINAPI WinMain(HINSTANCE hInstance, HINSTANCE, LPSTR lpCmdLine, int nCmdShow) {
    if (lpCmdLine == nullptr) {
        return ExitNoCommandLine;
    }
    // First, since the libraries of the system are loaded on first use.
    NarrowDllSearch();
    InitAllocator();
    FindPathsAndVersions();
    const LONG mode = ChooseStartMode(szUserSid, IsUserSession(), lpCmdLine);
    // A child's texts come from devices: whatever they contain, it only appends to the service's log.
    const bool isChild = mode == ModeBalloon || mode == ModeExec;
    LogFile_Init(!isChild && (lpCmdLine[0] == 0 || AsksForDebugRun(lpCmdLine)));
    g_Mode = mode;
    if (g_Mode == ModeNul) {
        ShowHelpFile();
        return ExitRefused;
    }
    LogHead(lpCmdLine, nCmdShow);
    if (g_Mode == ModeIni) {
        EditIni();
        LogEnd();
        return ExitDone;
    }
    if (g_Mode == ModeBalloon) {
        RunBalloonChild(hInstance);
        return ExitDone;
    }
    if (g_Mode == ModeExec) {
        RunExecuteMode(static_cast<WORD>(nCmdShow));
        LogEnd();
        return ExitDone;
    }
    return RunMainPath(hInstance, lpCmdLine);
}
