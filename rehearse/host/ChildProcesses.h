// Further processes of this program with a time limit, and Ctrl-C: for a fleet, and for the second run on Windows. What
// differs between systems is in this header's two .cpp; nothing here has a type of a system. One thread.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace rehearse {

enum class Way { Exited, Killed, TimedOut };

// A process that is no more.
struct Ended {
    std::size_t id = 0;         // as it was started
    std::string output, errors; // what it wrote; of a flood only the beginning
    Way way = Way::Exited;
    int code = 0; // its exit code, or what killed it
};

// "ended with 5" or, in the system's own way, what killed it.
std::string HowItEnded(const Ended& ended);

// Milliseconds of a clock that never goes back.
inline std::uint64_t HostMs() {
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

// What is kept of a process until it has ended, whatever the system.
struct Watched {
    Watched(std::size_t id, std::uint64_t limitMs) : deadlineMs(HostMs() + limitMs) { ended.id = id; }
    std::uint64_t deadlineMs;
    bool isTimedOut = false;
    Ended ended;
};

class Processes {
public:
    // limitMs: of the host's time, for each process; one that takes longer is ended.
    explicit Processes(std::uint64_t limitMs);
    ~Processes(); // ends those that still run, with all that they started
    Processes(const Processes&) = delete;
    Processes& operator=(const Processes&) = delete;

    // This program itself with these arguments, standard input empty. Throws runtime_error if the host cannot.
    void Start(std::size_t id, const std::vector<std::string>& arguments);
    std::size_t Running() const { return m_children.size(); }
    // The next one that has ended; nothing if none does within waitMs, or Ctrl-C was pressed.
    std::optional<Ended> Wait(std::uint64_t waitMs);

private:
    struct Child;
    std::uint64_t m_limitMs;
    std::vector<std::unique_ptr<Child>> m_children;
};

std::string OwnProgram(); // path of this program's file; "" if the system does not say
// At least 1.
inline unsigned Processors() {
    return std::max(1U, std::thread::hardware_concurrency());
}

// From now on the first Ctrl-C is only noted, and a second one ends the program.
void NoteInterrupts();
bool WasInterrupted();

} // namespace rehearse
