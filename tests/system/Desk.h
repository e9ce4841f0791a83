#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/** Nothing that is waited for takes so long, sanitized or not. */
constexpr std::chrono::seconds PATIENCE(60);

constexpr bool SANITIZED = SANITIZER[0] != '\0';

/** Asks again until it is so; false when it never was. */
template <class Condition>
bool await(Condition isMet) {
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (!isMet()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/** A child process. What it prints, to stdout and stderr, is kept. Killed at the end. */
class Process {
public:
    explicit Process(std::vector<std::string> words);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void signal(int number) const;

    /** Waits for the end; its exit status, or minus the signal that ended it. */
    int wait();

    /** Waits until the text was printed so many times. */
    bool prints(const std::string& text, size_t times = 1);
    std::string output() const;

    pid_t id() const { return mId; }

private:
    void collect(int pipe);

    pid_t mId = -1;
    bool mRunning = true;
    std::thread mCollector;
    mutable std::mutex mLock;
    std::condition_variable mChanged;
    std::string mOutput;
    bool mEnded = false;
};

/**
 * A host with its plug-in and simulated modem, all services connected and bound. At the end it is
 * stopped and has to leave cleanly.
 */
class Host {
public:
    explicit Host(int instance = 0);
    Host(int instance, std::vector<std::string> words);
    ~Host();

    /** A host whose modem was given commands before the plug-in started. */
    static std::vector<std::string> prepared(int instance, std::vector<std::string> commands);

    /** Gives the simulated modem a command that has to succeed; what it printed. */
    std::string sim(const std::string& command) const;

    /** Gives it until its reply contains the text. */
    [[nodiscard]] bool awaitSim(const std::string& command, const std::string& text) const;

    /** Waits until a function of the modem was called so many times. */
    [[nodiscard]] bool awaitCalls(const std::string& function, int count) const;

    /** Stops it by SIGTERM: exit status 0, and no report of a sanitizer. */
    void stop();

    Process process;

private:
    std::string trySim(const std::string& command) const;

    const int mInstance;
    bool mStopped = false;
};

/** A runtime folder of its own for each test. */
class SystemTest : public testing::Test {
protected:
    SystemTest();
    ~SystemTest() override;

    /** The path of a new file in it. */
    std::string file(const std::string& name, const std::string& content) const;

    const std::string folder;
};
