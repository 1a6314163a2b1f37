#include "simwin/sessions/Sessions.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Optional.h"
#include "simwin/kernel/Text.h"
#include "simwin/kernel/api.h"
#include "simwin/services/api.h"

#include <algorithm>
#include <cstring>

namespace machine {

namespace {
// The processes at one moment, for a walk.
struct ProcessSnapshot : Object {
    ProcessSnapshot() : Object(ObjectKind::Snapshot) {}
    std::vector<simwin::DWORD> ids;
    std::size_t next = 0;
};
} // namespace

template<typename Result>
static Result Fail(simwin::DWORD error, Result result) {
    SetError(error);
    return result;
}

static simwin::BOOL GiveProcess(simwin::HANDLE handle, simwin::PROCESSENTRY32* entry, bool fromStart) {
    ProcessSnapshot* snapshot = FromHandle<ProcessSnapshot>(handle, ObjectKind::Snapshot);
    if (!snapshot) {
        return Fail(simwin::ERROR_INVALID_HANDLE, FALSE);
    }
    if (entry->dwSize != sizeof(*entry)) {
        return Fail(simwin::ERROR_BAD_LENGTH, FALSE);
    }
    if (fromStart) {
        snapshot->next = 0;
    }
    if (snapshot->next >= snapshot->ids.size()) {
        return Fail(simwin::ERROR_NO_MORE_FILES, FALSE);
    }
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
static std::string StationName(const Session& session) {
    if (session.console) {
        return "Console";
    }
    if (session.id == 0) {
        return "Services";
    }
    return session.id == ListenerSession ? "RDP-Tcp" : "RDP-Tcp#" + std::to_string(session.id);
}

} // namespace machine

namespace simwin {

using machine::Fail;

BOOL ProcessIdToSessionId(DWORD processId, LPDWORD sessionId) {
    SIM_CALL("ProcessIdToSessionId", "", ERROR_INVALID_PARAMETER, ERROR_ACCESS_DENIED);
    const machine::Process* process = simCall.error ? nullptr : machine::FindProcess(processId);
    if (!process || process->ended) {
        return Fail(simCall.error ? simCall.error : ERROR_INVALID_PARAMETER, FALSE);
    }
    *sessionId = process->session;
    return TRUE;
}

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD) {
    SIM_CALL("CreateToolhelp32Snapshot", "", ERROR_ACCESS_DENIED);
    if (flags != TH32CS_SNAPPROCESS) {
        machine::NotModelled("CreateToolhelp32Snapshot", "anything but processes");
    }
    if (simCall.error) {
        return Fail(simCall.error, INVALID_HANDLE_VALUE);
    }
    auto* snapshot = new machine::ProcessSnapshot;
    for (const machine::Process* process : machine::AllProcesses()) {
        if (!process->ended) {
            snapshot->ids.push_back(process->id);
        }
    }
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
    if (server != WTS_CURRENT_SERVER_HANDLE || what != WTSConnectState) {
        machine::NotModelled("WTSQuerySessionInformationA", "anything but the connect state on this machine");
    }
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    const std::vector<machine::Session> listed = machine::ListedSessions();
    const auto session = std::find_if(listed.begin(), listed.end(),
                                      [&](const machine::Session& other) { return other.id == sessionId; });
    if (session == listed.end()) {
        return Fail(ERROR_CTX_WINSTATION_NOT_FOUND, FALSE);
    }
    *bytes = sizeof(DWORD);
    *buffer =
        static_cast<char*>(machine::CurrentProcess()->heap.Allocate(sizeof(DWORD), "WTSQuerySessionInformationA"));
    std::memcpy(*buffer, &session->state, sizeof(DWORD));
    return TRUE;
}

void WTSFreeMemory(PVOID memory) {
    SIM_CALL("WTSFreeMemory", "");
    if (memory && !machine::CurrentProcess()->heap.Free(memory)) {
        machine::BrokenRule("WTSFreeMemory", "a block that is none");
    }
}

BOOL WTSEnumerateSessionsA(HANDLE server, DWORD reserved, DWORD version, PWTS_SESSION_INFOA* sessions, DWORD* count) {
    SIM_CALL("WTSEnumerateSessionsA", "", ERROR_ACCESS_DENIED, RPC_S_SERVER_UNAVAILABLE);
    if (server != WTS_CURRENT_SERVER_HANDLE) {
        machine::NotModelled("WTSEnumerateSessionsA", "another machine");
    }
    if (simCall.error) {
        return Fail(simCall.error, FALSE);
    }
    if (reserved != 0 || version != 1) {
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    }
    const std::vector<machine::Session> listed = machine::ListedSessions();
    std::vector<std::string> names;
    std::size_t bytes = listed.size() * sizeof(WTS_SESSION_INFOA);
    for (const machine::Session& session : listed) {
        bytes += names.emplace_back(machine::StationName(session)).size() + 1;
    }
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

// The program loads the library of these operations by its path.
static const machine::OptionalOperation Optional[] = {
    {"wtsapi32.dll", "WTSQuerySessionInformationA", machine::AsProc(WTSQuerySessionInformationA), 0x0500},
    {"wtsapi32.dll", "WTSEnumerateSessionsA", machine::AsProc(WTSEnumerateSessionsA), 0x0500},
    {"kernel32.dll", "WTSGetActiveConsoleSessionId", machine::AsProc(WTSGetActiveConsoleSessionId), 0x0501},
    {"wtsapi32.dll", "WTSFreeMemory", machine::AsProc(WTSFreeMemory), 0x0500},
};

} // namespace simwin
