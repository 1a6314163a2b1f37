// Fills a machine from a description: Windows and the product as installed, registry, files, devices, faults. Called
// once, before the machine runs, in the host's own context. Errors are thrown as InputError, before anything runs.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/host/Options.h"

#include "simwin/kernel/Setup.h"

#include <cstdint>
#include <string>
#include <vector>

namespace machine {
struct Process;
} // namespace machine

namespace rehearse {

inline constexpr const char* ServiceName = "Quillmarch";
inline constexpr const char* SystemUser = "NT AUTHORITY\\SYSTEM";

// The setup for the machine.
machine::Setup SetupOf(const TomlTable& description, const Options& options);

// Everything else. The machine is created.
void FillMachine(const TomlTable& description, const Options& options);

// Path of the product's configuration on the machine.
std::string ProductIni();

// Whose HKEY_CURRENT_USER 'HKCU\...' of a description means: the first described user's, else the system's.
std::string DescribedUser(const TomlTable& description);

// Starts the product in its role, as its start and the event `start` do. Returns the process; null,
// with the reason, if it did not start.
machine::Process* StartProductInRole(const TomlTable& description, std::string* why);

// Sets a registry value as a description writes it: text, number, several texts, bytes. key: 'HKLM\...'.
void SetRegistryValue(const TomlTable& description, const std::string& key, const std::string& name,
                      const Value& value);

// The bytes and the type of such a value.
struct RegistryData {
    unsigned type;
    std::vector<std::uint8_t> data;
};
RegistryData RegistryDataOf(const Value& value);
// Throws InputError for a path that does not begin with a root of the registry.
void CheckRegistryPath(const std::string& key, const Position& at);

} // namespace rehearse
