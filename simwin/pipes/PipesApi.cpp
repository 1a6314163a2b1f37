#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/pipes/PipeState.h"
#include "simwin/pipes/api.h"
#include "simwin/registry/api.h"
#include "simwin/sessions/api.h"

#include <algorithm>
#include <cstring>

namespace machine {

using namespace simwin;

constexpr unsigned FirstThatRejectsRemote = 6;

namespace {
// The server's end of an instance. Waiters refer to the instance, since the handle may be closed meanwhile.
struct ServerEnd : OpenDevice {
    explicit ServerEnd(PipeInstance& own) : instance(own) {}
    void Closed() override { CloseServer(instance); }
    DWORD Read(void* buffer, DWORD bytes, DWORD* moved) override { return ReadFrom(instance, buffer, bytes, moved); }
    static DWORD ReadFrom(PipeInstance& instance, void* buffer, DWORD bytes, DWORD* moved);

    PipeInstance& instance;
};

struct ClientEnd : OpenDevice {
    explicit ClientEnd(const PipeClient& own) : client(own) {}
    void Closed() override { ClosePipeClient(client); }
    DWORD Write(const void* data, DWORD bytes, DWORD* moved) override {
        const DWORD error = WriteToPipe(client, std::string(static_cast<const char*>(data), bytes));
        *moved = error ? 0 : bytes;
        return error;
    }

    PipeClient client;
};
} // namespace

// Why nothing can be read without a message; 0: one may still come.
static DWORD WhyNothingComes(const PipeInstance& instance) {
    switch (instance.stand) {
    case PipeStand::Listening:
        return ERROR_PIPE_LISTENING;
    case PipeStand::ClientGone:
        return ERROR_BROKEN_PIPE;
    case PipeStand::Disconnected:
        return ERROR_PIPE_NOT_CONNECTED;
    case PipeStand::Connected:
        break;
    }
    return 0;
}

// The first message, or the part of it that the buffer holds; the rest comes next.
static DWORD TakeMessage(PipeInstance& instance, void* buffer, DWORD bytes, DWORD* moved) {
    std::string& message = instance.messages.front();
    *moved = std::min(bytes, static_cast<DWORD>(message.size()));
    if (*moved) {
        std::memcpy(buffer, message.data(), *moved);
    }
    if (*moved < message.size()) {
        message.erase(0, *moved);
        return ERROR_MORE_DATA;
    }
    instance.messages.pop_front();
    TellWaiters(instance);
    return 0;
}

DWORD ServerEnd::ReadFrom(PipeInstance& instance, void* buffer, DWORD bytes, DWORD* moved) {
    while (instance.messages.empty()) {
        if (const DWORD error = WhyNothingComes(instance)) {
            return error;
        }
        WaitAtPipe(instance, WaitKind::Pipe, "a pipe's message");
    }
    return TakeMessage(instance, buffer, bytes, moved);
}

std::unique_ptr<OpenDevice> OpenPipe(const char* name, DWORD access, DWORD, DWORD, DWORD* error) {
    constexpr DWORD WriteData = 2;
    PipeClient client;
    const bool writes = (MapGeneric(access, FileMapping) & WriteData) != 0;
    *error = ConnectPipeClient(name, CurrentCaller(), writes, &client);
    return *error ? nullptr : std::make_unique<ClientEnd>(client);
}

template<typename End>
static End* EndOf(HANDLE handle) {
    auto* file = FromHandle<OpenFile>(handle, ObjectKind::File);
    return file ? dynamic_cast<End*>(file->device.get()) : nullptr;
}

// Null with the last error set.
static PipeInstance* UseServer(HANDLE handle, DWORD error = 0) {
    ServerEnd* end = error ? nullptr : EndOf<ServerEnd>(handle);
    if (!end) {
        SetError(error ? error : DWORD{ERROR_INVALID_HANDLE});
    }
    return end ? &end->instance : nullptr;
}

// 0: an instance may be created.
static DWORD RefusalOf(const char* name, DWORD access, DWORD mode) {
    if (!name || !IsPipeName(name)) {
        return ERROR_INVALID_NAME;
    }
    if ((mode & PIPE_REJECT_REMOTE_CLIENTS) && TheSetup().version.major < FirstThatRejectsRemote) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto pipe = ThePipes().pipes.find(Lower(name));
    if (pipe == ThePipes().pipes.end()) {
        return 0;
    }
    if ((access & FILE_FLAG_FIRST_PIPE_INSTANCE) || !MayDoEverything(pipe->second, CurrentCaller())) {
        return ERROR_ACCESS_DENIED;
    }
    return pipe->second.instances.size() >= pipe->second.mostInstances ? ERROR_PIPE_BUSY : 0;
}

static HANDLE MakeInstance(const char* name, DWORD mostInstances) {
    PipesState& pipes = ThePipes();
    const auto [pipe, isNew] = pipes.pipes.try_emplace(Lower(name));
    if (isNew) {
        pipe->second.owner = CurrentCaller().user;
        pipe->second.mostInstances = mostInstances;
    }
    pipes.all.push_back(std::make_unique<PipeInstance>());
    PipeInstance& instance = *pipes.all.back();
    instance.name = pipe->first;
    Listen(instance);
    pipe->second.instances.push_back(&instance);
    auto* file = new OpenFile;
    file->device = std::make_unique<ServerEnd>(instance);
    file->device->name = name;
    return CurrentProcess()->handles.Open(file, FileMapping.all);
}

static bool IsFlushed(const PipeClient& client) {
    return client.instance->messages.empty() || !IsPipeConnected(client);
}

static std::string PipeNameOf(HANDLE handle) {
    if (const ServerEnd* server = EndOf<ServerEnd>(handle)) {
        return server->instance.name;
    }
    const ClientEnd* client = EndOf<ClientEnd>(handle);
    return client ? client->client.instance->name : "";
}

} // namespace machine

