// Fibers of Windows, in plain types. On Linux simwin/kernel/FiberLinux.cpp needs nothing of the system for them.
#pragma once

#include <cstddef>

namespace host {

struct Fiber;

// Null: no memory. Once freed, no frame of it may be used.
Fiber* MakeFiber(std::size_t stackBytes);
void FreeFiber(Fiber* fiber);

// From the program's own stack: runs the fiber until it leaves. With `main` it begins there, wherever it was left
// before: what its frames held is not destroyed.
void RunFiber(Fiber* fiber, void (*main)(void*), void* argument);
void ContinueFiber(Fiber* fiber);
// From the fiber: back, until it is continued.
void LeaveFiber(Fiber* fiber);

} // namespace host
