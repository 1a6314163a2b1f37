#include "tests/storms/Children.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace storm {

constexpr unsigned LongestRunSeconds = 240; // of the host; a run needs far less than one

namespace {
struct Child {
    pid_t process = -1;
    int pipe = -1;
    std::string text;

    // True at the end of its output.
    bool Read() {
        char bytes[4096];
        const ssize_t count = read(pipe, bytes, sizeof(bytes));
        if (count > 0) {
            text.append(bytes, static_cast<std::size_t>(count));
        }
        return count <= 0;
    }
    int End() const {
        close(pipe);
        int status = 0;
        waitpid(process, &status, 0);
        return status;
    }
};
} // namespace

static Child Start(std::size_t place, const std::function<std::string(std::size_t)>& work) {
    int ends[2];
    if (pipe(ends) != 0) {
        std::abort();
    }
    std::fflush(nullptr);
    Child child;
    child.process = fork();
    if (child.process == 0) {
        close(ends[0]);
        dup2(ends[1], STDERR_FILENO); // a crash is reported there
        alarm(LongestRunSeconds);
        std::string text;
        try {
            text = work(place);
        } catch (const std::exception& error) {
            text = EndOf({{"the description is right", error.what()}});
        }
        for (std::size_t at = 0; at < text.size();) {
            const ssize_t count = write(ends[1], text.data() + at, text.size() - at);
            if (count <= 0) {
                break;
            }
            at += static_cast<std::size_t>(count);
        }
        _exit(0);
    }
    close(ends[1]);
    child.pipe = ends[0];
    return child;
}

void RunInChildren(std::size_t count, unsigned jobs, const std::function<std::string(std::size_t)>& work,
                   const std::function<void(std::size_t, const std::string&, int)>& done) {
    std::map<std::size_t, Child> running;
    std::size_t next = 0;
    while (next < count || !running.empty()) {
        while (next < count && running.size() < jobs) {
            running.emplace(next, Start(next, work));
            ++next;
        }
        std::vector<pollfd> waits;
        for (const auto& [place, child] : running) {
            waits.push_back({child.pipe, POLLIN, 0});
        }
        poll(waits.data(), waits.size(), -1);
        for (const pollfd& wait : waits) {
            const auto found = std::find_if(running.begin(), running.end(),
                                            [&](const auto& entry) { return entry.second.pipe == wait.fd; });
            if (!wait.revents || !found->second.Read()) {
                continue;
            }
            const int status = found->second.End();
            done(found->first, found->second.text, status);
            running.erase(found);
        }
    }
}

std::string EndOf(const std::vector<Violation>& violations) {
    std::string text;
    for (const Violation& violation : violations) {
        text += fmt::format("#broken {}\t{}\n", violation.what, fmt::join(machine::Split(violation.how, '\n'), "|"));
    }
    return text + "#end\n";
}

std::vector<Violation> ReadViolations(const std::string& text, int status,
                                      const std::function<bool(const char* line)>& take) {
    std::vector<Violation> violations;
    std::string rest;
    bool hasEnded = false;
    for (const std::string& line : machine::Split(text, '\n')) {
        if (line.starts_with("#broken ")) {
            const std::size_t tab = line.find('\t');
            violations.push_back({line.substr(8, tab - 8), line.substr(tab + 1)});
        } else if (line == "#end") {
            hasEnded = true;
        } else if (!line.empty() && !take(line.c_str())) {
            rest += line + "|";
        }
    }
    if (status != 0 || !hasEnded || !rest.empty()) {
        violations.insert(violations.begin(),
                          {"the run comes to its end", fmt::format("wait status {}: {}", status, rest)});
    }
    return violations;
}

} // namespace storm
