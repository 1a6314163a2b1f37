#include "simwin/kernel/Setup.h"

namespace machine {

static Setup g_setup;

const Setup& TheSetup() {
    return g_setup;
}

void UseSetup(const Setup& setup) {
    g_setup = setup;
}

std::string WindowsDirectory() {
    const unsigned version = TheSetup().version.Packed();
    return version < 0x0501 ? "C:\\WINNT" : version < 0x0600 ? "C:\\WINDOWS" : "C:\\Windows";
}

std::string SystemDirectory() {
    return WindowsDirectory() + "\\system32";
}

} // namespace machine
