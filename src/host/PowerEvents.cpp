#include "host/PowerEvents.h"

#include "config/CSettings.h"
#include "engine/AssignmentCheck.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"

DWORD PowerEventMsg(DWORD EventType, LPVOID) {
    WriteLog(2, "PowerEventMsg wParam=%s", PowerEventName(EventType));
    switch (EventType) {
    case PBT_APMQUERYSUSPEND:
    case PBT_APMQUERYSTANDBY:
        WriteLog(2, " System APM Query Sleep");
        break;
    case PBT_APMSUSPEND:
    case PBT_APMSTANDBY:
        WriteLog(2, " System APM Sleep");
        break;
    case PBT_APMRESUMECRITICAL:
    case PBT_APMRESUMEAUTOMATIC:
        // One of these two comes with every resume; the other resume codes would only repeat the check.
        WriteLog(2, " System APM Resume");
        if (g_pSettings->CheckPortsOnResume) {
            CheckPortsTwice();
        }
        break;
    default:
        break;
    }
    WriteLog(3, "PowerEventMsg end");
    return 1;
}
