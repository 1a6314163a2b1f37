// Stands in for the program of Windows that lists what is connected, which Wine has not: in German, with a device that
// is no part of a rehearsal, and without one of the ports of tests/rehearse/captured/ports.reg.
#include <cstdio>

int main() {
    std::puts("Microsoft PnP-Hilfsprogramm\n");
    const char* ids[] = {"USB\\ROOT_HUB30\\4&1a2b3c4d&0&0", "USB\\VID_05E3&PID_0608\\5&2e9a1f0&0&2",
                         "USB\\VID_067B&PID_2303\\6&7d0c1b2&0&1", "USB\\VID_067B&PID_2303\\6&7d0c1b2&0&4",
                         "USB\\VID_0781&PID_5567\\4C530001SECRET"};
    for (const char* id : ids) {
        std::printf("Instanz-ID:                 %s\nHerstellername:             Ger\x84tebau & S\x94hne\n\n", id);
    }
    return 0;
}