namespace simwin {

using namespace machine;

HANDLE CreateNamedPipeA(LPCSTR name, DWORD access, DWORD mode, DWORD instances, DWORD, DWORD, DWORD,
                        LPSECURITY_ATTRIBUTES security) {
    SIM_CALL("CreateNamedPipeA", name, ERROR_ACCESS_DENIED, ERROR_PIPE_BUSY, ERROR_INVALID_NAME,
             ERROR_INVALID_PARAMETER, ERROR_NOT_ENOUGH_MEMORY);
    constexpr DWORD Messages = PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE;
    if ((access & ~FILE_FLAG_FIRST_PIPE_INSTANCE) != PIPE_ACCESS_INBOUND ||
        (mode & ~PIPE_REJECT_REMOTE_CLIENTS) != Messages || security) {
        NotModelled("CreateNamedPipeA", "anything but an inbound pipe of messages with the default access");
    }
    const DWORD error = simCall.error ? simCall.error : RefusalOf(name, access, mode);
    if (error) {
        machine::SetError(error);
        return INVALID_HANDLE_VALUE;
    }
    return MakeInstance(name, instances);
}

BOOL ConnectNamedPipe(HANDLE pipe, LPOVERLAPPED overlapped) {
    SIM_CALL("ConnectNamedPipe", "", ERROR_INVALID_HANDLE, ERROR_NOT_ENOUGH_MEMORY);
    if (overlapped) {
        NotModelled("ConnectNamedPipe", "an overlapped wait");
    }
    PipeInstance* instance = UseServer(pipe, simCall.error);
    if (!instance) {
        return FALSE;
    }
    DWORD error = 0;
    if (instance->stand == PipeStand::Connected) {
        error = ERROR_PIPE_CONNECTED;
    } else if (instance->stand == PipeStand::ClientGone) {
        error = ERROR_NO_DATA;
    } else if (instance->stand == PipeStand::Disconnected) {
        Listen(*instance);
    }
    while (!error && instance->stand == PipeStand::Listening) {
        WaitAtPipe(*instance, WaitKind::Pipe, "a pipe's client");
        if (!instance->isServed) {
            error = ERROR_INVALID_HANDLE;
        }
    }
    if (error) {
        machine::SetError(error);
    }
    return !error;
}

BOOL DisconnectNamedPipe(HANDLE pipe) {
    SIM_CALL("DisconnectNamedPipe", "", ERROR_INVALID_HANDLE);
    PipeInstance* instance = UseServer(pipe, simCall.error);
    if (!instance) {
        return FALSE;
    }
    if (instance->stand == PipeStand::Disconnected) {
        machine::SetError(ERROR_PIPE_NOT_CONNECTED);
        return FALSE;
    }
    DropClient(*instance);
    return TRUE;
}

BOOL PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD bytes, LPDWORD read, LPDWORD available, LPDWORD left) {
    SIM_CALL("PeekNamedPipe", "", ERROR_INVALID_HANDLE, ERROR_BROKEN_PIPE);
    const PipeInstance* instance = UseServer(pipe, simCall.error);
    if (!instance) {
        return FALSE;
    }
    const DWORD error = instance->messages.empty() ? WhyNothingComes(*instance) : 0;
    if (error) {
        machine::SetError(error == ERROR_PIPE_LISTENING ? DWORD{ERROR_PIPE_NOT_CONNECTED} : error);
        return FALSE;
    }
    std::size_t all = 0;
    for (const std::string& message : instance->messages) {
        all += message.size();
    }
    const std::size_t first = instance->messages.empty() ? 0 : instance->messages.front().size();
    const std::size_t copied = buffer ? std::min<std::size_t>(bytes, first) : 0;
    if (copied) {
        std::memcpy(buffer, instance->messages.front().data(), copied);
    }
    if (read) {
        *read = static_cast<DWORD>(copied);
    }
    if (available) {
        *available = static_cast<DWORD>(all);
    }
    if (left) {
        *left = static_cast<DWORD>(first - copied);
    }
    return TRUE;
}

