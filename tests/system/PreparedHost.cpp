#include <signal.h>

#include <iostream>

#include "platform/libmodemapi_vendor/src/Commands.h"
#include "plugin/OnLoad.h"

/**
 * A host whose simulated modem takes commands before the plug-in sees it.
 *
 * Arguments: the instance, then commands. Serves until SIGTERM.
 */
int main(int argc, char** argv) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    setenv("OX_INSTANCE", argv[1], 1);
    for (int i = 2; i < argc; ++i) {
        std::cout << sim::runCommand(argv[i]);
    }
    std::string words[] = {"ox-modem", "-i", argv[1]};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    if (onLoad(3, arguments) != 0) {
        return 1;
    }
    std::cout << "ready: itself" << std::endl;
    int number = 0;
    sigwait(&stop, &number);
    return 0;
}
