#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <thread>

/** Prints its arguments and the instance, fails when the last one says so, and leaves a thread at
 * work. */
extern "C" __attribute__((visibility("default"))) int onLoad(int argc, char** argv) {
    const char* instance = getenv("OX_INSTANCE");
    std::cout << (instance != nullptr ? instance : "none") << ':';
    for (int i = 1; i < argc; ++i) {
        std::cout << ' ' << argv[i];
    }
    std::cout << (argv[argc] == nullptr ? "" : " unterminated") << std::endl;
    if (argv[argc - 1] == std::string("fail")) {
        return 3;
    }
    std::thread(pause).detach();
    return 0;
}
