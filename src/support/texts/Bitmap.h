// Number n, counted from 1, is bit (n - 1) modulo 8 of byte (n - 1) / 8, lowest bit first: the layout of the COM name
// database. bits is the highest number the caller accepts; a number outside 1 to bits gives 0 and changes nothing.
// Pure functions on the caller's memory, any thread.
#pragma once

#include "platform/win32.h"

// 1 if the number's bit is set.
int BitmapTest(DWORD number, const BYTE* bitmap, DWORD bits);

// Sets the bit. 1 if it was clear, 0 if it was set already.
int BitmapSet(DWORD number, BYTE* bitmap, DWORD bits);

// Clears the bit. 1 if it was set, 0 if it was clear already.
int BitmapClear(DWORD number, BYTE* bitmap, DWORD bits);

// Zeroes the bitmap and sets the numbers of a list such as "1,3,5-8"; at most 256 items and 511 characters count.
// Numbers above the capacity (bytes * 8) are skipped. Returns: the count of numbers taken, repeats and 0 included.
DWORD ParseNumberList(const char* text, BYTE* bitmap, DWORD bytes);
