// What a process of the product left open when it ended, less what it leaves by design. Watches the ends of processes
// from before the run on; queried after it.
#pragma once

#include <cstddef>
#include <map>

namespace machine {
struct Process;
}

namespace rehearse {

class Leaks {
public:
    void Watch();
    void Close() { m_isClosed = true; } // the machine is destroyed
    std::size_t HandlesOf(const machine::Process* process) const;

private:
    bool m_isClosed = false;
    std::map<const machine::Process*, std::size_t> m_handles;
};

} // namespace rehearse
