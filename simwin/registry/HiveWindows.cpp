#include "simwin/registry/Hive.h"

namespace machine {

std::optional<std::string> ReadHive(const std::string&, std::vector<ExportedKey>&, std::vector<ExportNote>&) {
    return "hives cannot be read on Windows: export the key with reg export, or rehearse it on Linux";
}

} // namespace machine
