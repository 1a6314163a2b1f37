// The dots per inch of the screen that shows a window, by the best means this Windows offers. Thread: that of the
// window.
#pragma once

#include "platform/win32.h"

// window: null for the whole screen. Returns: the dots per inch, 96 on a screen without scaling.
UINT GetWindowDpi(HWND window);
