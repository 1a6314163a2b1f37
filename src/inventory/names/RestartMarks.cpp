#include "inventory/names/RestartMarks.h"

#include "support/texts/BoundedText.h"

char szRestarting1[260];
char szRestarting2[260];

// The first character comes last: the beginning of a path occurs in those of many devices, and an event of any of them
// that met it would be passed over and take the mark away.
void SetRestartMark(char (&mark)[260], const char* path) {
    char whole[sizeof(mark)] = {};
    CopyText(whole, path);
    char volatile* const target = mark;
    target[0] = 0;
    for (size_t i = 1; i < sizeof(mark); ++i) {
        target[i] = whole[i];
    }
    target[0] = whole[0];
}
