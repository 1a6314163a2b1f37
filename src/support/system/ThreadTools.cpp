#include "support/system/ThreadTools.h"

#include "support/log/LogFile.h"
#include "support/system/Handles.h"

HANDLE StartThread(LPTHREAD_START_ROUTINE procedure, void* parameter) {
    DWORD threadId = 0;
    return CreateThread(nullptr, 0, procedure, parameter, 0, &threadId);
}

int StartThreadLogged(const char* name, LPTHREAD_START_ROUTINE procedure, void* parameter) {
    DWORD threadId = 0;
    const OwnedThread thread(CreateThread(nullptr, 0, procedure, parameter, CREATE_SUSPENDED, &threadId));
    if (!thread) {
        return 0;
    }
    if (name) {
        WriteLog(3, "thread %s created ThreadId=%04u", name, threadId);
    }
    ResumeThread(thread.Get());
    return 1;
}

DWORD StartThreadForId(const char* name, LPTHREAD_START_ROUTINE procedure, void* parameter) {
    DWORD threadId = 0;
    const OwnedThread thread(CreateThread(nullptr, 0, procedure, parameter, 0, &threadId));
    if (!thread) {
        return 0;
    }
    if (name) {
        WriteLog(3, "thread %s created ThreadId=%04u", name, threadId);
    } else {
        WriteLog(3, "thread created ThreadId=%04u", threadId);
    }
    return threadId;
}
