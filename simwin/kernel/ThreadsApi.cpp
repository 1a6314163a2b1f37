#include "simwin/kernel/api.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"

namespace simwin {

using machine::ObjectKind;
using machine::SetError;

const HANDLE ThisProcess = reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));
const HANDLE ThisThread = reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2));

namespace {
struct Event : machine::Waitable {
    Event() : Waitable(ObjectKind::Event) {}
};
} // namespace

static machine::Thread* ThreadOf(HANDLE handle) {
    if (handle == ThisThread) {
        return machine::CurrentThread();
    }
    auto* thread = machine::FromHandle<machine::Thread>(handle, ObjectKind::Thread);
    if (!thread) {
        SetError(ERROR_INVALID_HANDLE);
    }
    return thread;
}

static machine::Waitable* WaitableOf(HANDLE handle) {
    if (handle == ThisThread) {
        return machine::CurrentThread();
    }
    if (handle == ThisProcess) {
        return machine::CurrentProcess();
    }
    const machine::HandleEntry* entry = machine::CurrentProcess()->handles.Entry(handle);
    if (!entry) {
        return nullptr;
    }
    switch (entry->object->kind) {
    case ObjectKind::Event:
    case ObjectKind::Thread:
    case ObjectKind::Process:
        return static_cast<machine::Waitable*>(entry->object.Get());
    default:
        return nullptr;
    }
}

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCSTR name) {
    SIM_CALL("CreateEventA", name, ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        SetError(simCall.error);
        return nullptr;
    }
    if (name) {
        machine::NotModelled("CreateEventA", "a named event");
    }
    auto* event = new Event;
    event->autoReset = !manualReset;
    event->signalled = initialState != 0;
    return machine::CurrentProcess()->handles.Open(event);
}

