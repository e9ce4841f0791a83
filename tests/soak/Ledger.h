#pragma once

#include <hidl/Table.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

/**
 * What became of every request of all processes. A request's serial is its place here. Any thread
 * may call any method.
 */
class Ledger {
public:
    struct Totals {
        size_t answered = 0;
        size_t errors = 0;     ///< answered with an error, as provoked or refused
        size_t excused = 0;    ///< unanswered, with the reason told to `excuse`
        size_t lost = 0;       ///< unanswered without a reason
        size_t doubled = 0;    ///< answers beyond the first
        size_t misrouted = 0;  ///< answers of another method, or to a serial that nobody used
        std::string first;     ///< the first one of the last three, for a person
    };

    /** Enters a request that will be sent. */
    void plan(const hal::Method& request);

    /** The serial of the next request that is entered. */
    int32_t next() const;

    /** Takes an answer by its method's name. */
    void answer(int32_t serial, const std::string& method, int32_t error);

    /** The answers to these may stay away: their client, or the owner of the callbacks, has gone.
     */
    void excuse(int32_t from, int32_t to);

    /** An answer in this range is still to come. */
    bool isDue(int32_t from, int32_t to) const;

    Totals totals() const;

private:
    struct Entry {
        const hal::Method* request;
        bool answered = false;
        bool excused = false;
    };

    mutable std::mutex mLock;
    std::vector<Entry> mEntries;
    Totals mTotals;
};
