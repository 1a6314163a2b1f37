// People at a storm's machine, and the programs that its configurations start for ports. Everything from the seed.
#pragma once

#include "tests/storms/Plan.h"

namespace storm {

// Somebody may be there at the start; people come and go, at the console and by remote desktop. plan: with its history.
void AddPeople(Plan& plan, Random& random);

} // namespace storm
