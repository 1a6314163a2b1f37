// Two present ports exchange their numbers: both devices are taken out, the registry of both is changed while neither
// runs, and both are started again. Called by the assignment check when two ports want each other's numbers.
// Thread: that of the check. Locks: CS_assign is not held. Blocks for as long as two removals and two starts take.
#pragma once

#include "inventory/ports/AssignmentOutcome.h"
#include "inventory/ports/CComPorts.h"
#include "platform/win32.h"

// Returns: Changed when both ports run under each other's numbers; their szKernelNameCom is left for the next
// UpdatePort. Incomplete on any failure: the ports may have their old or their new numbers. Before the first
// registry value is changed a failure starts again what was taken out; after it the records hold the exchanged
// szRegPortName with the old szPortName. The COM name database needs no change, the same two numbers are taken before
// and after.
AssignmentOutcome SwapPortNumbers(CComPort* first, CComPort* second);
