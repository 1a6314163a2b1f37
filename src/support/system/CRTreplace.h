// The allocator of the program: operator new and operator delete on the process heap. Every block comes zero-filled, no
// allocation returns null (it retries every 500 ms), and the whole heap is validated on every allocation and release; a
// damaged heap ends the process by a hard fatal stop. The heap's own lock serialises; the running sum is not guarded
// and only feeds log lines of level 6.
#pragma once

#include "platform/win32.h"

// Fetches the process heap. WinMain calls it first; an earlier allocation fetches the heap itself.
void InitAllocator();

// Bytes allocated and not yet released, for the log.
LONG AllocatedBytes();
