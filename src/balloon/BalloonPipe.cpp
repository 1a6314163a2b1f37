#include "balloon/BalloonPipe.h"

#include "balloon/BalloonDelivery.h"
#include "balloon/BalloonState.h"
#include "balloon/FreeBalloonInfo.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Accounts.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/system/ThreadTools.h"
#include "support/system/WorkerThreads.h"
#include "support/texts/BoundedText.h"

constexpr char PipeName[] = "\\\\.\\pipe\\QuillmarchBalloonUpdate";
constexpr char ExitMessage[] = "exit";
constexpr DWORD MaxInstances = 10;
constexpr DWORD DefaultTimeoutMs = 1000;
constexpr DWORD StepMs = 10;
constexpr DWORD SilenceMs = 1000;
constexpr DWORD RefusesRemoteMajorVersion = 6;

static DWORD WINAPI BalloonPipeServer_ThreadProc(void* param);

// Does the pipe belong to this user, or to someone with full rights anyway? The creator of the first instance owns the
// name: another user's server could read what was meant for this one, and its clients are not ours.
static bool IsOwnPipe(HANDLE pipe) {
    PSID owner = nullptr;
    OwnedSecurityDescriptor descriptor;
    const DWORD error = GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr,
                                        nullptr, descriptor.Receive());
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return false;
    }
    if (owner == nullptr) { // pipes have no owners there, so no other user can own it
        return true;
    }
    OwnedLocalText text;
    if (!ConvertSidToStringSidA(owner, text.Receive())) {
        return false;
    }
    const bool isOwn =
        SameText(text.Get(), szUserSid) || SameText(text.Get(), AdministratorsSid) || SameText(text.Get(), SystemSid);
    if (!isOwn) {
        SetLastError(ERROR_ACCESS_DENIED);
    }
    return isOwn;
}

static OwnedFile CreateInstance() {
    DWORD mode = PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE;
    if (g_os.MajorVersion >= RefusesRemoteMajorVersion) {
        mode |= PIPE_REJECT_REMOTE_CLIENTS;
    }
    OwnedFile pipe(CreateNamedPipeA(PipeName, PIPE_ACCESS_INBOUND, mode, MaxInstances, 0, sizeof(FreeBalloonInfo),
                                    DefaultTimeoutMs, nullptr));
    if (pipe && !IsOwnPipe(pipe.Get())) {
        pipe.Reset();
    }
    return pipe;
}

void StartBalloonPipeServer() {
    OwnedFile pipe = CreateInstance();
    if (!pipe) {
        WriteLog(2, "CreateNamedPipe(%s) err=%s", PipeName, LastErrorName());
        return;
    }
    WorkerStarting();
    if (StartThreadForId("BalloonPipeServer_ThreadProc", BalloonPipeServer_ThreadProc, pipe.Get()) == 0) {
        WorkerEnded();
        return;
    }
    (void)pipe.Release(); // owned by the thread from here on
}

bool SendExitToBalloonPipe() {
    // Identification only: a foreign server must not act in this user's name.
    OwnedFile pipe(CreateFileA(PipeName, GENERIC_WRITE | READ_CONTROL, 0, nullptr, OPEN_EXISTING,
                               SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (!pipe) {
        return false;
    }
    bool isSent = false;
    if (IsOwnPipe(pipe.Get())) {
        DWORD written = 0;
        isSent = WriteFile(pipe.Get(), ExitMessage, sizeof(ExitMessage), &written, nullptr) &&
                 written == sizeof(ExitMessage);
        FlushFileBuffers(pipe.Get());
    }
    pipe.Reset();
    Sleep(StepMs);
    return isSent;
}

static bool Connect(HANDLE pipe) {
    return ConnectNamedPipe(pipe, nullptr) || GetLastError() == ERROR_PIPE_CONNECTED;
}

// Waits for a message, so that the read after it does not block. Returns: false when the client has disconnected or is
// silent.
static bool WaitForMessage(HANDLE pipe) {
    const DWORD startTicks = GetTickCount();
    do {
        Sleep(StepMs);
        DWORD available = 0;
        if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr)) {
            return false;
        }
        if (available != 0) {
            return true;
        }
    } while (GetTickCount() - startTicks < SilenceMs);
    return false;
}

namespace {
// One byte more than a record, for the terminator of a short message.
union PipeMessage {
    FreeBalloonInfo Record;
    char Bytes[sizeof(FreeBalloonInfo) + 1];
};
} // namespace

// Takes one message. Returns: false when the server is to end.
static bool TakeMessage(const PipeMessage& received, DWORD bytes) {
    if (bytes == sizeof(FreeBalloonInfo)) {
        FreeBalloonInfo record = received.Record;
        MakeRecordSafe(&record);
        if (const HWND window = m_hwndBln) {
            PostMessageA(window, WM_BALLOON_HOLD, 0, 0);
        }
        UpdateBalloon(record);
        return true;
    }
    PipeMessage message = received;
    message.Bytes[sizeof(ExitMessage) - 1] = 0;
    return !SameText(message.Bytes, ExitMessage);
}

static void ServePipe(HANDLE pipe) {
    for (;;) {
        if (!Connect(pipe)) {
            DisconnectNamedPipe(pipe);
            Sleep(StepMs); // a pipe that can never be connected must not use up a processor
            continue;
        }
        PipeMessage message;
        ZeroBytes(&message, sizeof(message));
        DWORD bytes = 0;
        if (!WaitForMessage(pipe) || !ReadFile(pipe, &message, sizeof(FreeBalloonInfo), &bytes, nullptr)) {
            DisconnectNamedPipe(pipe);
            continue;
        }
        Sleep(StepMs);
        if (!TakeMessage(message, bytes)) {
            return;
        }
    }
}

static DWORD WINAPI BalloonPipeServer_ThreadProc(void* param) {
    const WorkerScope worker;
    const OwnedFile pipe(param);
    ServePipe(pipe.Get());
    DisconnectNamedPipe(pipe.Get());
    return 0;
}
