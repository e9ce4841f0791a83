#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

/** A child process, killed at the end. Its standard streams are ours. */
class Child {
public:
    explicit Child(std::vector<std::string> words);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t id() const { return mId; }
    bool isRunning();

    /** Sends the signal and waits for the end; the status as waitpid tells it. */
    int end(int signal);

private:
    pid_t mId = -1;
    int mStatus = 0;
    bool mHasEnded = false;
};

/** What a process takes of the machine. */
struct Usage {
    size_t threads;
    size_t descriptors;
    double memory;  ///< resident, in MB
};

/** @throws std::runtime_error when there is no such process any more */
Usage usageOf(pid_t process);

/** The folder of this program. */
std::filesystem::path ownFolder();
