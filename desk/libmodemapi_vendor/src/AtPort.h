#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AtLine.h"

namespace fake {

/** A command on its way to the client that registered its name. */
struct AtCommand {
    uint64_t handle;
    uint64_t opCode;
    std::string name;
    uint16_t tokenCount;
    std::vector<std::optional<std::string>> tokens;  ///< nothing: a null pointer
};

/**
 * The modem's AT port, a pseudo-terminal. A command whose name is registered is handed on and held
 * until finish() or a timeout; what is typed meanwhile waits in the terminal. Callable from any
 * thread; never destroyed.
 */
class AtPort {
public:
    using Hand = std::function<void(AtCommand)>;
    using Timeout = std::function<std::chrono::milliseconds()>;

    /** Opens the pseudo-terminal, links it as `link`, gives its path. Throws std::system_error. */
    std::string open(const std::string& link, Hand hand, Timeout timeout);

    void registerName(const std::string& name);
    /** Forgets the registered name and ends open commands with an error: the AT service is down. */
    void forget();

    /** Registers a command of the text port as open, in place of an earlier one; its handle. */
    uint64_t post();
    /** Ends the open command of that handle, with OK or ERROR at its terminal; false: not open. */
    bool finish(uint64_t handle, bool success);

    std::vector<std::pair<std::string, std::string>> describe() const;

private:
    void serve();
    bool isDone(const AtRequest& request);
    bool hold(const AtRequest& request);
    void show(const std::string& text) const;

    Hand mHand;
    Timeout mTimeout;
    int mMaster = -1;
    std::string mPath;
    AtLine mLine;

    mutable std::mutex mMutex;
    std::condition_variable mEnded;
    std::string mRegistered;
    uint64_t mLastHandle = 0;
    uint64_t mTyped = 0;   ///< handle of the open command that was typed, or 0
    uint64_t mPosted = 0;  ///< handle of the open command that was not typed, or 0
    bool mSuccess = false;
};

}  // namespace fake
