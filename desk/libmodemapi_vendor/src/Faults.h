#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "Scheduler.h"
#include "Text.h"

namespace fake {

/** How one function of the modem API is made to misbehave, and how often it was called. */
struct Fault {
    uint64_t calls = 0;
    int failCode = 0;
    uint64_t failAfter = 0;  ///< calls that still succeed before the failing ones
    uint64_t failTimes = 0;  ///< calls that fail
    /** Bounds of a random time: how long a synchronous call lasts, or an answer waits. */
    std::optional<std::pair<Milliseconds, Milliseconds>> delay;
    bool silent = false;               ///< the answer never comes
    std::map<size_t, Bytes> patches;   ///< written over the answer, by offset
    std::optional<size_t> recordSize;  ///< the answer is cut or extended to it
};

/** The faults of all functions, by the functions' C names. Callable from any thread. */
class Faults {
public:
    /** Starts a call: counts it, blocks for its delay if `blocks`, gives its failure code or 0. */
    int enter(const std::string& function, bool blocks);

    /** How long the answer of `function` waits; `ordinary` unless a fault says otherwise. */
    Milliseconds answerDelay(const std::string& function, Milliseconds ordinary);

    /** The record as the faults have it: patched, then cut or extended with zeros. */
    Bytes shape(const std::string& function, const void* record, size_t size);

    /** Throws std::invalid_argument when the modem API has no such function. */
    template <class Change>
    void edit(const std::string& function, Change&& change) {
        checkFunction(function);
        std::lock_guard lock(mMutex);
        change(mFaults[function]);
    }

    /** All faults off and all counts zero. */
    void clear();

    std::map<std::string, Fault> all() const;

private:
    static void checkFunction(const std::string& function);
    Milliseconds draw(const Fault& fault);

    mutable std::mutex mMutex;
    std::map<std::string, Fault> mFaults;
    std::mt19937 mRandom;
};

}  // namespace fake