BOOL FlushFileBuffers(HANDLE file) {
    SIM_CALL("FlushFileBuffers", "", ERROR_INVALID_HANDLE);
    const ClientEnd* end = simCall.error ? nullptr : EndOf<ClientEnd>(file);
    if (!end) {
        const bool isFile = !simCall.error && ObjectOfHandle(file, ObjectKind::File);
        if (!isFile) {
            machine::SetError(ERROR_INVALID_HANDLE);
        }
        return isFile;
    }
    const PipeClient client = end->client;
    while (!IsFlushed(client)) {
        WaitAtPipe(*client.instance, WaitKind::Answer, "a pipe's server to read");
    }
    if (IsPipeConnected(client)) {
        return TRUE;
    }
    machine::SetError(ERROR_NO_DATA);
    return FALSE;
}

DWORD GetSecurityInfo(HANDLE object, SE_OBJECT_TYPE, SECURITY_INFORMATION what, PSID* owner, PSID* group, PACL* dacl,
                      PACL* sacl, PSECURITY_DESCRIPTOR* descriptor) {
    SIM_CALL("GetSecurityInfo", "", ERROR_INVALID_HANDLE, ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY);
    if (what != OWNER_SECURITY_INFORMATION || group || dacl || sacl) {
        NotModelled("GetSecurityInfo", "anything but the owner");
    }
    if (simCall.error) {
        return simCall.error;
    }
    if (!owner || !descriptor) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto pipe = ThePipes().pipes.find(PipeNameOf(object));
    if (pipe == ThePipes().pipes.end()) {
        return ERROR_INVALID_HANDLE;
    }
    SecurityDescriptor own;
    own.owner = pipe->second.owner;
    const std::vector<std::uint8_t> bytes = ToBinary(own);
    auto* block = static_cast<std::uint8_t*>(CurrentProcess()->heap.Allocate(bytes.size(), "GetSecurityInfo"));
    std::copy(bytes.begin(), bytes.end(), block);
    std::uint32_t ownerAt = 0;
    std::memcpy(&ownerAt, block + 4, sizeof(ownerAt));
    *descriptor = block;
    *owner = block + ownerAt;
    return ERROR_SUCCESS;
}

} // namespace simwin
