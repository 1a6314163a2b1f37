#include "simwin/sessions/Sessions.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Text.h"
#include "simwin/kernel/api.h"
#include "simwin/registry/Security.h"
#include "simwin/services/api.h"

#include <algorithm>
#include <cstring>

namespace machine {

namespace {

// The token of a process, as it was when the token was opened.
struct Token : Object {
    Token() : Object(ObjectKind::Token) {}
    std::string user;
    bool administrator = false;
};

// The processes at one moment, for a walk.
struct ProcessSnapshot : Object {
    ProcessSnapshot() : Object(ObjectKind::Snapshot) {}
    std::vector<simwin::DWORD> ids;
    std::size_t next = 0;
};

template<typename Result>
Result Fail(simwin::DWORD error, Result result) {
    SetError(error);
    return result;
}

Process* ProcessOfHandle(simwin::HANDLE handle) {
    if (handle == simwin::GetCurrentProcess())
        return CurrentProcess();
    return FromHandle<Process>(handle, ObjectKind::Process);
}

// "S-1-5-21-1-2" as bytes: revision, count, authority in big-endian order, sub-authorities.
std::vector<std::uint8_t> SidBytes(const std::string& text) {
    std::vector<std::uint64_t> parts;
    for (const std::string& part : Split(text.substr(2), '-'))
        parts.push_back(std::stoull(part));
    std::vector<std::uint8_t> bytes = {static_cast<std::uint8_t>(parts[0]),
                                       static_cast<std::uint8_t>(parts.size() - 2)};
    for (int shift = 40; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::uint8_t>(parts[1] >> shift));
    for (std::size_t i = 2; i < parts.size(); ++i)
        for (int shift = 0; shift < 32; shift += 8)
            bytes.push_back(static_cast<std::uint8_t>(parts[i] >> shift));
    return bytes;
}

std::string SidText(const std::uint8_t* bytes) {
    std::uint64_t authority = 0;
    for (int i = 2; i < 8; ++i)
        authority = authority << 8 | bytes[i];
    std::string text = "S-" + std::to_string(bytes[0]) + "-" + std::to_string(authority);
    for (int i = 0; i < bytes[1]; ++i) {
        simwin::DWORD part = 0;
        std::memcpy(&part, bytes + 8 + 4 * i, sizeof(part));
        text += "-" + std::to_string(part);
    }
    return text;
}

constexpr std::uint8_t SidRevision = 1;
constexpr std::uint8_t MostSubAuthorities = 15;

simwin::BOOL GiveProcess(simwin::HANDLE handle, simwin::PROCESSENTRY32* entry, bool fromStart) {
    ProcessSnapshot* snapshot = FromHandle<ProcessSnapshot>(handle, ObjectKind::Snapshot);
    if (!snapshot)
        return Fail(simwin::ERROR_INVALID_HANDLE, FALSE);
    if (entry->dwSize != sizeof(*entry))
        return Fail(simwin::ERROR_BAD_LENGTH, FALSE);
    if (fromStart)
        snapshot->next = 0;
    if (snapshot->next >= snapshot->ids.size())
        return Fail(simwin::ERROR_NO_MORE_FILES, FALSE);
    const Process* process = FindProcess(snapshot->ids[snapshot->next++]);
    *entry = {};
    entry->dwSize = sizeof(*entry);
    entry->th32ProcessID = process->id;
    entry->th32ParentProcessID = process->parentId;
    entry->cntThreads = static_cast<simwin::DWORD>(process->threads.size());
    const std::string name = process->imagePath.substr(process->imagePath.rfind('\\') + 1);
    name.copy(entry->szExeFile, sizeof(entry->szExeFile) - 1);
    return TRUE;
}

// Windows names the sessions of the services, the console, the listener and of remote users.
std::string StationName(const Session& session) {
    if (session.console)
        return "Console";
    if (session.id == 0)
        return "Services";
    return session.id == ListenerSession ? "RDP-Tcp" : "RDP-Tcp#" + std::to_string(session.id);
}

} // namespace

} // namespace machine

