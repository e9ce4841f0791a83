#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/modemctl/Session.h"

/** A client process's session with a host, its calls as text. Any thread may send. */
class Client {
public:
    /** Connects and installs its callbacks. */
    explicit Client(int instance = 0) : mSession(instance) { install(); }

    /** Takes the answers and events from whosever they were; what was kept came by then. */
    void install();

    /** Sends a request such as "readNVItem 550 0 0"; gives its serial. */
    int32_t send(const std::string& request);
    void send(const std::string& request, int32_t serial);

    /** Waits for the answer: "readNVItemResponse ", the error, and the rest in JSON. */
    std::string answer(int32_t serial);

    /** Sends a request and waits: "0 {}", the error and the rest of the answer in JSON. */
    std::string call(const std::string& request);

    /** Waits for the next event, such as `powerSaveModeInd {"type":0,"mode":4}`. */
    std::string event();
    bool hasEvents() const { return !mEvents.empty(); }

    /** Takes what comes until the service goes; all answers that nobody asked for. */
    std::map<int32_t, std::vector<std::string>> drain();

private:
    /** Takes one arrival; throws when none comes or the service goes. */
    Arrival::Kind take();

    Session mSession;
    std::atomic<int32_t> mSerial{-5};  ///< below 0, too, they come back as they were
    std::map<int32_t, std::vector<std::string>> mAnswers;
    std::deque<std::string> mEvents;
};
