#include "Processes.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

Child::Child(std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    if (posix_spawn(&mId, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        throw std::runtime_error("cannot start " + words[0]);
    }
}

Child::~Child() {
    end(SIGKILL);
}

bool Child::isRunning() {
    mHasEnded = mHasEnded || waitpid(mId, &mStatus, WNOHANG) == mId;
    return !mHasEnded;
}

int Child::end(int signal) {
    if (isRunning()) {
        kill(mId, signal);
        mHasEnded = waitpid(mId, &mStatus, 0) == mId;
    }
    return mStatus;
}

Usage usageOf(pid_t process) {
    using Entries = std::filesystem::directory_iterator;
    const std::string folder = "/proc/" + std::to_string(process);
    try {
        size_t pages = 0;
        std::ifstream(folder + "/statm") >> pages >> pages;
        const auto count = [&folder](const char* name) {
            return static_cast<size_t>(std::distance(Entries(folder + name), Entries()));
        };
        return {count("/task"), count("/fd"),
                static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6};
    } catch (const std::filesystem::filesystem_error&) {
        throw std::runtime_error("the host has gone");
    }
}

std::filesystem::path ownFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}
