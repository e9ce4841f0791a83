#pragma once

#include <cstddef>

/**
 * Counts and fails what this thread allocates; `operator new` is this test program's own. What the
 * test's own doubles allocate does not count: they hold a `Pause`.
 */
namespace allocations {

/** Starts to count; the allocation of index `failing` throws std::bad_alloc, once. */
void start(size_t failing = static_cast<size_t>(-1));

/** Stops, and returns how many were counted. */
size_t stop();

/** Whether one was made to fail since the start. */
bool failed();

class Pause {
public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
};

}  // namespace allocations
