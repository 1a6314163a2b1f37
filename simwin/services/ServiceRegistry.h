// A service's key below SYSTEM\CurrentControlSet\Services, and the program that its path names. The machine writes and
// deletes the key; changes by the product take effect at the next start of the service.
#pragma once

#include "simwin/services/Services.h"

namespace machine {

void WriteServiceKey(const ServiceDefinition& definition);
void DeleteServiceKey(std::string_view name);
void WriteServiceDescription(std::string_view name, std::string_view text);

// The path as the registry has it now, else as it was defined.
std::string RegisteredImagePath(const ServiceDefinition& definition);

// The file that a command line starts: quotes respected; without them the shortest start that ends at a blank and names
// a file, as Windows does. Returns: 0, 2 or 3.
simwin::DWORD FindServiceImage(const std::string& commandLine, std::string* imagePath);
// Whether a service other than `name` has this name or display name; those of the exports count.
bool IsDisplayNameTaken(const std::string& displayName, const std::string& name);
// The program of a command line without quotes: the shortest beginning, with or without ".exe", that is one.
std::string FirstProgram(const std::string& commandLine);

} // namespace machine
