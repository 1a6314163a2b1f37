// Programs that never run, and command lines that do not mean what they seem to. Pure.
#pragma once

#include "rehearse/rules/IniFile.h"

namespace rehearse {

void CheckActions(const IniFile& ini, Findings& findings);

} // namespace rehearse
