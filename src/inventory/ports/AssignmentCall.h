// The one call from the inventory up into the engine: the scan for problem devices requests the check of a port. The
// engine defines it; it is declared here so that no include points upwards.
#pragma once

#include "inventory/ports/AssignmentOutcome.h"
#include "platform/win32.h"

// Brings the port to the number that its section wants. index: a valid index into CComPorts::Ports.
// Locks: takes CS_assign for the renaming. Can block for seconds while a device restarts.
AssignmentOutcome CheckComPortAssignment(int index);
