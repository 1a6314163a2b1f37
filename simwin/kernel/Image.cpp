#include "simwin/kernel/Image.h"

#include "simwin/host/Program.h"
#include "simwin/kernel/Process.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace machine {

static Process* g_owner;             // whose globals are in place; null: those of none that lives
static std::vector<char> g_pristine; // what every process begins with

// Word by word, since the redzones of instrumented globals are copied too, which no checked copy may touch.
[[gnu::no_sanitize_address, gnu::noinline]] static void CopyBytes(char* to, const char* from, std::size_t count) {
    std::size_t at = 0;
    using Word = std::uint64_t;
    for (; at + sizeof(Word) <= count; at += sizeof(Word)) {
        *reinterpret_cast<volatile Word*>(to + at) = *reinterpret_cast<const volatile Word*>(from + at);
    }
    for (; at < count; ++at) {
        reinterpret_cast<volatile char*>(to)[at] = reinterpret_cast<const volatile char*>(from)[at];
    }
}

static void KeepGlobals(std::vector<char>& kept) {
    const std::span<char> place = host::ImageData();
    kept.resize(place.size());
    CopyBytes(kept.data(), place.data(), place.size());
}

void EnterImage(Process* process) {
    if (process == g_owner) {
        return;
    }
    if (g_pristine.empty()) {
        KeepGlobals(g_pristine); // nothing of the image has run yet
    }
    if (g_owner) {
        KeepGlobals(g_owner->globals);
    }
    const std::vector<char>& globals = process->globals.empty() ? g_pristine : process->globals;
    CopyBytes(host::ImageData().data(), globals.data(), globals.size());
    g_owner = process;
}

void LeaveImage(Process* process) {
    if (g_owner == process) {
        g_owner = nullptr;
    }
    process->globals = {};
}

const void* GlobalOf(const Process& process, const void* global) {
    if (g_owner == &process || process.globals.empty()) {
        return global;
    }
    return process.globals.data() + (static_cast<const char*>(global) - host::ImageData().data());
}

} // namespace machine
