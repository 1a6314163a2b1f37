// Expectations about the desktop: balloons, tool tips of other programs, keys and clicks, message boxes, and the editor
// of the configuration.
#pragma once

#include "rehearse/expectations/Expectations.h"

namespace rehearse {

// balloon, shown, tooltip, input.
bool IsAboutDesktop(const TomlTable& expect);
void JudgeDesktop(const TomlTable& expect, const Stage& stage, Wrongs& wrongs);
void JudgeSurroundings(const TomlTable& expect, Wrongs& wrongs); // message boxes and the editor

} // namespace rehearse
