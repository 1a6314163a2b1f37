// Prints every constant, the size of every type and the place of every member that the simulated machine's headers
// declare, one to a line, as the headers at hand have them. Built against those headers and against the SDK's; the two
// outputs must be the same.
#include "platform/win32.h"

#include <cstddef>
#include <cstdio>
#include <type_traits>

#if defined(_WIN32) && !defined(ERROR_NO_SUCH_DEVICE)
constexpr DWORD ERROR_NO_SUCH_DEVICE = 433; // as documented; the cross compiler's headers are older
#endif

// Signed or not, a constant is the bits that are passed on.
template<typename T>
static void PrintConstant(const char* name, T value) {
    if constexpr (std::is_pointer_v<T> || std::is_null_pointer_v<T>) {
        std::printf("%s 0x%016llX\n", name, static_cast<unsigned long long>(reinterpret_cast<ULONG_PTR>(value)));
    } else {
        static_assert(sizeof(T) <= 4);
        std::printf("%s 0x%08X\n", name, static_cast<unsigned>(value));
    }
}

static void PrintSize(const char* type, size_t size) {
    std::printf("sizeof(%s) %u\n", type, static_cast<unsigned>(size));
}

static void PrintMember(const char* type, const char* member, size_t offset, size_t size) {
    std::printf("%s.%s +%u %u\n", type, member, static_cast<unsigned>(offset), static_cast<unsigned>(size));
}

#define CONSTANT(name) PrintConstant(#name, name);
#define TYPE(name) PrintSize(#name, sizeof(name));
#define MEMBER(type, member)                                                                                           \
    PrintMember(#type, #member, offsetof(type, member), sizeof(static_cast<type*>(nullptr)->member));

int main() {
#include "Layout.inc"
}
