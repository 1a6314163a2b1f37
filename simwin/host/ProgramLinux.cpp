#include "simwin/host/Program.h"

// The linker's own names for the limits of a section and of the program.
extern char g_dataStart[] asm("__start_qm_data");
extern char g_dataEnd[] asm("__stop_qm_data");
extern char g_programStart[] asm("__executable_start");
extern char g_programEnd[] asm("_end");

namespace host {

std::span<char> ImageData() {
    return {g_dataStart, g_dataEnd};
}

bool IsInProgram(const void* address) {
    return address >= g_programStart && address < g_programEnd;
}

} // namespace host
