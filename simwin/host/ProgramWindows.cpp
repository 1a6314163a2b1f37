#include "simwin/host/Program.h"

#include <cstring>

#include <windows.h>

extern "C" IMAGE_DOS_HEADER __ImageBase; // of the loaded program

namespace host {

static const IMAGE_NT_HEADERS* Headers() {
    return reinterpret_cast<const IMAGE_NT_HEADERS*>(reinterpret_cast<const char*>(&__ImageBase) +
                                                     __ImageBase.e_lfanew);
}

// The section is found by its name: this linker defines none for its limits.
static std::span<char> FindData() {
    const IMAGE_NT_HEADERS* headers = Headers();
    const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
    for (unsigned i = 0; i < headers->FileHeader.NumberOfSections; ++i, ++section) {
        if (std::strncmp(reinterpret_cast<const char*>(section->Name), "qm_data", sizeof(section->Name)) == 0) {
            return {reinterpret_cast<char*>(&__ImageBase) + section->VirtualAddress, section->Misc.VirtualSize};
        }
    }
    return {};
}

std::span<char> ImageData() {
    static const std::span<char> data = FindData();
    return data;
}

bool IsInProgram(const void* address) {
    const auto* start = reinterpret_cast<const char*>(&__ImageBase);
    return address >= start && address < start + Headers()->OptionalHeader.SizeOfImage;
}

} // namespace host
