// A library that somebody has put where it does not belong: it leaves a mark beside itself when it is loaded.
#include "platform/win32.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE self, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        char path[MAX_PATH + 16];
        const DWORD length = GetModuleFileNameA(self, path, MAX_PATH);
        lstrcpyA(path + length, ".loaded");
        CloseHandle(CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    }
    return TRUE;
}
