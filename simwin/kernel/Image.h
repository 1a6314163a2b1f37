// The product, which is linked into this program once. Its code serves all simulated processes; its globals are changed
// when another process gets the turn, so each has its own. A process begins with what the compiler put there.
#pragma once

namespace machine {

struct Process;

// Before a thread of the process runs: puts its globals in their place.
void EnterImage(Process* process);
// The process has ended: its globals are forgotten.
void LeaveImage(Process* process);
// Where the process's value of a global of the image is now, whoever has the turn. Read only.
const void* GlobalOf(const Process& process, const void* global);

} // namespace machine
