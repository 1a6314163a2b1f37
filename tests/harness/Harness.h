// The basis of a unit test: a fresh simulated machine, and the test itself as the first thread of a process on it.
// CTest starts one host process for each test, so no test sees another's state.
#pragma once

#include "simwin/kernel/Setup.h"

#include <gtest/gtest.h>

namespace harness {

// Lets a test program change the machine before it is made (language, version). Called from a static initialiser.
using SetupAction = void (*)(machine::Setup&);
struct WithSetup {
    explicit WithSetup(SetupAction action);
};

// What a program does on the process's first thread before its tests, such as the first steps of the product's entry.
struct BeforeTests {
    explicit BeforeTests(void (*action)());
};

} // namespace harness
