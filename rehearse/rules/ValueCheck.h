// Values that the product does not read as they look. Pure.
#pragma once

#include "rehearse/rules/SectionKeys.h"

namespace rehearse {

// One value of a known key; where: the section, for the text.
void CheckValue(const std::string& where, const KnownKey& row, const IniValue& value, Findings& findings);

} // namespace rehearse