BOOL SetEvent(HANDLE handle) {
    SIM_CALL("SetEvent", "");
    auto* event = machine::FromHandle<Event>(handle, ObjectKind::Event);
    if (!event) {
        SetError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    event->Signal();
    return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
    SIM_CALL("ResetEvent", "");
    auto* event = machine::FromHandle<Event>(handle, ObjectKind::Event);
    if (!event) {
        SetError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    event->Reset();
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD ms) {
    SIM_CALL("WaitForSingleObject", "");
    machine::Waitable* object = WaitableOf(handle);
    if (!object) {
        SetError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    if (object->signalled) {
        if (object->autoReset) {
            object->signalled = false;
        }
        return WAIT_OBJECT_0;
    }
    if (ms == 0) {
        return WAIT_TIMEOUT;
    }
    machine::CurrentThread()->waitHold = machine::Ref<machine::Object>(object);
    return machine::Block(machine::WaitKind::Object, machine::KindName(object->kind), ms, &object->waiters);
}

BOOL CloseHandle(HANDLE handle) {
    SIM_CALL("CloseHandle", "");
    if (handle == ThisProcess || handle == ThisThread) {
        return TRUE;
    }
    const machine::HandleEntry* entry = machine::CurrentProcess()->handles.Entry(handle);
    const bool closes = entry && entry->object->kind != ObjectKind::RegistryKey &&
                        entry->object->kind != ObjectKind::DeviceList && entry->object->kind != ObjectKind::FindFile &&
                        entry->object->kind != ObjectKind::DeviceNotification;
    if (!closes) {
        SetError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    machine::CurrentProcess()->handles.Close(handle);
    return TRUE;
}

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T stackBytes, LPTHREAD_START_ROUTINE entry, LPVOID parameter,
                    DWORD flags, LPDWORD threadId) {
    SIM_CALL("CreateThread", "", ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        SetError(simCall.error);
        return nullptr;
    }
    if (flags & ~CREATE_SUSPENDED) {
        machine::NotModelled("CreateThread", "flags other than CREATE_SUSPENDED");
    }
    machine::Process* process = machine::CurrentProcess();
    machine::Thread* thread = machine::CreateThreadOf(
        process, [entry, parameter] { return entry(parameter); }, stackBytes);
    const HANDLE handle = process->handles.Open(thread);
    if (threadId) {
        *threadId = thread->id;
    }
    if (!(flags & CREATE_SUSPENDED)) {
        machine::ResumeThreadOf(thread);
    }
    return handle;
}

DWORD ResumeThread(HANDLE handle) {
    SIM_CALL("ResumeThread", "");
    machine::Thread* thread = ThreadOf(handle);
    if (!thread) {
        return 0xFFFFFFFF;
    }
    const int before = thread->suspendCount;
    machine::ResumeThreadOf(thread);
    return static_cast<DWORD>(before);
}

BOOL SetThreadPriority(HANDLE handle, int priority) {
    SIM_CALL("SetThreadPriority", "");
    machine::Thread* thread = ThreadOf(handle);
    if (!thread) {
        return FALSE;
    }
    constexpr int Idle = -15, Lowest = -2, Highest = 2, TimeCritical = 15;
    if (priority != Idle && priority != TimeCritical && (priority < Lowest || priority > Highest)) {
        SetError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    thread->priority = priority;
    return TRUE;
}

BOOL GetExitCodeThread(HANDLE handle, LPDWORD exitCode) {
    SIM_CALL("GetExitCodeThread", "");
    const machine::Thread* thread = ThreadOf(handle);
    if (!thread) {
        return FALSE;
    }
    *exitCode = thread->exitCode;
    return TRUE;
}

HANDLE GetCurrentThread() {
    SIM_CALL("GetCurrentThread", "");
    return ThisThread;
}

DWORD GetCurrentThreadId() {
    SIM_CALL("GetCurrentThreadId", "");
    return machine::CurrentThread()->id;
}

HANDLE GetCurrentProcess() {
    SIM_CALL("GetCurrentProcess", "");
    return ThisProcess;
}

DWORD GetCurrentProcessId() {
    SIM_CALL("GetCurrentProcessId", "");
    return machine::CurrentProcess()->id;
}

LPSTR GetCommandLineA() {
    SIM_CALL("GetCommandLineA", "");
    return machine::CurrentProcess()->commandLine.data();
}

BOOL GetExitCodeProcess(HANDLE handle, LPDWORD exitCode) {
    SIM_CALL("GetExitCodeProcess", "");
    const machine::Process* process = handle == ThisProcess
                                          ? machine::CurrentProcess()
                                          : machine::FromHandle<machine::Process>(handle, ObjectKind::Process);
    if (!process) {
        SetError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    *exitCode = process->exitCode;
    return TRUE;
}

void DebugBreak() {
    SIM_CALL("DebugBreak", "");
    constexpr DWORD StatusBreakpoint = 0x80000003;
    machine::Process* process = machine::CurrentProcess();
    if (!process->trapExpected) {
        machine::StopRun(machine::Verdict::Crash, process->imagePath + " ran into its own breakpoint trap");
    }
    machine::EndProcess(process, StatusBreakpoint);
}

void OutputDebugStringA(LPCSTR text) {
    SIM_CALL("OutputDebugStringA", "");
    machine::NoteDebugOutput(*machine::CurrentProcess(), text ? text : "");
}

BOOL Beep(DWORD, DWORD ms) {
    SIM_CALL("Beep", "");
    machine::SleepMs(ms);
    return TRUE;
}

LONG InterlockedIncrement(volatile LONG* value) {
    SIM_CALL("InterlockedIncrement", "");
    const LONG after = *value + 1;
    *value = after;
    return after;
}

LONG InterlockedDecrement(volatile LONG* value) {
    SIM_CALL("InterlockedDecrement", "");
    const LONG after = *value - 1;
    *value = after;
    return after;
}

LONG InterlockedCompareExchange(volatile LONG* value, LONG to, LONG expected) {
    SIM_CALL("InterlockedCompareExchange", "");
    const LONG before = *value;
    if (before == expected) {
        *value = to;
    }
    return before;
}

} // namespace simwin
