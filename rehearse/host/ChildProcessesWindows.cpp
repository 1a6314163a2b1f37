#include "rehearse/host/ChildProcesses.h"

#include "rehearse/host/Files.h"
#include "rehearse/host/WindowsText.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>

#include <windows.h>

namespace rehearse {

static constexpr std::size_t MostOutput = 64U << 20; // a result is a few kilobytes
static constexpr std::size_t MostErrors = 64U << 10; // a sentence
static constexpr SIZE_T MostMemory = 4ULL << 30;     // or one machine's flood would end the others
static constexpr DWORD PipeBytes = 1U << 20;
static constexpr std::size_t ChunkBytes = 65536;
static constexpr DWORD TickMs = 5;                  // pipes cannot be waited for
static constexpr DWORD FirstFatalCode = 0xC0000000; // of the system itself, for a program that crashed

static std::atomic<bool> g_isInterrupted;

namespace {
class Handle {
public:
    explicit Handle(HANDLE handle = nullptr) : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    ~Handle() { Close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE Get() const { return m_handle; }
    HANDLE* Place() { return &m_handle; }
    bool IsOpen() const { return m_handle != nullptr; }
    void Close() {
        if (m_handle) {
            CloseHandle(m_handle);
        }
        m_handle = nullptr;
    }

private:
    HANDLE m_handle;
};
} // namespace

struct Processes::Child : Watched {
    Handle process, job, output, errors;

    using Watched::Watched;
    ~Child() { End(); }
    // With all that it started, if the system lets it have a job of its own.
    void End() {
        if (job.IsOpen()) {
            TerminateJobObject(job.Get(), 1);
        }
        if (process.IsOpen()) {
            TerminateProcess(process.Get(), 1);
        }
    }
    void Read();
    bool HasEnded();
};

[[noreturn]] static void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + SystemText(GetLastError()));
}

// Takes what is there; at the end closes the pipe.
static void ReadSome(Handle& pipe, std::string& text, std::size_t most) {
    char chunk[ChunkBytes];
    DWORD there = 0, size = 0;
    while (pipe.IsOpen()) {
        if (!PeekNamedPipe(pipe.Get(), nullptr, 0, nullptr, &there, nullptr)) {
            pipe.Close();
        } else if (there == 0) {
            return;
        } else if (ReadFile(pipe.Get(), chunk, std::min<DWORD>(there, sizeof(chunk)), &size, nullptr)) {
            text.append(chunk, std::min<std::size_t>(size, most - std::min(most, text.size())));
        } else {
            pipe.Close();
        }
    }
}

void Processes::Child::Read() {
    ReadSome(output, ended.output, MostOutput);
    ReadSome(errors, ended.errors, MostErrors);
}

bool Processes::Child::HasEnded() {
    DWORD code = 0;
    if (WaitForSingleObject(process.Get(), 0) != WAIT_OBJECT_0 || !GetExitCodeProcess(process.Get(), &code)) {
        return false;
    }
    Read(); // what it wrote last
    ended.way = isTimedOut ? Way::TimedOut : code >= FirstFatalCode ? Way::Killed : Way::Exited;
    ended.code = static_cast<int>(code);
    return true;
}

// As the program's start takes it apart again.
static void AddWord(std::wstring& line, std::wstring_view word) {
    line += line.empty() ? L"\"" : L" \"";
    std::size_t backslashes = 0;
    for (const wchar_t letter : word) {
        if (letter == L'"') {
            line.append(backslashes + 1, L'\\');
        }
        backslashes = letter == L'\\' ? backslashes + 1 : 0;
        line += letter;
    }
    line.append(backslashes, L'\\');
    line += L'"';
}

static void MakePipe(Handle& read, Handle& write) {
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    if (!CreatePipe(read.Place(), write.Place(), &inherited, PipeBytes) ||
        !SetHandleInformation(read.Get(), HANDLE_FLAG_INHERIT, 0)) {
        Fail("no pipe for a machine's process");
    }
}

// The job ends with its last handle, so with this program; Windows 7 has none for a program that is in another's.
static void PutIntoJob(Handle& job, HANDLE process) {
    *job.Place() = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags =
        JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_DIE_ON_UNHANDLED_EXCEPTION | JOB_OBJECT_LIMIT_JOB_MEMORY;
    limits.JobMemoryLimit = MostMemory;
    if (!job.IsOpen() ||
        !SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits)) ||
        !AssignProcessToJobObject(job.Get(), process)) {
        job.Close();
    }
}

std::string HowItEnded(const Ended& ended) {
    const auto code = static_cast<DWORD>(ended.code);
    return ended.way == Way::Killed ? fmt::format("was ended by the exception 0x{:08X}", code)
                                    : fmt::format("ended with {}", code);
}

Processes::Processes(std::uint64_t limitMs) : m_limitMs(limitMs) {
}

Processes::~Processes() = default;

void Processes::Start(std::size_t id, const std::vector<std::string>& arguments) {
    const std::wstring program = StreamPath(OwnProgram()).native();
    std::wstring line;
    AddWord(line, program);
    for (const std::string& argument : arguments) {
        AddWord(line, WideText(argument));
    }
    auto child = std::make_unique<Child>(id, m_limitMs);
    Handle outputEnd, errorsEnd;
    MakePipe(child->output, outputEnd);
    MakePipe(child->errors, errorsEnd);
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    const Handle nothing(
        CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, OPEN_EXISTING, 0, nullptr));
    STARTUPINFOW start = {};
    start.cb = sizeof(start);
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = nothing.Get();
    start.hStdOutput = outputEnd.Get();
    start.hStdError = errorsEnd.Get();
    PROCESS_INFORMATION made = {};
    // In a group of its own, so that Ctrl-C goes to the fleet alone.
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                        CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP, nullptr, nullptr, &start, &made)) {
        Fail("no process for a machine");
    }
    const Handle thread(made.hThread);
    *child->process.Place() = made.hProcess;
    PutIntoJob(child->job, made.hProcess);
    ResumeThread(made.hThread);
    m_children.push_back(std::move(child));
}

std::optional<Ended> Processes::Wait(std::uint64_t waitMs) {
    const std::uint64_t untilMs = HostMs() + waitMs;
    while (!m_children.empty() && !WasInterrupted()) {
        std::vector<HANDLE> ends;
        for (std::size_t i = 0; i < m_children.size(); ++i) {
            Child& child = *m_children[i];
            child.Read();
            if (!child.isTimedOut && HostMs() >= child.deadlineMs) {
                child.isTimedOut = true;
                child.End();
            }
            if (child.HasEnded()) {
                Ended ended = std::move(child.ended);
                m_children.erase(m_children.begin() + static_cast<std::ptrdiff_t>(i));
                return ended;
            }
            ends.push_back(child.process.Get());
        }
        if (HostMs() >= untilMs) {
            break;
        }
        const auto count = static_cast<DWORD>(std::min<std::size_t>(ends.size(), MAXIMUM_WAIT_OBJECTS));
        (void)WaitForMultipleObjects(count, ends.data(), FALSE, TickMs);
    }
    return std::nullopt;
}

std::string OwnProgram() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD size = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (size < path.size()) {
            return Utf8Text(path.substr(0, size));
        }
        path.resize(path.size() * 2);
    }
}

// In a thread of the system's own.
static BOOL CALLBACK OnInterrupt(DWORD event) {
    const bool isKey = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
    return isKey && !g_isInterrupted.exchange(true);
}

void NoteInterrupts() {
    SetConsoleCtrlHandler(OnInterrupt, TRUE);
}

bool WasInterrupted() {
    return g_isInterrupted;
}

} // namespace rehearse
