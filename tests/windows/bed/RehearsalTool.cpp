// Stands in for the rehearsal tool, so that what _rehearse_here.cmd makes of its exit codes is tested apart from it:
// prints its arguments, writes the report, and ends with the code that RULES_CODE or RUN_CODE names.
#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int count, char** arguments) {
    for (int i = 1; i < count; ++i) {
        std::printf("[%s]", arguments[i]);
        if (std::strcmp(arguments[i], "--html") == 0 && i + 1 < count) {
            if (std::FILE* report = std::fopen(arguments[i + 1], "w")) {
                std::fclose(report);
            }
        }
    }
    std::puts("");
    const bool isRules = count > 1 && std::strcmp(arguments[1], "--rules") == 0;
    const char* code = std::getenv(isRules ? "RULES_CODE" : "RUN_CODE");
    return code ? std::atoi(code) : 0;
}
