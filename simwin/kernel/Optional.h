// Operations that not every version of Windows has: looked up by name when the program runs.
#pragma once

#include "simwin/kernel/types.h"

namespace machine {

// An operation that GetProcAddress returns, as a static object of the room that has it: from which version of Windows
// on (as WindowsVersion::Packed()) its library exports it.
//     const OptionalOperation dpi("user32.dll", "GetDpiForWindow", AsProc(simwin::GetDpiForWindow), 0x0A00, 14393);
struct OptionalOperation {
    OptionalOperation(const char* library, const char* name, simwin::FARPROC address, unsigned sinceVersion,
                      unsigned sinceBuild = 0);
    const char* library; // in small letters
    const char* name;
    simwin::FARPROC address;
    unsigned sinceVersion, sinceBuild;
    const OptionalOperation* next;
};
template<typename Operation>
simwin::FARPROC AsProc(Operation* operation) {
    return reinterpret_cast<simwin::FARPROC>(reinterpret_cast<void*>(operation));
}
const OptionalOperation* FirstOptionalOperation(); // then by `next`, in no order

} // namespace machine
