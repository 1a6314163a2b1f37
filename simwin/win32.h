// The simulated machine's version of the Windows interface: everything of Windows that the product uses, one header for
// each room. A call, flag or structure that is not here cannot be used; one that is here but not modelled stops the run
// by name.
#pragma once

#include "simwin/kernel/types.h"

#include "simwin/desktop/api.h"
#include "simwin/devices/api.h"
#include "simwin/drawing/api.h"
#include "simwin/files/api.h"
#include "simwin/kernel/api.h"
#include "simwin/modules/api.h"
#include "simwin/pipes/api.h"
#include "simwin/registry/api.h"
#include "simwin/services/api.h"
#include "simwin/sessions/api.h"
#include "simwin/shell/api.h"
#include "simwin/texts/api.h"
