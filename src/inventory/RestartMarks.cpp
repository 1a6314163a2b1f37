#include "inventory/RestartMarks.h"

char szRestarting1[260];
char szRestarting2[260];
