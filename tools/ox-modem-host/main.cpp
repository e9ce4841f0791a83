#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace {

using OnLoad = int (*)(int argc, char** argv);

/** The plug-in of the same build. */
std::string pluginBesideExecutable() {
    const auto bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    return (bin.parent_path() / "lib" / "libox-modem.so").string();
}

/**
 * Tells the simulated modem, which the plug-in brings along, under which instance to name its
 * ports: the plug-in's own `-i`, read as the plug-in reads it.
 */
void exportInstance(const std::vector<std::string>& arguments) {
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i].rfind("-i", 0) != 0) {
            continue;
        }
        std::string id = arguments[i].substr(2);
        if (id.empty() && i + 1 < arguments.size()) {
            id = arguments[i + 1];
        }
        setenv("OX_INSTANCE", std::to_string(atoi(id.c_str())).c_str(), 0);
        return;
    }
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

/** The plug-in may keep what its argument vector points to. */
void load(const std::string& plugin, std::vector<std::string>& arguments) {
    const OnLoad onLoad = findEntry(plugin);
    arguments.insert(arguments.begin(), "ox-modem");
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

void serve(const std::string& plugin, std::vector<std::string>& arguments) {
    // A reader of stdout, of the log or of a socket that goes away is an error of that write alone.
    signal(SIGPIPE, SIG_IGN);
    // Blocked before the plug-in starts threads: all of them inherit the mask, and the signals
    // wait for sigwait wherever they are sent.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    exportInstance(arguments);
    load(plugin, arguments);
    std::cout << "ready: " << plugin << std::endl;
    int signal = 0;
    sigwait(&stop, &signal);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Loads a plug-in and serves it until SIGINT or SIGTERM.");
    std::string plugin;
    std::vector<std::string> arguments;
    app.add_option("--plugin", plugin, "Plug-in to load (default: libox-modem.so of this build)");
    app.add_option("ARGS", arguments, "The plug-in's own arguments, after --: -i 0 or -i 1");
    app.footer(
            "Example: ox-modem-host -- -i 0\n"
            "Exit: 0 after a signal, 1 when the plug-in cannot be loaded, 2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        serve(plugin.empty() ? pluginBesideExecutable() : plugin, arguments);
    } catch (const std::exception& error) {
        std::cerr << "ox-modem-host: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
