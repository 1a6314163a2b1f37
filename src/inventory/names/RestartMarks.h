// The device paths of two ports that are just being restarted for a swap of their numbers. While a mark is set, the
// device events of that path are ignored, so that the removal and the arrival that the swap itself causes do not
// start an assignment. Written by the swap before the devices are touched; read and cleared by the device events.
// Thread: any. No lock: an empty text means no mark, a mark appears whole or not at all, and the devices are restarted
// only after both marks are written.
#pragma once

// Interface paths without their first four characters, cut to the array; empty for no mark.
extern char szRestarting1[260];
extern char szRestarting2[260];

// Writes one of the two. path: without its first four characters.
void SetRestartMark(char (&mark)[260], const char* path);
