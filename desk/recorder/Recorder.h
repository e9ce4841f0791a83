#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "Record.h"

namespace recorder {

/** A request whose answer has not come. */
struct Waiting {
    const recording::Record* record;
    void* cookie;
    modem_api_async_callback callback;
};

/**
 * The one recording of the process, and the real library behind it. Whoever records hands over a
 * line and goes on: a thread writes, and what finds no room in the buffer or on the disk is
 * counted.
 */
class Recorder {
public:
    static constexpr int REFUSED = MODEM_API_RESULT_FAILURE;

    /** Lives until the process ends, as the modem's threads do. */
    static Recorder& get();

    /** The real function; null when the real library cannot be loaded or has none. */
    void* find(const char* function);
    const recording::Privacy& privacy() const { return mPrivacy; }

    uint64_t await(const Waiting& waiting);
    /** False when no such request waits. */
    bool take(uint64_t number, Waiting& waiting);

    /** Records `members`, with time and thread before them. */
    void write(const char* kind, uint64_t number, const std::string& members);
    /** Writes what is in the buffer, and ends. */
    void stop();

private:
    Recorder();

    void run();
    uint64_t writeOut(const std::string& lines);
    bool append(const char* data, size_t size);
    void openNext();
    std::string firstLine() const;

    recording::Privacy mPrivacy;
    void* mReal = nullptr;
    std::string mTrouble;  ///< why there is no real library
    std::string mPath;
    uint64_t mFileSize;  ///< at which a file is closed
    uint64_t mFiles;     ///< so many are kept

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::string mBuffer;
    uint64_t mDropped = 0;
    bool mStopped = false;
    std::unordered_map<uint64_t, Waiting> mWaiting;
    uint64_t mLastNumber = 0;

    // The writing thread's.
    int mFile = -1;
    uint64_t mWritten = 0;  ///< bytes in the file
    uint64_t mTold = 0;     ///< of the dropped ones
    std::thread mThread;
};

/** One call on its way through. */
class Call {
public:
    explicit Call(const char* function) : mFunction(function) {}

    void token(int64_t token) { mExtra = ",\"token\":" + std::to_string(token); }
    /** The callback that the real library gets in place of the caller's. */
    modem_api_event_callback events(modem_api_event_callback callback);
    /** Puts cookie and callback of its own in place of the caller's. */
    void answers(const recording::Record& record, void*& cookie,
                 modem_api_async_callback& callback);
    void begin();
    int end(int result);

    recording::Writer arguments{Recorder::get().privacy()};
    recording::Writer results{Recorder::get().privacy()};

private:
    const char* mFunction;
    std::string mExtra;
    bool mIsAnswered = false;
    uint64_t mNumber = 0;
};

}  // namespace recorder
