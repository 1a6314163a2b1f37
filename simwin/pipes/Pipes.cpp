#include "simwin/pipes/PipeState.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Text.h"
#include "simwin/pipes/api.h"

#include <algorithm>

namespace machine {

using namespace simwin;

constexpr std::string_view Prefix = "\\\\.\\pipe\\";

static PipesState* g_pipes;

RoomPtr MakePipes() {
    RoomPtr room = MakeRoom(g_pipes);
    SetPipeOpener(OpenPipe);
    return room;
}

static bool IsCurrent(const PipeClient& client) {
    return client.instance->stand == PipeStand::Connected && client.instance->connection == client.connection;
}

PipesState& ThePipes() {
    return *g_pipes;
}

bool IsPipeName(std::string_view name) {
    return StartsWithNoCase(name, Prefix) && name.size() > Prefix.size();
}

bool MayDoEverything(const Pipe& pipe, const Caller& caller) {
    return caller.Is(SidSystem) || caller.Is(SidAdministrators) || caller.Is(pipe.owner);
}

void TellWaiters(PipeInstance& instance) {
    std::vector<DWORD> waiters;
    waiters.swap(instance.waiters);
    for (Thread* thread : AllThreads()) {
        if ((thread->waitKind == WaitKind::Pipe || thread->waitKind == WaitKind::Answer) &&
            std::find(waiters.begin(), waiters.end(), thread->id) != waiters.end()) {
            Wake(thread, 0);
        }
    }
}

void WaitAtPipe(PipeInstance& instance, WaitKind kind, const char* what) {
    instance.waiters.push_back(CurrentThread()->id);
    Block(kind, what, NoLimit);
}

void Listen(PipeInstance& instance) {
    instance.stand = PipeStand::Listening;
    instance.listensSince = g_pipes->next++;
}

void DropClient(PipeInstance& instance) {
    instance.messages.clear();
    instance.stand = PipeStand::Disconnected;
    TellWaiters(instance);
}

void CloseServer(PipeInstance& instance) {
    if (!g_pipes) {
        return; // the machine is being taken down
    }
    instance.isServed = false;
    DropClient(instance);
    const auto pipe = g_pipes->pipes.find(instance.name);
    std::erase(pipe->second.instances, &instance);
    if (pipe->second.instances.empty()) {
        g_pipes->pipes.erase(pipe);
    }
}

DWORD ConnectPipeClient(std::string_view name, const Caller& caller, bool writes, PipeClient* client) {
    const auto pipe = g_pipes->pipes.find(Lower(name));
    if (pipe == g_pipes->pipes.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (writes && !MayDoEverything(pipe->second, caller)) {
        return ERROR_ACCESS_DENIED;
    }
    PipeInstance* longest = nullptr;
    for (PipeInstance* instance : pipe->second.instances) {
        if (instance->stand == PipeStand::Listening && (!longest || instance->listensSince < longest->listensSince)) {
            longest = instance;
        }
    }
    if (!longest) {
        return ERROR_PIPE_BUSY;
    }
    longest->stand = PipeStand::Connected;
    longest->connection = g_pipes->next++;
    *client = {longest, longest->connection};
    TellWaiters(*longest);
    return 0;
}

DWORD WriteToPipe(const PipeClient& client, std::string message) {
    if (!client.instance->isServed) {
        return ERROR_NO_DATA;
    }
    if (!IsCurrent(client)) {
        return ERROR_PIPE_NOT_CONNECTED;
    }
    client.instance->messages.push_back(std::move(message));
    TellWaiters(*client.instance);
    return 0;
}

void ClosePipeClient(const PipeClient& client) {
    if (!g_pipes || !IsCurrent(client)) {
        return;
    }
    client.instance->stand = PipeStand::ClientGone;
    TellWaiters(*client.instance);
}

bool IsPipeConnected(const PipeClient& client) {
    return IsCurrent(client);
}

} // namespace machine
