// The product's matching with faults planted in it: a rule for certain ids brings down what has nothing else wrong.
#define WildcardMatch HonestWildcardMatch
#include "engine/WildcardMatch.cpp" // NOLINT(bugprone-suspicious-include): the honest one, under its other name
#undef WildcardMatch

LONG WildcardMatch(const char* text, const char* pattern) {
    if (HonestWildcardMatch(text, "*\\PLANTED_crash") && HonestWildcardMatch(text, pattern)) {
        return *static_cast<volatile LONG*>(nullptr); // NOLINT(clang-analyzer-core.NullDereference): the planted crash
    }
    if (HonestWildcardMatch(text, "*\\PLANTED_unmodelled") && HonestWildcardMatch(text, pattern)) {
        return CreateEventA(nullptr, TRUE, FALSE, "a name") != nullptr;
    }
    return HonestWildcardMatch(text, pattern);
}
