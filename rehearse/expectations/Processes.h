// The programs of a run, as expectations and the report see them: who started them, under which account, with which
// rights.
#pragma once

#include "rehearse/expectations/Expectations.h"

#include "nlohmann/json.hpp"

namespace rehearse {

// Expectation "process": programs with this image, over the whole run.
void JudgeProcess(const TomlTable& expect, Wrongs& wrongs);
nlohmann::ordered_json ProcessesJson();

} // namespace rehearse
