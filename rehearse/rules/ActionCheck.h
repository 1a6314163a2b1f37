// Programs that never run, and command lines that hold something else than they say. Pure.
#pragma once

#include "rehearse/rules/IniFile.h"

namespace rehearse {

void CheckActions(const IniFile& ini, Findings& findings);

} // namespace rehearse
