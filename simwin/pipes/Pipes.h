// The machine's named pipes, whatever the session: inbound, of messages. The product's calls are in PipesApi.cpp; here
// a described client opens, writes and leaves. On the machine's side; none of this blocks.
#pragma once

#include "simwin/kernel/Room.h"
#include "simwin/kernel/types.h"
#include "simwin/registry/Security.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace machine {

struct PipeInstance;

// One connection of a client. Valid as long as the machine exists, also when its server has gone.
struct PipeClient {
    PipeInstance* instance = nullptr;
    std::uint64_t connection = 0;
};

// Connects to the instance that has listened longest. Returns: 0; 2 without such a pipe, 231 when none listens, 5
// without the right to write.
simwin::DWORD ConnectPipeClient(std::string_view name, const Caller& caller, bool writes, PipeClient* client);
// One message. Returns: 0; 232 for a server that has gone, 233 for one that dropped the client.
simwin::DWORD WriteToPipe(const PipeClient& client, std::string message);
void ClosePipeClient(const PipeClient& client);
bool IsPipeConnected(const PipeClient& client);

RoomPtr MakePipes();

} // namespace machine
