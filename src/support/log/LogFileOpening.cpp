#include "support/log/LogFileOpening.h"

#include "support/system/Handles.h"
#include "support/system/SystemTools.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

using FinalPathOperation = DWORD(WINAPI*)(HANDLE, LPSTR, DWORD, DWORD);
static FinalPathOperation g_finalPath; // set before the threads start

constexpr size_t VerbatimLength = 4; // of "\\?\" in front of a final path

// The states of a request. Idle: no request, the asking side owns the fields. Asked: the answering side owns them.
// Answered: the asking side again, with an answer to fetch.
constexpr LONG Idle = 0;
constexpr LONG Asked = 1;
constexpr LONG Answered = 2;

static LONG StateOf(const LONG& state) {
    return __atomic_load_n(&state, __ATOMIC_ACQUIRE);
}

static void SetState(LONG& state, LONG value) {
    __atomic_store_n(&state, value, __ATOMIC_RELEASE);
}

// Whether the letter maps to something whose final path begins otherwise: a share, or a folder of another drive.
static bool IsBorrowedDrive(const char* name) {
    const char root[] = {name[0], ':', '\\', '\0'};
    return name[0] == '\\' || GetDriveTypeA(root) == DRIVE_REMOTE || IsSubstDrive(name[0]);
}

// Compares the location of the open file with its name. A short name in the path is not a link.
static LogFileIdentity CompareFinalPath(HANDLE file, const char* name) {
    char final[520];
    const DWORD length = g_finalPath(file, final, sizeof(final), 0);
    if (length == 0 || length >= sizeof(final)) {
        return length == 0 ? LogFileIdentity::Unknown : LogFileIdentity::Link;
    }
    const char* path = length > VerbatimLength ? final + VerbatimLength : final;
    if (IsSameNoCase(path, name)) {
        return LogFileIdentity::Own;
    }
    char longName[520];
    const DWORD longLength = GetLongPathNameA(name, longName, sizeof(longName));
    if (longLength > 0 && longLength < sizeof(longName) && IsSameNoCase(path, longName)) {
        return LogFileIdentity::Own;
    }
    return IsBorrowedDrive(name) ? LogFileIdentity::Own : LogFileIdentity::Link;
}

bool LeadsThroughALink(const char* name) {
    char path[260];
    CopyText(path, name);
    const size_t driveRoot = 3;
    for (size_t end = TextLength(path); end > driveRoot; --end) {
        if (path[end] != '\0' && path[end] != '\\') {
            continue;
        }
        path[end] = '\0';
        const DWORD attributes = GetFileAttributesA(path);
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
            return true;
        }
    }
    return false;
}

static LogFileIdentity IdentityOf(HANDLE file, const char* name) {
    BY_HANDLE_FILE_INFORMATION information;
    if (!GetFileInformationByHandle(file, &information)) {
        return LogFileIdentity::Unknown;
    }
    if (information.nNumberOfLinks > 1 || (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return LogFileIdentity::Link;
    }
    if (g_finalPath) {
        return CompareFinalPath(file, name);
    }
    return LeadsThroughALink(name) ? LogFileIdentity::Link : LogFileIdentity::Own;
}

static HANDLE OpenForAppend(const char* name, SECURITY_ATTRIBUTES* security) {
    return CreateFileA(name, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, security, OPEN_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

void LogFileOpening_Init() {
    if (g_finalPath) {
        return;
    }
    const SystemLibrary kernel("kernel32.dll"); // which never leaves the process, nor does its operation
    g_finalPath = kernel.Find<FinalPathOperation>("GetFinalPathNameByHandleA");
}

LogFileAnswer OpenLogFileNow(const char* name, SECURITY_ATTRIBUTES* security) {
    LogFileAnswer answer = {OpenForAppend(name, security), ERROR_SUCCESS, LogFileIdentity::Own};
    if (answer.File == INVALID_HANDLE_VALUE && GetLastError() != ERROR_SHARING_VIOLATION) {
        answer.File = OpenForAppend(name, nullptr);
    }
    if (answer.File == INVALID_HANDLE_VALUE) {
        answer.Error = GetLastError();
        return answer;
    }
    answer.Identity = IdentityOf(answer.File, name);
    if (answer.Identity != LogFileIdentity::Own) {
        answer.Error = answer.Identity == LogFileIdentity::Unknown ? GetLastError() : DWORD{ERROR_ACCESS_DENIED};
        CloseGlobal<FileKind>(answer.File);
    }
    return answer;
}

bool LogFileRequest::Init() {
    if (!m_answered) {
        m_answered = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        m_answer.File = INVALID_HANDLE_VALUE;
        SetState(m_state, Idle);
    }
    return m_answered != nullptr;
}

void LogFileRequest::Exit() {
    DropLateAnswer();
    SetState(m_state, Idle);
    CloseGlobal<EventKind>(m_answered);
}

LogFileAnswer LogFileRequest::Take() {
    const LogFileAnswer answer = m_answer;
    m_answer.File = INVALID_HANDLE_VALUE;
    SetState(m_state, Idle);
    return answer;
}

LogFileAnswer LogFileRequest::Ask(const char* name, SECURITY_ATTRIBUTES* security, HANDLE wake, DWORD waitMs) {
    const LogFileAnswer noAnswer = {INVALID_HANDLE_VALUE, ERROR_TIMEOUT, LogFileIdentity::Own};
    if (StateOf(m_state) == Asked) {
        return noAnswer; // the previous one still hangs: another wait would delay the service at each record
    }
    DropLateAnswer(); // it may belong to a previous name
    CopyText(m_name, name);
    m_security = security;
    ResetEvent(m_answered);
    SetState(m_state, Asked);
    SetEvent(wake);
    const DWORD startTick = GetTickCount();
    while (StateOf(m_state) != Answered) {
        const DWORD waited = GetTickCount() - startTick;
        if (waited >= waitMs || WaitForSingleObject(m_answered, waitMs - waited) != WAIT_OBJECT_0) {
            break;
        }
    }
    return StateOf(m_state) == Answered ? Take() : noAnswer;
}

void LogFileRequest::DropLateAnswer() {
    if (StateOf(m_state) == Answered) {
        (void)OwnedFile(Take().File);
    }
}

void LogFileRequest::AnswerIfAsked() {
    if (StateOf(m_state) != Asked) {
        return;
    }
    m_answer = OpenLogFileNow(m_name, m_security);
    SetState(m_state, Answered);
    SetEvent(m_answered);
}
