#include "simwin/kernel/Process.h"

#include "simwin/host/Program.h"
#include "simwin/kernel/Image.h"
#include "simwin/kernel/Locks.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/api.h"

#include <algorithm>

namespace machine {

constexpr std::uint64_t WindowsImageBase = 0x140000000ull; // the preferred base of a 64-bit executable
constexpr std::size_t MainStackBytes = 4 * 1024 * 1024;

namespace {
struct Processes {
    std::vector<Process*> all;
    std::vector<Ref<Process>> held; // the report still reads them after they have ended
    std::vector<std::function<void(const Process&)>> atStart;
    std::vector<std::function<void(Process&)>> atEnd;
    std::function<void(const Process&, const char*)> debugWatcher;
    simwin::DWORD nextId = 1200;
};
} // namespace
static Processes* g_processes;

static void EndProcesses() {
    for (Process* process : g_processes->all) {
        EndProcess(process, 0);
    }
    g_processes->held.clear();
}

RoomPtr MakeProcesses() {
    return MakeRoom(g_processes, EndProcesses);
}

static Process* AddProcess(const ProcessStart& start) {
    auto* process = new Process;
    g_processes->held.emplace_back(process);
    process->id = g_processes->nextId += 4;
    process->imagePath = start.imagePath;
    process->commandLine = start.commandLine;
    process->currentDirectory = process->startDirectory = start.currentDirectory;
    process->user = start.user;
    process->session = start.session;
    process->rights = start.rights;
    process->administrator = start.administrator;
    process->showCommand = start.showCommand;
    process->parentId = start.parentId;
    process->environmentOf = start.environmentOf.empty() ? start.user : start.environmentOf;
    process->token = Ref<Object>(start.token);
    process->startedMs = Now();
    g_processes->all.push_back(process);
    for (const auto& action : g_processes->atStart) {
        action(*process);
    }
    return process;
}

// The part of a command line after the program's name, as WinMain gets it: a pointer into the process's own text.
static char* ArgumentsOf(Process* process) {
    char* at = process->commandLine.data();
    if (*at == '"') {
        for (++at; *at && *at != '"'; ++at) {
            ;
        }
        if (*at) {
            ++at;
        }
    } else {
        while (*at && *at != ' ' && *at != '\t') {
            ++at;
        }
    }
    while (*at == ' ' || *at == '\t') {
        ++at;
    }
    return at;
}

static simwin::DWORD RunProduct(Process* process) {
    const int code = WinMain(reinterpret_cast<simwin::HINSTANCE>(WindowsImageBase), nullptr, ArgumentsOf(process),
                             static_cast<int>(process->showCommand));
    EndProcess(process, static_cast<simwin::DWORD>(code));
    return 0;
}

const char* RightsName(Rights rights) {
    static constexpr const char* Names[] = {"system", "user", "restricted", "elevated"};
    return Names[static_cast<unsigned>(rights)];
}

Process* CurrentProcess() {
    return CurrentThread()->process;
}

Object* ObjectOfHandle(simwin::HANDLE handle, ObjectKind kind) {
    return CurrentProcess()->handles.Find(handle, kind);
}

Process* StartProduct(const ProcessStart& start) {
    Process* process = AddProcess(start);
    ResumeThreadOf(CreateThreadOf(
        process, [process] { return RunProduct(process); }, MainStackBytes));
    return process;
}

Process* StartScripted(const ProcessStart& start) {
    return AddProcess(start);
}

Process* StartHosted(const ProcessStart& start, std::function<int()> entry) {
    Process* process = AddProcess(start);
    Thread* thread = CreateThreadOf(
        process,
        [process, run = std::move(entry)] {
            EndProcess(process, static_cast<simwin::DWORD>(run()));
            return 0u;
        },
        MainStackBytes);
    ResumeThreadOf(thread);
    return process;
}

void EndProcess(Process* process, simwin::DWORD exitCode) {
    if (process->ended) {
        return;
    }
    process->ended = true;
    process->exitCode = exitCode;
    process->endedMs = Now();
    Thread* own = nullptr;
    while (!process->threads.empty()) {
        Thread* thread = process->threads.back();
        if (thread == CurrentThread()) {
            own = thread;
            process->threads.pop_back();
        } else {
            EndThread(thread, exitCode);
        }
    }
    for (const auto& action : g_processes->atEnd) {
        action(*process);
    }
    for (const auto& action : process->atEnd) {
        action();
    }
    process->atEnd.clear();
    process->leakedHandles = process->handles.Entries().size();
    process->leakedBytes = process->heap.Bytes();
    const bool heapIsWhole = process->heap.Validate();
    process->handles.CloseAll();
    ForgetLocks(process);
    process->heap.FreeAll();
    LeaveImage(process);
    process->Signal();
    if (!heapIsWhole && !IsRunStopped()) {
        StopRun(Verdict::BrokenRule, "a block of the heap was written past its end by " + process->imagePath);
    }
    if (own) {
        EndThread(own, exitCode);
    }
}

void KillProcess(Process* process) {
    constexpr simwin::DWORD KilledExitCode = 1;
    if (process->ended) {
        return;
    }
    process->killed = true;
    EndProcess(process, KilledExitCode);
}

const std::vector<Process*>& AllProcesses() {
    return g_processes->all;
}

Process* FindProcess(simwin::DWORD id) {
    for (Process* process : g_processes->all) {
        if (process->id == id) {
            return process;
        }
    }
    return nullptr;
}

void WatchDebugOutput(std::function<void(const Process&, const char*)> watcher) {
    g_processes->debugWatcher = std::move(watcher);
}

void NoteDebugOutput(Process& process, const char* text) {
    if (g_processes->debugWatcher) {
        g_processes->debugWatcher(process, text);
    } else {
        process.debugOutput += text;
    }
}

void OnProcessStart(std::function<void(const Process&)> action) {
    g_processes->atStart.push_back(std::move(action));
}

void OnProcessEnd(std::function<void(Process&)> action) {
    g_processes->atEnd.push_back(std::move(action));
}

// By first appearance, so that a log is the same whatever compiler and linker have made of the program.
static std::uint64_t AddressInImage(std::vector<const void*>& shown, const void* address) {
    constexpr std::uint64_t FirstCode = 0x1000, Distance = 0x10;
    const auto found = std::find(shown.begin(), shown.end(), address);
    const auto number = static_cast<std::uint64_t>(found - shown.begin());
    if (found == shown.end()) {
        shown.push_back(address);
    }
    return WindowsImageBase + FirstCode + number * Distance;
}

std::uint64_t StableAddress(const void* address) {
    const Thread* thread = CurrentThread();
    if (!thread) {
        return reinterpret_cast<std::uint64_t>(address);
    }
    if (host::IsInProgram(address)) {
        return AddressInImage(thread->process->shownAddresses, address);
    }
    if (const std::uint64_t inHeap = thread->process->heap.StableAddress(address)) {
        return inHeap;
    }
    return reinterpret_cast<std::uint64_t>(address);
}

} // namespace machine
