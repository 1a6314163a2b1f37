// The device interface classes under which Windows offers serial ports and modems. The snapshot, the arrivals and the
// problem scans walk them in this order. Constants, no state.
#pragma once

#include "platform/win32.h"
#include "support/system/InterfaceClasses.h"

// A device that offers both is entered once, by the first.
constexpr const GUID* InterfaceClassesOfPorts[] = {&interface_class::ComPort, &interface_class::Modem};
static_assert(sizeof(InterfaceClassesOfPorts) / sizeof(InterfaceClassesOfPorts[0]) == 2);
