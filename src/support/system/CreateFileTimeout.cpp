#include "support/system/CreateFileTimeout.h"

#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"

constexpr DWORD SafetyMs = 100; // how much earlier the thread stops relying on a waiting caller

// The first of the two to finish leaves the request to the other one.
constexpr LONG Running = 0;
constexpr LONG Finished = 1;  // the thread has its result; the caller takes it and frees the request
constexpr LONG Abandoned = 2; // the caller has left; the thread closes the handle and frees the request

namespace {
struct OpenRequest {
    char FileName[260];
    DWORD Access;
    DWORD Share;
    DWORD Disposition;
    DWORD Flags;
    DWORD LatestMs; // an open that takes longer comes too late
    DWORD Error;
    OwnedFile File;
    LONG State;
};
} // namespace

static HANDLE OpenNow(const OpenRequest& request) {
    return CreateFileA(request.FileName, request.Access, request.Share, nullptr, request.Disposition, request.Flags,
                       nullptr);
}

static void OpenInTime(OpenRequest& request) {
    WriteLog(3, "CreateFile(%s)...", request.FileName);
    const DWORD startTick = GetTickCount();
    SetLastError(ERROR_SUCCESS);
    request.File.Reset(OpenNow(request));
    request.Error = GetLastError();
    if (!request.File) {
        WriteLog(3, " err=%s", ErrorName(request.Error));
        return;
    }
    WriteLog(3, " h=0x%p", request.File.Get());
    if (GetTickCount() - startTick > request.LatestMs) {
        WriteLog(3, " too late -> CloseHandle");
        request.File.Reset();
        request.Error = ERROR_TIMEOUT;
    }
}

static DWORD RunRequest(OpenRequest* request) {
    OpenInTime(*request);
    const DWORD exitCode = request->File.IsOpen();
    if (InterlockedCompareExchange(&request->State, Finished, Running) == Abandoned) {
        delete request; // closes the file
    }
    return exitCode;
}

static DWORD WINAPI CreateFile_ThreadProc(LPVOID parameter) {
    return RunRequest(static_cast<OpenRequest*>(parameter));
}

// The caller leaves without a result.
static void AbandonRequest(OpenRequest* request) {
    if (InterlockedCompareExchange(&request->State, Abandoned, Running) == Finished) {
        delete request; // closes the file
    }
}

// The result of a thread that has ended. The last error is that of the open.
static HANDLE TakeResult(OpenRequest& request, DWORD exitCode) {
    if (exitCode == 1) {
        return request.File.Release();
    }
    if (request.Error == ERROR_FILE_NOT_FOUND) {
        return OpenNow(request); // a name that does not exist cannot hang
    }
    SetLastError(request.Error);
    return INVALID_HANDLE_VALUE;
}

HANDLE CreateFileTimeout(const char* name, DWORD access, DWORD share, DWORD disposition, DWORD flags, DWORD timeoutMs) {
    WriteLog(3, "CreateFileTimeout(%s, 0x%X, 0x%X, %u, 0x%X, %u)...", name, access, share, disposition, flags,
             timeoutMs);
    OpenRequest* request = new OpenRequest;
    CopyText(request->FileName, name);
    request->Access = access;
    request->Share = share;
    request->Disposition = disposition;
    request->Flags = flags;
    request->LatestMs = timeoutMs > SafetyMs ? timeoutMs - SafetyMs : timeoutMs;
    request->Error = ERROR_SUCCESS;
    request->State = Running;

    const DWORD startTick = GetTickCount();
    DWORD threadId = 0;
    OwnedThread thread(CreateThread(nullptr, 0, CreateFile_ThreadProc, request, 0, &threadId));
    if (!thread) {
        LastErrorKeeper keep;
        delete request;
        return INVALID_HANDLE_VALUE;
    }
    WriteLog(3, "thread CreateFile_ThreadProc created ThreadId=%04u waiting upto %u ms", threadId, timeoutMs);
    const DWORD waitResult = WaitForSingleObject(thread.Get(), timeoutMs);
    WriteLog(3, "waitres=%u after %u ms", waitResult, GetTickCount() - startTick);
    if (waitResult != WAIT_OBJECT_0) {
        thread.Reset();
        AbandonRequest(request);
        SetLastError(ERROR_TIMEOUT);
        return INVALID_HANDLE_VALUE;
    }
    DWORD exitCode = 0;
    (void)GetExitCodeThread(thread.Get(), &exitCode); // without one the request's error decides
    const HANDLE result = TakeResult(*request, exitCode);
    LastErrorKeeper keep;
    delete request;
    return result;
}
