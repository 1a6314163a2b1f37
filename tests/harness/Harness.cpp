#include "tests/harness/Harness.h"

#include "simwin/machine/Machine.h"

#include <cstring>
#include <vector>

namespace harness {

static std::vector<SetupAction>& SetupActions() {
    static std::vector<SetupAction> actions;
    return actions;
}

static std::vector<void (*)()>& StartActions() {
    static std::vector<void (*)()> actions;
    return actions;
}

static int RunOnMachine() {
    machine::Setup setup;
    for (const SetupAction action : SetupActions()) {
        action(setup);
    }
    return machine::RunHosted(setup, [] {
        for (void (*action)() : StartActions()) {
            action();
        }
        return RUN_ALL_TESTS();
    });
}

WithSetup::WithSetup(SetupAction action) {
    SetupActions().push_back(action);
}

BeforeTests::BeforeTests(void (*action)()) {
    StartActions().push_back(action);
}

} // namespace harness

// What a test makes of the product belongs to a simulated process and is never freed: leaks are judged by rehearsals.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() {
    return 1;
}

int main(int argc, char** argv) {
    bool listOnly = false;
    for (int i = 1; i < argc; ++i) {
        listOnly = listOnly || std::strcmp(argv[i], "--gtest_list_tests") == 0;
    }
    testing::InitGoogleTest(&argc, argv);
    return listOnly ? RUN_ALL_TESTS() : harness::RunOnMachine();
}
