// What the balloon's pipe relies on: messages stay whole, and each state of an instance has its error.
#include "tests/contract/Contract.h"

constexpr char Name[] = "\\\\.\\pipe\\QuillmarchContractPipe";

static HANDLE Server() {
    return CreateNamedPipeA(Name, PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1, 0, 64, 1000,
                            nullptr);
}

static HANDLE Client() {
    return CreateFileA(Name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION,
                       nullptr);
}

static DWORD Write(HANDLE client, const std::string& text) {
    DWORD written = 0;
    return contract::ErrorOf(
        [&] { return WriteFile(client, text.data(), static_cast<DWORD>(text.size()), &written, nullptr); });
}

// The error, 0 for none, and what was read.
static std::pair<DWORD, std::string> Read(HANDLE server, DWORD bytes) {
    char buffer[64] = {};
    DWORD read = 0;
    const DWORD error = contract::ErrorOf([&] { return ReadFile(server, buffer, bytes, &read, nullptr); });
    return {error, std::string(buffer, read)};
}

TEST(Pipes, AMessageStaysWholeAndALongOneComesInParts) {
    HANDLE server = Server();
    ASSERT_NE(server, INVALID_HANDLE_VALUE);
    HANDLE client = Client();
    ASSERT_NE(client, INVALID_HANDLE_VALUE) << "an instance listens from its making on";
    EXPECT_ERROR(ERROR_PIPE_CONNECTED, ConnectNamedPipe(server, nullptr));
    EXPECT_EQ(Write(client, "first"), 0u);
    EXPECT_EQ(Write(client, "second"), 0u);
    DWORD available = 0, left = 0;
    EXPECT_TRUE(PeekNamedPipe(server, nullptr, 0, nullptr, &available, &left));
    EXPECT_EQ(available, 11u);
    EXPECT_EQ(left, 5u);
    using Message = std::pair<DWORD, std::string>;
    EXPECT_EQ(Read(server, 64), (Message{0, "first"}));
    EXPECT_EQ(Read(server, 4), (Message{ERROR_MORE_DATA, "seco"}));
    EXPECT_EQ(Read(server, 64), (Message{0, "nd"}));
    CloseHandle(client);
    EXPECT_EQ(Read(server, 64).first, DWORD{ERROR_BROKEN_PIPE});
    CloseHandle(server);
}

TEST(Pipes, EachStandOfAnInstanceHasItsError) {
    EXPECT_ERROR(ERROR_FILE_NOT_FOUND, Client() != INVALID_HANDLE_VALUE);
    HANDLE server = Server();
    EXPECT_ERROR(ERROR_PIPE_BUSY, Server() != INVALID_HANDLE_VALUE);
    HANDLE client = Client();
    EXPECT_ERROR(ERROR_PIPE_BUSY, Client() != INVALID_HANDLE_VALUE);
    CloseHandle(client);
    EXPECT_ERROR(ERROR_NO_DATA, ConnectNamedPipe(server, nullptr));
    EXPECT_TRUE(DisconnectNamedPipe(server));
    EXPECT_EQ(Read(server, 64).first, DWORD{ERROR_PIPE_NOT_CONNECTED});
    CloseHandle(server);
}
