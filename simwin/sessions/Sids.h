// SIDs in the form in which programs see them.
#pragma once

#include "simwin/kernel/types.h"
#include "simwin/registry/Security.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace machine {

// Revision, count, the authority with its highest byte first, the parts.
std::vector<std::uint8_t> SidBytes(const Sid& sid);
// Nothing for an invalid SID.
std::optional<Sid> SidOfBytes(simwin::PSID sid);

} // namespace machine
