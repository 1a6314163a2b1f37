// Simulated processes. One that runs the product has globals of its own (Image.h) and fibers as threads. Other programs
// are scripted: they have no threads, hold things and end.
#pragma once

#include "simwin/kernel/Heap.h"
#include "simwin/kernel/Objects.h"
#include "simwin/kernel/Room.h"

#include <functional>
#include <string>
#include <vector>

namespace machine {

enum class Rights : std::uint8_t { System, User, Restricted, Elevated };
const char* RightsName(Rights rights);

struct Process : Waitable {
    Process() : Waitable(ObjectKind::Process) {}

    simwin::DWORD id = 0;
    simwin::DWORD parentId = 0;   // its creator, ended or not; 0: the machine started it
    std::string imagePath;        // 'C:\Program Files\Quillmarch\Quillmarch.exe'
    std::string commandLine;      // whole, as GetCommandLineA gives it
    std::string currentDirectory; // without a backslash at the end
    std::string startDirectory;   // as it was at the start
    std::string user;             // 'NT AUTHORITY\SYSTEM', 'LAB\anna'
    unsigned session = 0;
    Rights rights = Rights::System;
    bool administrator = true; // a member of Administrators whose token says so
    unsigned showCommand = 1;
    std::string environmentOf; // the account whose environment it has: its own, or its creator's
    Ref<Object> token;         // its own, kept beyond its end; null until it is asked for

    std::vector<char> globals;               // of the image, while another process has the turn
    std::vector<const void*> shownAddresses; // in the image, as %p met them first
    std::vector<Thread*> threads;
    HandleTable handles;
    Heap heap;
    std::string debugOutput; // what OutputDebugStringA was given

    bool ended = false;
    bool killed = false;          // ended from outside at an arbitrary point: what it had open is not a leak
    bool trapExpected = false;    // a described crash: its end by a trap does not end the run
    simwin::DWORD exitCode = 259; // STILL_ACTIVE
    std::uint64_t startedMs = 0, endedMs = 0;
    std::size_t leakedHandles = 0, leakedBytes = 0; // counted as it ended
    std::vector<std::function<void()>> atEnd;       // callbacks of rooms for its end; run once, in order
};

struct ProcessStart {
    std::string imagePath, commandLine, currentDirectory, user;
    unsigned session = 0;
    Rights rights = Rights::System;
    bool administrator = true;
    unsigned showCommand = 1;
    simwin::DWORD parentId = 0;
    std::string environmentOf; // "": the user's own
    Object* token = nullptr;   // borrowed; null: it follows from the rights
};

// The process of the running thread. Never null inside an operation.
Process* CurrentProcess();

// Starts a copy of the product: creates its first thread, which runs WinMain with the part of the
// command line after the program's name. Holders retain the result themselves.
Process* StartProduct(const ProcessStart& start);

// A process without threads, such as a terminal program that holds a port.
Process* StartScripted(const ProcessStart& start);

// A process whose first thread runs `entry` in the host's own copy of the product: unit tests, benchmarks.
Process* StartHosted(const ProcessStart& start, std::function<int()> entry);

// Ends it with its threads wherever they are; its handles are closed, its globals forgotten. Called on one of
// its own threads it does not return.
void EndProcess(Process* process, simwin::DWORD exitCode);

// From outside, as the task manager does.
void KillProcess(Process* process);

// All processes that ever ran, in the order of their start.
const std::vector<Process*>& AllProcesses();
Process* FindProcess(simwin::DWORD id);

// Watches what programs pass to OutputDebugStringA, when they do.
void WatchDebugOutput(std::function<void(const Process&, const char* text)> watcher);
void NoteDebugOutput(Process& process, const char* text);

// Watches the start of every process, before its first thread runs.
void OnProcessStart(std::function<void(const Process&)> action);
// Callbacks of rooms for the end of any process (windows destroyed, registrations dropped), before its handles are
// closed.
void OnProcessEnd(std::function<void(Process&)> action);

// Pointers as numbers that are the same in each run, for %p: inside an image, inside a heap, else the value itself.
std::uint64_t StableAddress(const void* address);

RoomPtr MakeProcesses();

} // namespace machine
