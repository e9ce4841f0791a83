#pragma once

#include <hidl/Table.h>
#include <hidl/Transport.h>

#include <atomic>
#include <random>

/** The requests of one client, in their order: the same seed makes the same ones. */
class Requests {
public:
    /** @param file an existing file, for the requests that take a path */
    Requests(uint64_t seed, std::string file) : mRandom(seed), mFile(std::move(file)) {}

    /** Draws one of all requests and writes its arguments. */
    const hal::Method& next(hal::Parcel& arguments, int32_t serial);

    /** Draws a number below the limit. */
    uint32_t draw(uint32_t limit) { return static_cast<uint32_t>(mRandom() % limit); }

private:
    void write(hal::Parcel& parcel, const hal::Field& argument);

    std::mt19937_64 mRandom;
    const std::string mFile;
};

/** What a client process is told on its command line. */
struct Job {
    uint64_t seed = 0;
    int32_t serial = 0;  ///< of its first request
    int32_t requests = 0;
    uint32_t pause = 0;  ///< between two requests, up to so many microseconds
    bool owns = false;   ///< takes the callbacks, and drops the answers
};

/** Requests that a client process has begun; in memory that it shares with its parent. */
using Begun = std::atomic<int32_t>;

/** The work of a client process: it waits for its end by a signal after its last request. */
void runClient(int instance, const std::string& file, const Job& job, Begun& begun);