namespace simwin {

using machine::Fail;

BOOL OpenProcessToken(HANDLE handle, DWORD access, PHANDLE token) {
    SIM_CALL("OpenProcessToken", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE);
    if (access != TOKEN_QUERY)
        machine::NotModelled("OpenProcessToken", "an access other than TOKEN_QUERY");
    if (simCall.error)
        return Fail(simCall.error, FALSE);
    const machine::Process* process = machine::ProcessOfHandle(handle);
    if (!process)
        return Fail(ERROR_INVALID_HANDLE, FALSE);
    auto* opened = new machine::Token;
    opened->user = process->user;
    opened->administrator = process->administrator;
    *token = machine::CurrentProcess()->handles.Open(opened, access);
    return TRUE;
}

BOOL GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size, PDWORD needed) {
    SIM_CALL("GetTokenInformation", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE);
    if (what != TokenUser)
        machine::NotModelled("GetTokenInformation", "a class other than TokenUser");
    if (simCall.error)
        return Fail(simCall.error, FALSE);
    const machine::Token* opened = machine::FromHandle<machine::Token>(token, machine::ObjectKind::Token);
    if (!opened)
        return Fail(ERROR_INVALID_HANDLE, FALSE);
    const std::vector<std::uint8_t> sid = machine::SidBytes(machine::SidOfAccount(opened->user));
    *needed = static_cast<DWORD>(sizeof(TOKEN_USER) + sid.size());
    if (!buffer || size < *needed)
        return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    auto* user = static_cast<TOKEN_USER*>(buffer);
    user->User.Sid = user + 1;
    user->User.Attributes = 0;
    std::memcpy(user->User.Sid, sid.data(), sid.size());
    return TRUE;
}

BOOL ConvertSidToStringSidA(PSID sid, LPSTR* text) {
    SIM_CALL("ConvertSidToStringSidA", "", ERROR_INVALID_SID, ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error)
        return Fail(simCall.error, FALSE);
    const auto* bytes = static_cast<const std::uint8_t*>(sid);
    if (!bytes || bytes[0] != machine::SidRevision || bytes[1] > machine::MostSubAuthorities)
        return Fail(ERROR_INVALID_SID, FALSE);
    const std::string made = machine::SidText(bytes);
    *text = static_cast<char*>(machine::CurrentProcess()->heap.Allocate(made.size() + 1, "ConvertSidToStringSidA"));
    std::memcpy(*text, made.c_str(), made.size() + 1);
    return TRUE;
}

BOOL IsUserAnAdmin() {
    SIM_CALL("IsUserAnAdmin", "");
    return machine::CurrentProcess()->administrator;
}

BOOL ProcessIdToSessionId(DWORD processId, LPDWORD sessionId) {
    SIM_CALL("ProcessIdToSessionId", "", ERROR_INVALID_PARAMETER, ERROR_ACCESS_DENIED);
    const machine::Process* process = simCall.error ? nullptr : machine::FindProcess(processId);
    if (!process || process->ended)
        return Fail(simCall.error ? simCall.error : ERROR_INVALID_PARAMETER, FALSE);
    *sessionId = process->session;
    return TRUE;
}

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD) {
    SIM_CALL("CreateToolhelp32Snapshot", "", ERROR_ACCESS_DENIED);
    if (flags != TH32CS_SNAPPROCESS)
        machine::NotModelled("CreateToolhelp32Snapshot", "anything but processes");
    if (simCall.error)
        return Fail(simCall.error, INVALID_HANDLE_VALUE);
    auto* snapshot = new machine::ProcessSnapshot;
    for (const machine::Process* process : machine::AllProcesses())
        if (!process->ended)
            snapshot->ids.push_back(process->id);
    return machine::CurrentProcess()->handles.Open(snapshot);
}

BOOL Process32First(HANDLE snapshot, PROCESSENTRY32* entry) {
    SIM_CALL("Process32First", "", ERROR_INVALID_HANDLE);
    return simCall.error ? Fail(simCall.error, FALSE) : machine::GiveProcess(snapshot, entry, /*fromStart=*/true);
}

