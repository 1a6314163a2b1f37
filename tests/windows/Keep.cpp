// Sleeps until it is ended. While it runs the Wine server stays, so that no test has to start one.
#include <windows.h>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
    Sleep(INFINITE);
    return 0;
}
