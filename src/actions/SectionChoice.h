// The one call from the actions up into the engine: which section of the configuration applies to a port. The engine
// defines it; it is declared here so that no include points upwards.
#pragma once

#include "config/CCfgReader.h"
#include "platform/win32.h"

struct CComPort;

// Returns: the number of the first fitting section, 1 to 99, or 100 for the one without a number, which is tried last;
// 0 when none fits.
LONG GetFittingSectionNumber(const CComPort* port, CfgSectionType sectionType);
