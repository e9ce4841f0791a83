#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <modem_api.h>

/**
 * A modem API that does as the test says: it notes each call as text, such as
 * "modem_set_operating_mode(5)", and returns what was scripted for its function, 0 by default.
 * Linked in place of the modem's library. The functions are safe on any thread; the script is the
 * test's, between their calls.
 */
class ScriptedModem {
public:
    static ScriptedModem& instance();

    /** Forgets calls, scripts and pending answers; pending cookies must have been taken. */
    void reset();

    /** What a function returns: one result for each call, and the last one from then on. */
    void returns(const std::string& function, std::vector<int> results) {
        mResults[function] = std::move(results);
    }

    /** Runs inside a function, before it returns: to fill what it was given. */
    void onCall(const std::string& function, std::function<void(void*)> fill) {
        mFills[function] = std::move(fill);
    }

    const std::vector<std::string>& calls() const { return mCalls; }
    void clearCalls() { mCalls.clear(); }

    /** Answers the oldest asynchronous request on this thread; false when none waits. */
    bool answer(const void* data, size_t length);

    /** Raises an event on this thread through the callback that the service installed. */
    void raise(modem_api_event_type event, const void* data, size_t length);

    /** A call as the modem gets it. */
    struct Call {
        const char* function;
        std::string arguments;  ///< as they are noted, without the brackets
        void* out;              ///< what the function is to fill, or null
        void* cookie = nullptr;
        modem_api_async_callback callback = nullptr;
    };
    /** Gives every call to `taker`, and nothing to the script; an empty one ends that. */
    void takeCalls(std::function<int(const Call&)> taker) { mTaker = std::move(taker); }

    // For the C functions.
    int enter(const Call& call);
    void setEventCallback(modem_api_event_callback callback) { mEventCallback = callback; }

private:
    std::mutex mMutex;
    std::vector<std::string> mCalls;
    std::map<std::string, std::vector<int>> mResults;
    std::map<std::string, std::function<void(void*)>> mFills;
    std::deque<Call> mPending;  ///< asynchronous requests that wait for their answer
    modem_api_event_callback mEventCallback = nullptr;
    std::function<int(const Call&)> mTaker;
};

/** Bytes as lower-case hex, as they stand in noted calls. */
std::string toHex(const void* data, size_t size);
