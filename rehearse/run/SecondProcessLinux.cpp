#include "rehearse/run/SecondProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string_view>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rehearse {

constexpr std::size_t ChunkBytes = 65536;

struct SecondProcess::State {
    pid_t process = -1;
    int pipe = -1;
};

static void WriteAll(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return; // no one reads it any more
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

static std::string ReadAll(int file) {
    std::string text;
    char chunk[ChunkBytes];
    for (;;) {
        const ssize_t size = read(file, chunk, sizeof(chunk));
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            return text;
        }
        text.append(chunk, static_cast<std::size_t>(size));
    }
}

// Never returns. Any error here occurs in the first run too, which reports it.
[[noreturn]] static void RunAsChild(const TomlTable& description, const Options& options, SecondProcess::Work work,
                                    int pipe) {
    prctl(PR_SET_PDEATHSIG, SIGTERM); // when the first run is ended, so is this one
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    try {
        WriteAll(pipe, work(description, options));
    } catch (const std::exception&) { // nothing was observed
    }
    _exit(0);
}

SecondProcess::SecondProcess(const TomlTable& description, const Options& options, Work work)
    : m_state(std::make_unique<State>()) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    std::fflush(nullptr); // or the child would write it again
    m_state->process = fork();
    if (m_state->process == 0) {
        close(ends[0]);
        RunAsChild(description, options, work, ends[1]);
    }
    close(ends[1]);
    m_state->pipe = ends[0];
}

SecondProcess::~SecondProcess() {
    if (m_state->pipe >= 0) {
        close(m_state->pipe);
    }
    if (m_state->process > 0) {
        while (waitpid(m_state->process, nullptr, 0) < 0 && errno == EINTR) {
            continue;
        }
    }
}

void SecondProcess::Abandon() {
    if (m_state->process > 0) {
        kill(m_state->process, SIGTERM);
    }
}

std::string SecondProcess::Output() {
    return m_state->pipe >= 0 ? ReadAll(m_state->pipe) : std::string();
}

} // namespace rehearse