BOOL Process32Next(HANDLE snapshot, PROCESSENTRY32* entry) {
    SIM_CALL("Process32Next", "", ERROR_INVALID_HANDLE);
    return simCall.error ? Fail(simCall.error, FALSE) : machine::GiveProcess(snapshot, entry, /*fromStart=*/false);
}

BOOL WTSQuerySessionInformationA(HANDLE server, DWORD sessionId, WTS_INFO_CLASS what, LPSTR* buffer, DWORD* bytes) {
    SIM_CALL("WTSQuerySessionInformationA", std::to_string(sessionId), ERROR_ACCESS_DENIED, RPC_S_SERVER_UNAVAILABLE,
             ERROR_CTX_WINSTATION_NOT_FOUND);
    if (server != WTS_CURRENT_SERVER_HANDLE || what != WTSConnectState)
        machine::NotModelled("WTSQuerySessionInformationA", "anything but the connect state on this machine");
    if (simCall.error)
        return Fail(simCall.error, FALSE);
    const std::vector<machine::Session> listed = machine::ListedSessions();
    const auto session = std::find_if(listed.begin(), listed.end(),
                                      [&](const machine::Session& other) { return other.id == sessionId; });
    if (session == listed.end())
        return Fail(ERROR_CTX_WINSTATION_NOT_FOUND, FALSE);
    *bytes = sizeof(DWORD);
    *buffer =
        static_cast<char*>(machine::CurrentProcess()->heap.Allocate(sizeof(DWORD), "WTSQuerySessionInformationA"));
    std::memcpy(*buffer, &session->state, sizeof(DWORD));
    return TRUE;
}

void WTSFreeMemory(PVOID memory) {
    SIM_CALL("WTSFreeMemory", "");
    if (memory && !machine::CurrentProcess()->heap.Free(memory))
        machine::BrokenRule("WTSFreeMemory", "a block that is none");
}

BOOL WTSEnumerateSessionsA(HANDLE server, DWORD reserved, DWORD version, PWTS_SESSION_INFOA* sessions, DWORD* count) {
    SIM_CALL("WTSEnumerateSessionsA", "", ERROR_ACCESS_DENIED, RPC_S_SERVER_UNAVAILABLE);
    if (server != WTS_CURRENT_SERVER_HANDLE)
        machine::NotModelled("WTSEnumerateSessionsA", "another machine");
    if (simCall.error)
        return Fail(simCall.error, FALSE);
    if (reserved != 0 || version != 1)
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const std::vector<machine::Session> listed = machine::ListedSessions();
    std::vector<std::string> names;
    std::size_t bytes = listed.size() * sizeof(WTS_SESSION_INFOA);
    for (const machine::Session& session : listed)
        bytes += names.emplace_back(machine::StationName(session)).size() + 1;
    auto* block =
        static_cast<WTS_SESSION_INFOA*>(machine::CurrentProcess()->heap.Allocate(bytes, "WTSEnumerateSessionsA"));
    char* text = reinterpret_cast<char*>(block + listed.size());
    for (std::size_t i = 0; i < listed.size(); ++i) {
        block[i] = {listed[i].id, text, listed[i].state};
        std::memcpy(text, names[i].c_str(), names[i].size() + 1);
        text += names[i].size() + 1;
    }
    *sessions = block;
    *count = static_cast<DWORD>(listed.size());
    return TRUE;
}

DWORD WTSGetActiveConsoleSessionId() {
    SIM_CALL("WTSGetActiveConsoleSessionId", "");
    return machine::ConsoleSession().value_or(0xFFFFFFFF);
}

// The program loads the library of these by its path.
static const machine::OptionalOperation Optional[] = {
    {"wtsapi32.dll", "WTSQuerySessionInformationA", machine::AsProc(WTSQuerySessionInformationA), 0x0500},
    {"wtsapi32.dll", "WTSEnumerateSessionsA", machine::AsProc(WTSEnumerateSessionsA), 0x0500},
    {"kernel32.dll", "WTSGetActiveConsoleSessionId", machine::AsProc(WTSGetActiveConsoleSessionId), 0x0501},
    {"wtsapi32.dll", "WTSFreeMemory", machine::AsProc(WTSFreeMemory), 0x0500},
};

} // namespace simwin
