#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>

#include "Record.h"

namespace replay {

using Json = nlohmann::json;

/** Puts what a recording tells back into memory. Left-out contents are bytes of one pattern. */
class Reader {
public:
    explicit Reader(Json members = {}) : mMembers(std::move(members)) {}

    template <class Number>
    void pointed(const char* name, Number* value) {
        if (value != nullptr && mMembers.contains(name) && mMembers[name].is_number()) {
            *value = mMembers[name].get<Number>();
        }
    }
    void bytes(const char* name, void* data, size_t room, bool isPrivate);
    void record(const char* name, const recording::Record& record, void* data);

private:
    Json mMembers;
};

/** What the modem did because of a call, or after it. */
struct Happening {
    uint64_t after;  ///< nanoseconds since the call
    bool isAnswer;
    bool isEarly;  ///< before the call returned
    Json line;
};

struct Recorded {
    size_t line;
    uint64_t time;
    uint64_t duration = 0;
    std::optional<int> result = {};
    Json out = {};
    std::vector<Happening> happenings = {};
};

/** The recording, each call of it by function and arguments. */
class Recording {
public:
    /** Lives until the process ends. */
    static Recording& get();

    const recording::Privacy& privacy() const { return mPrivacy; }
    bool isFast() const { return mIsFast; }
    /** The next such call, or again the last one; null with a line on stderr. */
    const Recorded* next(const std::string& function, Json arguments, bool& isFirst);
    /** Runs `work` on the one thread of the modem. */
    void schedule(uint64_t time, std::function<void()> work);

private:
    struct Series {
        std::vector<Recorded*> calls;
        size_t next = 0;
    };

    Recording();

    void add(const Json& line, size_t number);
    Recorded* causeOf(const Json& event);
    void run();

    recording::Privacy mPrivacy;
    bool mIsFast;
    std::string mPath;
    std::deque<Recorded> mCalls;
    std::map<std::string, Series> mSeries;
    size_t mLine = 0;  ///< of the call that was found last

    // While the file is read.
    std::map<uint64_t, Recorded*> mByNumber;
    std::map<int64_t, Recorded*> mByToken;
    std::map<int64_t, Recorded*> mOpened;  ///< by service, until it has come up

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::multimap<uint64_t, std::function<void()>> mDue;
};

/** One call of the plug-in. */
class Call {
public:
    explicit Call(const char* function) : mFunction(function) {}

    void token(int64_t token) { mToken = token; }
    void events(modem_api_event_callback callback);
    void answers(const recording::Record& record, void* cookie, modem_api_async_callback callback);
    void begin();
    bool answered() const { return mRecorded != nullptr && mRecorded->result == 0; }
    int end();

    recording::Writer arguments{Recording::get().privacy()};
    Reader results;

private:
    void happen(const Happening& happening);

    const char* mFunction;
    std::optional<int64_t> mToken;
    const recording::Record* mAnswer = nullptr;
    void* mCookie = nullptr;
    modem_api_async_callback mCallback = nullptr;
    uint64_t mStart = 0;
    const Recorded* mRecorded = nullptr;
    bool mIsFirst = false;
};

}  // namespace replay
