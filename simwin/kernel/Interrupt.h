// A run that a person breaks off: it ends at the next turn of a thread, and the machine can be asked as at any end.
#pragma once

namespace machine {

// Safe in a signal handler.
void InterruptRun() noexcept;
bool WasRunInterrupted();

} // namespace machine
