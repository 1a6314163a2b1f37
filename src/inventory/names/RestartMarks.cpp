#include "inventory/names/RestartMarks.h"

#include "support/texts/BoundedText.h"

char szRestarting1[260];
char szRestarting2[260];

// Written last: the beginning of a path also occurs in those of other devices, and an event of one of them would match
// a partial mark, be dropped and clear it.
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
