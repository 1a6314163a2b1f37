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
    ".globl qm_resources\n"
    "qm_resources:\n"
    ".incbin \"" QM_RESOURCE_FILE "\"\n"
    ".globl qm_resources_end\n"
    "qm_resources_end:\n"
    ".byte 0\n"
    AS_BEFORE);
// clang-format on

extern "C" const std::uint8_t qm_resources[], qm_resources_end[];

namespace host {

std::span<const std::uint8_t> ImageResources() {
    return {qm_resources, qm_resources_end};
}

} // namespace host
