// The control of the test of planted libraries: it loads each library that it is given by its bare name.
#include "platform/win32.h"

int main(int count, char** names) {
    for (int i = 1; i < count; ++i) {
        LoadLibraryA(names[i]);
    }
    return 0;
}
