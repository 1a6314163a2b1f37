// Named pipes: the server's calls. A client uses CreateFileA, WriteFile and CloseHandle; see also ReadFile.
#pragma once

#include "simwin/kernel/types.h"

namespace simwin {

// --- Pipes. State: the machine's pipes by name, "\\.\pipe\...", whatever the session, each with its instances
// and owner. An instance listens from its creation and from each ConnectNamedPipe on; CreateFileA gives a client the
// one that has listened longest, fails with 2 without an instance, with 231 when none listens, with 5 for a user
// without the right. The system, administrators and the creator's user may do everything, others read; only the former
// may create further instances. ReadFile waits for a message: 234 with its first part if it is longer than the buffer,
// the next call returns the rest; 109 when the client has gone and nothing is left, 233 without a client, 536 while it
// listens.
inline constexpr DWORD PIPE_ACCESS_INBOUND = 1;
inline constexpr DWORD FILE_FLAG_FIRST_PIPE_INSTANCE = 0x00080000;
inline constexpr DWORD PIPE_TYPE_MESSAGE = 4;
inline constexpr DWORD PIPE_READMODE_MESSAGE = 2;
inline constexpr DWORD PIPE_REJECT_REMOTE_CLIENTS = 8;
inline constexpr DWORD SECURITY_IDENTIFICATION = 0x00010000;
inline constexpr DWORD SECURITY_SQOS_PRESENT = 0x00100000;
inline constexpr DWORD ERROR_BROKEN_PIPE = 109;
inline constexpr DWORD ERROR_PIPE_BUSY = 231;
inline constexpr DWORD ERROR_NO_DATA = 232;
inline constexpr DWORD ERROR_PIPE_NOT_CONNECTED = 233;
inline constexpr DWORD ERROR_PIPE_CONNECTED = 535;
inline constexpr DWORD ERROR_PIPE_LISTENING = 536;

// An instance of an inbound message pipe. INVALID_HANDLE_VALUE with 5 for a user without the right, and with
// FILE_FLAG_FIRST_PIPE_INSTANCE where there is one; 231 beyond the first creator's `instances`; 87 for
// PIPE_REJECT_REMOTE_CLIENTS below 6.0; 123 for another name.
HANDLE CreateNamedPipeA(LPCSTR name, DWORD access, DWORD mode, DWORD instances, DWORD outBytes, DWORD inBytes,
                        DWORD defaultMs, LPSECURITY_ATTRIBUTES security);
// Waits (idle) for a client. FALSE with 535 if one is there already, 232 if it has gone again, 6.
BOOL ConnectNamedPipe(HANDLE pipe, LPOVERLAPPED overlapped);
// Drops the client and what it wrote; the instance stops listening until ConnectNamedPipe. FALSE with 6, 233.
BOOL DisconnectNamedPipe(HANDLE pipe);
// Looks without waiting. buffer null: only *available, the bytes of all messages, and *left of the first message.
// FALSE with 109 when the client has gone and nothing is left, 233, 6.
BOOL PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD bytes, LPDWORD read, LPDWORD available, LPDWORD left);
// A client's end: waits until the server has read everything or has gone. FALSE with 6, 232 for a server that has gone.
// A file has nothing to flush.
BOOL FlushFileBuffers(HANDLE file);

// --- Owners. The pipe's is the user that made its first instance.
struct ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;
    WORD AceCount;
    WORD Sbz2;
};
using PACL = ACL*;
enum SE_OBJECT_TYPE : int { SE_UNKNOWN_OBJECT_TYPE = 0, SE_FILE_OBJECT = 1, SE_KERNEL_OBJECT = 6 };
// what: OWNER_SECURITY_INFORMATION of a pipe, by either end's handle; *owner is inside *descriptor, which LocalFree
// releases. Returns: 0, 6, 87.
DWORD GetSecurityInfo(HANDLE object, SE_OBJECT_TYPE kind, SECURITY_INFORMATION what, PSID* owner, PSID* group,
                      PACL* dacl, PACL* sacl, PSECURITY_DESCRIPTOR* descriptor);

} // namespace simwin
