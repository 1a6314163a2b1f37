#include "balloon/BalloonDelivery.h"

#include "balloon/BalloonArguments.h"
#include "balloon/BalloonLayout.h"
#include "balloon/BalloonPipe.h"
#include "balloon/BalloonPosition.h"
#include "balloon/BalloonState.h"
#include "balloon/BalloonTracking.h"
#include "balloon/BalloonWindow.h"
#include "balloon/ForeignBalloons.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/ScopeGuard.h"
#include "support/system/ThreadTools.h"
#include "support/system/WorkerThreads.h"
#include "support/texts/BoundedText.h"

constexpr DWORD StepMs = 10;
constexpr LONG FirstClassicIcon = 101;
constexpr LONG LastClassicIcon = 199;
constexpr LONG FlatIconOffset = 100;
constexpr DWORD MinWaitMs = 30000;
constexpr DWORD MaxWaitMs = 0x7FFFFFFF;

static DWORD WINAPI ShowFreeBalloon_ThreadProc(void* param);

static void FillRecord(FreeBalloonInfo* record, LONG showTimeMs, LONG charSet, const char* title, const char* text1,
                       const char* text2, LONG icon) {
    record->ShowTime = showTimeMs < 0 ? 0 : showTimeMs;
    record->CharSet = charSet;
    CopyText(record->Title, title[0] != 0 ? title : "Serial Device");
    CopyText(record->Text1, text1[0] != 0 ? text1 : "COM?");
    CopyText(record->Text2, text2);
    record->Icon = icon;
}

static void PlaceAnchor() {
    LockGuard lock(CS_BalloonData);
    g_balloonAnchor = GetBalloonPos();
}

int ShowFreeBalloonAtSysTray(LONG showTimeMs, LONG charSet, const char* title, const char* text1, const char* text2,
                             LONG icon) {
    WriteLog(3, "ShowFreeBalloonAtSysTray(%i, %i, '%s', '%s', '%s', %i)", showTimeMs, charSet, title, text1, text2,
             icon);
    FreeBalloonInfo record = {};
    {
        LockGuard lock(CS_BalloonData);
        if (g_balloonLook.IsFlat && icon >= FirstClassicIcon && icon <= LastClassicIcon) {
            icon += FlatIconOffset;
        }
        FillRecord(&record, showTimeMs, charSet, title, text1, text2, icon);
    }
    WriteLog(3, "BalloonMode -> ShowBalloon direct");
    WriteLog(3, " ShowBalloon direct");
    PlaceAnchor();
    return ShowFreeBalloonThreaded(record);
}

static DWORD MaxWaitFor(LONG showTimeMs) {
    const LONGLONG wanted = static_cast<LONGLONG>(showTimeMs) * 3;
    const DWORD capped = wanted > MaxWaitMs ? MaxWaitMs : static_cast<DWORD>(wanted);
    return capped < MinWaitMs ? MinWaitMs : capped;
}

int ShowFreeBalloonThreaded(const FreeBalloonInfo& record) {
    if (IsWindow(m_hwndBln)) {
        UpdateBalloon(record);
        return 1;
    }
    {
        LockGuard lock(CS_BalloonData);
        g_balloonInfo = record;
    }
    DWORD threadId = 0;
    const OwnedThread thread = StartWorker(ShowFreeBalloon_ThreadProc, nullptr, /*flags=*/0, &threadId);
    if (!thread) {
        return 1;
    }
    WriteLog(3, "thread ShowFreeBalloon_ThreadProc created ThreadId=%04u", threadId);
    const DWORD maxWaitMs = MaxWaitFor(record.ShowTime);
    WriteLog(4, " balloon maxwait=%i", static_cast<LONG>(maxWaitMs));
    (void)WaitForSingleObject(thread.Get(), maxWaitMs); // one that outlasts the wait ends with the process
    return 1;
}

void UpdateBalloon(const FreeBalloonInfo& record) {
    Sleep(StepMs);
    {
        LockGuard lock(CS_BalloonData);
        g_balloonInfo = record;
        g_balloonAnchor = GetBalloonPos();
        WriteLog(3, "UpdateBalloon x=%i y=%i point=%i time=%i '%s' '%s' '%s'", g_balloonAnchor.X, g_balloonAnchor.Y,
                 static_cast<LONG>(g_balloonAnchor.Point), record.ShowTime, record.Title, record.Text1, record.Text2);
    }
    if (const HWND window = m_hwndBln) {
        PostMessageA(window, WM_BALLOON_UPDATE, 0, 0);
    }
}

static void RunMessageLoop() {
    MSG message = {};
    for (;;) {
        const BOOL result = GetMessageA(&message, nullptr, 0, 0);
        if (result == 0 || result == -1) {
            return;
        }
        if (IsBalloonMessage(message)) {
            DispatchMessageA(&message);
        }
    }
}

static void ShowFreeBalloon() {
    WriteLog(4, "ShowFreeBalloon_ThreadProc()");
    Sleep(StepMs);
    StartBalloonPipeServer();
    char className[64];
    if (IsSpecialWindow(WindowFromPoint({0, 0}), className)) {
        WriteLog(2, "special window found ('%s') -> abort", className);
        return;
    }
    if (!SettleForeignBalloons(GetBalloonPos())) {
        return;
    }
    ShowBalloonNow();
    SetTrackingThread(StartCorrectingBalloonPos());
    StartPreventingForeignBalloons();
    RunMessageLoop();
    WriteLog(4, "/ShowFreeBalloon_ThreadProc");
}

static DWORD WINAPI ShowFreeBalloon_ThreadProc(void*) {
    const WorkerScope worker;
    ShowFreeBalloon();
    return 0;
}

DWORD WINAPI ShowBalloonByCommandLine_ThreadProc(void*) {
    const WorkerScope worker;
    ShowBalloonByCommandLine();
    return 0;
}
