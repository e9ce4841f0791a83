#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/system/DirectSession.h"

/** Nothing that is waited for takes so long, sanitized or not. */
constexpr std::chrono::milliseconds PATIENCE(60000);

constexpr bool SANITIZED = SANITIZER[0] != '\0';

/** Asks again until it is so; false when it never was. */
template <class Condition>
[[nodiscard]] bool await(Condition isMet) {
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (!isMet()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/** A child process whose output, stdout and stderr, is kept. Killed at the end. */
class Process {
public:
    explicit Process(std::vector<std::string> words);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void signal(int number) const;
    pid_t id() const { return mId; }

    /** Waits for the end; its exit status, or minus the signal that ended it. */
    int wait();

    /** Waits until the text was printed so many times. */
    [[nodiscard]] bool prints(const std::string& text, size_t times = 1);
    std::string output() const;

private:
    void collect(int pipe);

    pid_t mId = -1;
    std::thread mCollector;
    mutable std::mutex mLock;
    std::condition_variable mChanged;
    std::string mOutput;
    bool mEnded = false;
};

/** What a process takes of the machine. */
struct Usage {
    size_t threads;
    size_t descriptors;
    double memory;  ///< resident, in MB

    /** The larger of each. */
    Usage orMore(const Usage& other) const {
        return {std::max(threads, other.threads), std::max(descriptors, other.descriptors),
                std::max(memory, other.memory)};
    }
};

/** What a host never takes, whatever its clients do. */
constexpr size_t MAX_THREADS = 100;
constexpr double MAX_MEMORY = SANITIZED ? INFINITY : 64;  ///< MB

/**
 * What a host may take beyond what it took at its start: threads of seven handlers, two that answer
 * for the modem and the writer; the writer's descriptor and those of both callbacks, which stay
 * until others take their place; what the allocator keeps.
 */
constexpr Usage LATE{10, 3, 12};

/**
 * A host; its plug-in is loaded. Unless a test stops it under load, it has to come back to what it
 * took when it started before it is stopped. At the end it has to leave cleanly.
 */
class Host : public Process {
public:
    /**
     * All services are connected and bound.
     *
     * @param log where bash lets its stderr go, such as ">FILE"
     */
    explicit Host(int instance = 0, const std::string& log = "");
    Host(int instance, std::vector<std::string> words);
    ~Host();

    /** Gives the fake modem a command that has to succeed; what it printed. */
    std::string fake(const std::string& command) const;

    /** Gives it a command that may fail; its reply. */
    std::string trySim(const std::string& command) const;

    /** Gives it until its reply contains the text. */
    [[nodiscard]] bool awaitSim(const std::string& command, const std::string& text) const;

    /** Waits until a function of the modem was called so many times. */
    [[nodiscard]] bool awaitCalls(const std::string& function, int count) const;

    Usage usage() const;

    /** Lets every thread start that a request needs. */
    void startAllThreads() const;

    /** Waits, for as long as a peer may stall, until it takes no more than that with the margin. */
    [[nodiscard]] bool comesBackTo(const Usage& baseline, const Usage& margin) const;

    /** Stops it by SIGTERM: exit status 0, and no report of a sanitizer. */
    void stop();

private:
    const int mInstance;
    Usage mBaseline{};
    bool mStopped = false;
};

/** A client process's session with a host. What it is called stands as modemctl shows it. */
class Client {
public:
    /** Connects and installs its callbacks. */
    explicit Client(int instance = 0) : mSession(instance) { install(); }

    /** Takes answers and events from whosever they were; what was kept has come by then. */
    void install();

    /** Sends a request such as "readNVItem 550 0 0", from any thread; gives its serial. */
    int32_t send(const std::string& request);
    void send(const std::string& request, int32_t serial);

    /** Waits for the answer, such as "getOperatingModeResponse error=0 mode=0". */
    std::string answer(int32_t serial);

    /** Sends a request and waits; its answer from "error=" on. */
    std::string call(const std::string& request);

    /** Waits for the next event, such as "powerSaveModeInd mode=4". */
    std::string event();
    bool hasEvents() const { return !mEvents.empty(); }

    /** Takes what comes until the service goes; the answers to a serial that nobody took. */
    std::map<int32_t, std::deque<std::string>> drain();

private:
    /** Takes what comes next; false when nothing does in time. */
    bool take(std::chrono::milliseconds patience);
    void mustTake();

    DirectSession mSession;
    std::atomic<int32_t> mSerial{-5};  ///< those below 0, too, come back as they were
    std::map<int32_t, std::deque<std::string>> mAnswers;
    std::deque<std::string> mEvents;
};

/** A runtime folder of its own for each test. */
class SystemTest : public testing::Test {
protected:
    SystemTest();
    ~SystemTest() override;

    /** The path of a new file in it. */
    std::string file(const std::string& name, const std::string& content) const;

private:
    const std::string mFolder;
};
