// What a description says about the machine as a whole, before it starts. Filled by the rehearsal or a test, then
// fixed: the rooms read it through TheSetup().
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace machine {

struct WindowsVersion {
    unsigned major = 10, minor = 0, build = 19045;
    // Two hexadecimal digits each, as 0x0A00 for 10.0, so that versions compare as numbers.
    unsigned Packed() const { return major << 8 | minor; }
};

struct Setup {
    WindowsVersion version;
    unsigned servicePack = 0;
    bool x64Windows = true;
    std::uint64_t uptimeMs = 3'600'000; // the tick count at the start; taken modulo 2^32
    // Local time at the start, which is UTC too: the machine has no time zone.
    unsigned year = 2026, month = 3, day = 2, hour = 14, minute = 3, second = 22;
    unsigned language = 0x0409;
    int screenWidth = 1920, screenHeight = 1080, dpi = 96;
    unsigned firstNode = 257;
    std::optional<std::uint64_t> pendingInstallsUntilMs;
    std::uint64_t firstInstallMs = 2000;              // after the start of a device that was never there
    std::uint64_t bootUptimeMs = 25'000;              // the tick count at which the service starts in a boot
    std::optional<std::uint64_t> killServicesAfterMs; // at a shutdown; by version unless said
    std::uint64_t KillServicesAfterMs() const {
        constexpr unsigned Windows7 = 0x0601;
        const unsigned packed = version.Packed();
        return killServicesAfterMs.value_or(packed > Windows7 ? 5000 : packed == Windows7 ? 12'000 : 20'000);
    }
    std::optional<std::uint64_t> seed; // none: first come, first served

    // The product as installed.
    std::string directory = "C:\\Program Files\\Quillmarch";
    std::string executable = "Quillmarch.exe";
    bool productIsX64 = true;
};

const Setup& TheSetup();
void UseSetup(const Setup& setup); // from now on: the machine's construction alone

std::string WindowsDirectory(); // by version of Windows
std::string SystemDirectory();

} // namespace machine
