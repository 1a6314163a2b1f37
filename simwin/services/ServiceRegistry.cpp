#include "simwin/services/ServiceRegistry.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Rules.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Registry.h"
#include "simwin/registry/api.h"

namespace machine {

static std::string KeyPath(std::string_view name) {
    return "HKLM\\SYSTEM\\CurrentControlSet\\Services\\" + std::string(name);
}

static std::string ProductPath() {
    return TheSetup().directory + "\\" + TheSetup().executable;
}

static bool IsProgram(const std::string& path) {
    return EqualNoCase(path, ProductPath()) || TheFiles().Exists(path);
}

// The possible programs of a path without quotes: each beginning that ends at a blank, the whole last.
std::string FirstProgram(const std::string& commandLine) {
    for (std::size_t blank = commandLine.find(' '); blank != std::string::npos;
         blank = commandLine.find(' ', blank + 1)) {
        const std::string start = commandLine.substr(0, blank);
        for (const std::string& candidate : {start, start + ".exe"}) {
            if (IsProgram(candidate)) {
                return candidate;
            }
        }
    }
    return commandLine;
}

bool IsDisplayNameTaken(const std::string& displayName, const std::string& name) {
    const RegistryKey* services = TheRegistry().FindKey("HKLM\\SYSTEM\\CurrentControlSet\\Services");
    if (!services) {
        return false;
    }
    for (const auto& [key, service] : services->subKeys) {
        const RegistryValue* shown = service->FindValue("DisplayName");
        if (!EqualNoCase(key, name) &&
            (EqualNoCase(key, displayName) || (shown && EqualNoCase(TextOf(*shown), displayName)))) {
            return true;
        }
    }
    return false;
}

void WriteServiceKey(const ServiceDefinition& definition) {
    const std::string key = KeyPath(definition.name);
    Registry& registry = TheRegistry();
    registry.CreateKey(key);
    registry.SetDword(key, "Type", simwin::SERVICE_WIN32_OWN_PROCESS);
    registry.SetDword(key, "Start", definition.startType);
    registry.SetDword(key, "ErrorControl", simwin::SERVICE_ERROR_NORMAL);
    registry.SetValue(key, "ImagePath", simwin::REG_EXPAND_SZ, TextBytes(definition.path));
    registry.SetString(key, "DisplayName", definition.displayName);
    registry.SetString(key, "ObjectName", "LocalSystem");
}

void DeleteServiceKey(std::string_view name) {
    TheRegistry().DeleteTree(KeyPath(name));
}

void WriteServiceDescription(std::string_view name, std::string_view text) {
    TheRegistry().SetString(KeyPath(name), "Description", text);
}

std::string RegisteredImagePath(const ServiceDefinition& definition) {
    return TheRegistry().GetString(KeyPath(definition.name), "ImagePath", definition.path);
}

simwin::DWORD FindServiceImage(const std::string& commandLine, std::string* imagePath) {
    std::string path;
    if (commandLine.starts_with('"')) {
        path = commandLine.substr(1, commandLine.find('"', 1) - 1);
    } else {
        path = FirstProgram(commandLine);
    }
    if (!IsProgram(path)) {
        const std::size_t slash = path.rfind('\\');
        const bool hasFolder = slash != std::string::npos && TheFiles().Exists(path.substr(0, slash));
        return hasFolder ? simwin::ERROR_FILE_NOT_FOUND : simwin::ERROR_PATH_NOT_FOUND;
    }
    if (!EqualNoCase(path, ProductPath())) {
        NotModelled("StartServiceA", "the service of another program: " + path);
    }
    *imagePath = path;
    return 0;
}

} // namespace machine
