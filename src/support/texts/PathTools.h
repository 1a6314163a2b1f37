// Paths as text: full paths from relative ones, environment variables, the directory of a file. No file is touched.
// Any thread, no lock.
#pragma once

#include <cstddef>

#include "platform/win32.h"

// Makes a full path of path, relative to baseDir, into out. size: of out; at most 1024 is used. Quotes are removed, "."
// and ".." resolved, environment variables expanded. If path is empty or baseDir is null, out is unchanged; if both
// together are too long, out is the given path, cut to size.
void MakeFullPath(const char* path, const char* baseDir, char* out, size_t size);
template<size_t N>
void MakeFullPath(const char* path, const char* baseDir, char (&out)[N]) {
    MakeFullPath(path, baseDir, out, N);
}

// Expands environment variables in place. limit: the longest result that is taken, up to 1024; the array has room for
// limit characters with the final zero. Longer results than 259 characters are rejected.
// Returns: 1 if the text was expanded; 0 without change.
int ExpandEnvInPlace(char* text, size_t limit);

// The directory part of a path into out: what precedes the last backslash, ignoring one in the last position. Returns:
// 1; 0 with an empty out if there is none or path is shorter than three characters.
int GetDirectoryOfPath(const char* path, char* out, size_t size);
template<size_t N>
int GetDirectoryOfPath(const char* path, char (&out)[N]) {
    return GetDirectoryOfPath(path, out, N);
}
