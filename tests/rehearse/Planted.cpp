// The product's matching with faults planted in it: a rule for certain ids brings down what has nothing else wrong.
#define WildcardMatch HonestWildcardMatch
#include "engine/WildcardMatch.cpp" // NOLINT(bugprone-suspicious-include): the honest one, under its other name
#undef WildcardMatch

static LONG* volatile g_nowhere; // volatile, or the compiler may leave out the crash

LONG WildcardMatch(const char* text, const char* pattern) {
    if (HonestWildcardMatch(text, "*\\PLANTED_crash") && HonestWildcardMatch(text, pattern)) {
        return *g_nowhere;
    }
    if (HonestWildcardMatch(text, "*\\PLANTED_unmodelled") && HonestWildcardMatch(text, pattern)) {
        return CreateEventA(nullptr, TRUE, FALSE, "a name") != nullptr;
    }
    return HonestWildcardMatch(text, pattern);
}
