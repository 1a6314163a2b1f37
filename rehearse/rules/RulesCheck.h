// Everything that is wrong with a configuration by itself, without any machine. Pure.
#pragma once

#include "rehearse/rules/IniFile.h"

namespace rehearse {

// findings: those of the reading; returned with all others, in the order of the file.
void CheckIni(const IniFile& ini, Findings& findings);

} // namespace rehearse
