// The room's own state: pipes with their instances. Instances stay for the life of the machine, since a thread
// abandoned in a wait could not release one. Used by the room's sources only.
#pragma once

#include "simwin/files/Files.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/pipes/Pipes.h"

#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace machine {

enum class PipeStand : std::uint8_t { Listening, Connected, ClientGone, Disconnected };

struct PipeInstance {
    std::string name; // in small letters
    PipeStand stand = PipeStand::Listening;
    bool isServed = true;               // its server's handle is open
    std::uint64_t listensSince = 0;     // a count, not a time
    std::uint64_t connection = 0;       // of the client that is or was there last
    std::deque<std::string> messages;   // written and not read
    std::vector<simwin::DWORD> waiters; // threads that check again when anything changes
};

struct Pipe {
    Sid owner;
    simwin::DWORD mostInstances = 0;
    std::vector<PipeInstance*> instances; // that are served
};

struct PipesState {
    std::map<std::string, Pipe> pipes; // by name in small letters
    std::vector<std::unique_ptr<PipeInstance>> all;
    std::uint64_t next = 1;
};

PipesState& ThePipes();
// What opening a file does for the name of a pipe.
std::unique_ptr<OpenDevice> OpenPipe(const char* name, simwin::DWORD access, simwin::DWORD share, simwin::DWORD flags,
                                     simwin::DWORD* error);
bool IsPipeName(std::string_view name);
bool MayDoEverything(const Pipe& pipe, const Caller& caller);
void Listen(PipeInstance& instance);
void CloseServer(PipeInstance& instance);
void DropClient(PipeInstance& instance);
// The threads waiting at the instance check again.
void TellWaiters(PipeInstance& instance);
// The running thread waits until the instance changes.
void WaitAtPipe(PipeInstance& instance, WaitKind kind, const char* what);

} // namespace machine
