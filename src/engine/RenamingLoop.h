// The part of an assignment check that changes something: tries the wanted numbers one after the other, from the
// mildest means to the hardest, and brings the device to the first one available. Thread: that of the check. Locks:
// takes CS_assign for all of it but the swap, also when the caller holds it already.
#pragma once

#include "engine/Assignment.h"

// Blocks for as long as restart, wait or swap need.
AssignmentOutcome RenamePort(Assignment* check);
