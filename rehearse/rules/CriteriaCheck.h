// Which ports a section means and which numbers it wants: criteria that are none, sections that never win, numbers that
// two want. Pure.
#pragma once

#include "rehearse/rules/IniFile.h"

namespace rehearse {

void CheckCriteria(const IniFile& ini, Findings& findings);

// The section before this one that fits every port that this one fits; null if none is certain to.
const IniSection* CoveringSection(const IniFile& ini, const IniSection& section);

} // namespace rehearse
