#include "rehearse/host/ChildProcesses.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// There only in a build with the address sanitizer.
extern "C" __attribute__((weak)) void __asan_init(); // NOLINT(readability-identifier-naming)

namespace rehearse {

static constexpr std::size_t MostOutput = 64U << 20;    // a result is a few kilobytes
static constexpr std::size_t MostErrors = 64U << 10;    // a sentence
static constexpr std::uint64_t MostMemory = 4ULL << 30; // or one machine's flood would end the others
static constexpr std::size_t ChunkBytes = 65536;
static constexpr std::uint64_t TickMs = 20; // how soon the end of a process with closed pipes is seen

static volatile std::sig_atomic_t g_isInterrupted;

struct Processes::Child : Watched {
    pid_t process = 0;
    int output = -1, errors = -1;

    using Watched::Watched;
    ~Child() {
        CloseBoth();
        if (process > 0) {
            kill(-process, SIGKILL);
            Reap(0);
        }
    }
    void CloseBoth() {
        for (int* file : {&output, &errors}) {
            if (*file >= 0) {
                close(*file);
            }
            *file = -1;
        }
    }
    // Whether it has ended; flags: of waitpid.
    bool Reap(int flags) {
        int status = 0;
        pid_t found = 0;
        do {
            found = waitpid(process, &status, flags);
        } while (found < 0 && errno == EINTR);
        if (found == 0) {
            return false;
        }
        ended.way = isTimedOut ? Way::TimedOut : WIFSIGNALED(status) ? Way::Killed : Way::Exited;
        ended.code = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
        process = 0;
        return true;
    }
};

// A file that is closed at the end of its owner.
class Descriptor {
public:
    explicit Descriptor(int file) : m_file(file) {}
    ~Descriptor() {
        if (m_file >= 0) {
            close(m_file);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return m_file; }

private:
    int m_file;
};

[[noreturn]] static void Fail(const char* what) {
    throw std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

// Takes what is there; at the end closes the file.
static void ReadSome(int& file, std::string& text, std::size_t most) {
    char chunk[ChunkBytes];
    const ssize_t size = read(file, chunk, sizeof(chunk));
    if (size > 0) {
        text.append(chunk, std::min(static_cast<std::size_t>(size), most - std::min(most, text.size())));
    } else if (size == 0 || errno != EINTR) {
        close(file);
        file = -1;
    }
}

// Between fork and exec: only what is safe there.
[[noreturn]] static void Become(const char* program, char** arguments, int output, int errors, pid_t parent) {
    setpgid(0, 0); // all that it starts is ended with it, and Ctrl-C goes to the fleet alone
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(127); // the fleet was ended before the line above
    }
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    if (!__asan_init) { // which reserves terabytes
        const rlimit memory = {MostMemory, MostMemory};
        setrlimit(RLIMIT_AS, &memory);
    }
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    execv(program, arguments);
    _exit(127);
}

std::string HowItEnded(const Ended& ended) {
    return fmt::format("{} {}", ended.way == Way::Killed ? "was ended by signal" : "ended with", ended.code);
}

Processes::Processes(std::uint64_t limitMs) : m_limitMs(limitMs) {
}

Processes::~Processes() = default;

void Processes::Start(std::size_t id, const std::vector<std::string>& arguments) {
    const std::string program = OwnProgram();
    std::vector<char*> words = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    int output[2], errors[2];
    if (pipe2(output, O_CLOEXEC) != 0) {
        Fail("no pipe for a machine's process");
    }
    auto child = std::make_unique<Child>(id, m_limitMs);
    child->output = output[0];
    const Descriptor outputEnd(output[1]);
    if (pipe2(errors, O_CLOEXEC) != 0) {
        Fail("no pipe for a machine's process");
    }
    child->errors = errors[0];
    const Descriptor errorsEnd(errors[1]);
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process < 0) {
        Fail("no process for a machine");
    }
    if (process == 0) {
        Become(program.c_str(), words.data(), outputEnd.Get(), errorsEnd.Get(), parent);
    }
    setpgid(process, process); // whichever of the two is first
    child->process = process;
    m_children.push_back(std::move(child));
}

std::optional<Ended> Processes::Wait(std::uint64_t waitMs) {
    const std::uint64_t untilMs = HostMs() + waitMs;
    while (!m_children.empty() && !WasInterrupted()) {
        std::uint64_t wakeMs = untilMs;
        std::vector<pollfd> files;
        for (const auto& child : m_children) {
            const bool isClosed = child->output < 0 && child->errors < 0;
            files.push_back({child->output, POLLIN, 0}); // negative ones are passed over
            files.push_back({child->errors, POLLIN, 0});
            wakeMs = std::min(wakeMs, isClosed || child->isTimedOut ? HostMs() + TickMs : child->deadlineMs);
        }
        const std::uint64_t nowMs = HostMs();
        (void)poll(files.data(), files.size(), static_cast<int>(wakeMs > nowMs ? wakeMs - nowMs : 0));
        for (std::size_t i = 0; i < m_children.size(); ++i) {
            Child& child = *m_children[i];
            if (files[2 * i].revents) {
                ReadSome(child.output, child.ended.output, MostOutput);
            }
            if (files[2 * i + 1].revents) {
                ReadSome(child.errors, child.ended.errors, MostErrors);
            }
            if (!child.isTimedOut && HostMs() >= child.deadlineMs) {
                child.isTimedOut = true;
                kill(-child.process, SIGKILL);
            }
            const bool isClosed = child.output < 0 && child.errors < 0;
            if ((isClosed || child.isTimedOut) && child.Reap(WNOHANG)) {
                Ended ended = std::move(child.ended);
                m_children.erase(m_children.begin() + static_cast<std::ptrdiff_t>(i));
                return ended;
            }
        }
        if (HostMs() >= untilMs) {
            break;
        }
    }
    return std::nullopt;
}

std::string OwnProgram() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).string();
}

static void OnInterrupt(int) {
    g_isInterrupted = 1;
    std::signal(SIGINT, SIG_DFL);
}

void NoteInterrupts() {
    if (std::signal(SIGINT, OnInterrupt) == SIG_IGN) {
        std::signal(SIGINT, SIG_IGN); // as whoever started it wanted
    }
}

bool WasInterrupted() {
    return g_isInterrupted != 0;
}

} // namespace rehearse
