// The image's compiled resources, in each program that carries an image.
#include "simwin/host/Program.h"

#ifdef _WIN32
#define READ_ONLY ".section .rdata, \"dr\"\n"
#define AS_BEFORE ".text\n"
#else
#define READ_ONLY ".pushsection .rodata\n"
#define AS_BEFORE ".popsection\n"
#endif

// clang-format off
asm(READ_ONLY
    ".balign 8\n"
    ".globl QmResources\n"
    "QmResources:\n"
    ".incbin \"" QM_RESOURCE_FILE "\"\n"
    ".globl QmResourcesEnd\n"
    "QmResourcesEnd:\n"
    ".byte 0\n"
    AS_BEFORE);
// clang-format on

extern "C" const std::uint8_t QmResources[], QmResourcesEnd[];

namespace host {

std::span<const std::uint8_t> ImageResources() {
    return {QmResources, QmResourcesEnd};
}

} // namespace host
