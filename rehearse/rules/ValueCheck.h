// Values that the product reads as something other than they say. Pure.
#pragma once

#include "rehearse/rules/SectionKeys.h"

namespace rehearse {

// One value of a key that is known; where: the section, for the text.
void CheckValue(const std::string& where, const KnownKey& row, const IniValue& value, Findings& findings);

} // namespace rehearse
