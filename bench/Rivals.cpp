#include "bench/Rivals.h"

#include <cstdio>

#include <fnmatch.h>
#include <glib.h>
#include <ini.h>

namespace bench {

// Keeps nothing: the minimum that a program does with a value.
static int CountValue(void* count, const char*, const char*, const char*) {
    ++*static_cast<std::size_t*>(count);
    return 1;
}

std::size_t ParseWithInih(const char* text) {
    std::size_t count = 0;
    ini_parse_string(text, CountValue, &count);
    return count;
}

std::size_t ParseWithGlib(const char* text, std::size_t length) {
    GKeyFile* file = g_key_file_new();
    std::size_t count = 0;
    GError* error = nullptr;
    if (!g_key_file_load_from_data(file, text, length, G_KEY_FILE_NONE, &error)) {
        std::fprintf(stderr, "GLib: %s\n", error->message);
        g_error_free(error);
    } else {
        gsize groups = 0;
        char** names = g_key_file_get_groups(file, &groups);
        count = groups;
        g_strfreev(names);
    }
    g_key_file_free(file);
    return count;
}

bool MatchWithFnmatch(const char* text, const char* pattern) {
    return fnmatch(pattern, text, FNM_NOESCAPE | FNM_CASEFOLD) == 0;
}

} // namespace bench
