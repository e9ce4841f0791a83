#include <dlfcn.h>
#include <hidl/Transport.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "Sharing.h"
#include "desk/runtime/RuntimeDir.h"

namespace {

using OnLoad = int (*)(int argc, char** argv);

/** The plug-in of the same build, or of the same installation. */
std::string pluginBesideExecutable() {
    const auto bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const auto libraries = bin.parent_path() / "lib";
    const auto installed = libraries / "ox-modem" / "libox-modem.so";
    return std::filesystem::exists(installed) ? installed : libraries / "libox-modem.so";
}

/** Throws std::runtime_error with the loader's reason. The library is never closed. */
OnLoad findEntry(const std::string& path) {
    // Without a slash the loader would search its own folders.
    const std::string file = std::filesystem::absolute(path).string();
    void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw std::runtime_error(dlerror());
    }
    void* entry = dlsym(library, "onLoad");
    if (entry == nullptr) {
        throw std::runtime_error(path + ": no function onLoad in it");
    }
    return reinterpret_cast<OnLoad>(entry);
}

/** Calls onLoad. The plug-in may keep pointers into `arguments`, which therefore outlive the call.
 */
void load(const std::string& plugin, std::vector<std::string>& arguments) {
    const OnLoad onLoad = findEntry(plugin);
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const int result = onLoad(static_cast<int>(arguments.size()), argv.data());
    if (result != 0) {
        throw std::runtime_error(plugin + ": onLoad failed with " + std::to_string(result));
    }
}

/**
 * The names under which the plug-in serves, for a person; "nothing yet" when it registered none,
 * which is no error. Throws std::runtime_error when a registration was refused, which onLoad does
 * not tell, or when nobody answers under the name.
 */
std::string servedNames(const std::string& instance) {
    std::string names;
    for (const hal::Registration& registration : hal::registrations()) {
        const std::string name = registration.descriptor + "/" + registration.name;
        if (registration.status == android::ALREADY_EXISTS && registration.holder != 0) {
            throw std::runtime_error("instance " + instance + " is already served by process " +
                                     std::to_string(registration.holder) + " (" + name + ")");
        }
        if (registration.status != android::OK) {
            throw std::runtime_error("cannot serve " + name + ": " + registration.reason);
        }
        const auto service = hal::connectToService(registration.descriptor, registration.name);
        if (service == nullptr) {
            throw std::runtime_error(name + " does not answer");
        }
        service->close("it answers");  // otherwise the service would wait for a first message
        names += (names.empty() ? "" : ", ") + name;
    }
    return names.empty() ? "nothing yet" : names;
}

/** Puts a modem that answers from a recording where the plug-in will look for its own. */
void replay(const std::string& recording, bool isFast) {
    setenv("OX_MODEM_REPLAY", std::filesystem::absolute(recording).c_str(), 1);
    if (isFast) {
        setenv("OX_MODEM_REPLAY_FAST", "1", 1);
    }
    const auto libraries = std::filesystem::path(pluginBesideExecutable()).parent_path();
    const std::string file = libraries / "replay" / "libmodemapi_vendor.so";
    if (dlopen(file.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        throw std::runtime_error(dlerror());
    }
}

/** Serves until a signal. `arguments` are the plug-in's whole argument vector. */
void serve(const std::string& plugin, const std::string& instance,
           std::vector<std::string>& arguments) {
    // A reader of stdout, of the log or of a socket that goes away, or a file that may not become
    // longer, is an error of that write alone.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    // Blocked before the plug-in starts threads: all of them inherit the mask, and the signals
    // wait for sigwait wherever they are sent.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    // The fake modem, which the plug-in brings along, names its ports by it.
    setenv("OX_INSTANCE", instance.c_str(), 1);
    // Where `modemctl call --why` looks for the reason.
    setenv("OX_LOG_FILE", runtime::logFile(instance).c_str(), 1);
    load(plugin, arguments);
    const std::string names = servedNames(instance);
    sharing::start();
    std::cout << "ready: " << plugin << " serves " << names << std::endl;
    int signal = 0;
    sigwait(&stop, &signal);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Loads a plug-in and serves it until SIGINT or SIGTERM.");
    app.set_version_flag("--version", "ox-modem-host " OX_VERSION);
    std::string plugin;
    unsigned instance = 0;
    std::vector<std::string> further;
    app.add_option("--plugin", plugin, "Plug-in to load (default: libox-modem.so of this build)");
    app.add_option("--instance", instance,
                   "Instance to serve (default: 0): the plug-in's -i, and the number of the "
                   "fake modem's ports");
    std::string recording;
    auto* option = app.add_option("--replay", recording, "Recording that takes the modem's place");
    option->check(CLI::ExistingFile);
    const auto* fast =
            app.add_flag("--fast", "Replay without the recording's pauses")->needs(option);
    app.add_option("ARGS", further, "Further arguments of the plug-in, after --");
    app.footer(
            "Example: ox-modem-host --instance 1\n"
            "Exit: 0 after a signal, 1 when the plug-in cannot be loaded or cannot serve, "
            "2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    const std::string number = std::to_string(instance);
    std::vector<std::string> arguments{"ox-modem", "-i", number};
    for (const std::string& argument : further) {
        if (argument.rfind("-i", 0) == 0) {
            std::cerr << "ox-modem-host: the instance is told by --instance, not by " << argument
                      << '\n';
            return 2;
        }
        arguments.push_back(argument);
    }
    try {
        if (!recording.empty()) {
            replay(recording, fast->count() != 0);
        }
        serve(plugin.empty() ? pluginBesideExecutable() : plugin, number, arguments);
    } catch (const std::exception& error) {
        std::cerr << "ox-modem-host: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
