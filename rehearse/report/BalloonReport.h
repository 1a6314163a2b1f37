// The balloons of a run as JSON, written after the run.
#pragma once

#include "rehearse/watch/Balloons.h"

#include <nlohmann/json.hpp>

namespace rehearse {

nlohmann::ordered_json BalloonsJson(const Balloons& balloons);

} // namespace rehearse
