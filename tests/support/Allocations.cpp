#include "tests/support/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bool tCounting = false;
thread_local int tPauses = 0;
thread_local bool tFailed = false;
thread_local size_t tCount = 0;
thread_local size_t tFailing = 0;

void* allocate(size_t size) {
    if (tCounting && tPauses == 0 && tCount++ == tFailing) {
        tFailed = true;
        return nullptr;
    }
    return malloc(size != 0 ? size : 1);
}

}  // namespace

void* operator new(size_t size) {
    void* memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](size_t size) {
    return operator new(size);
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}

void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    free(memory);
}

void operator delete[](void* memory) noexcept {
    free(memory);
}

void operator delete[](void* memory, size_t) noexcept {
    free(memory);
}

namespace allocations {

void start(size_t failing) {
    tFailing = failing;
    tCount = 0;
    tFailed = false;
    tCounting = true;
}

size_t stop() {
    tCounting = false;
    return tCount;
}

bool failed() {
    return tFailed;
}

Pause::Pause() {
    ++tPauses;
}

Pause::~Pause() {
    --tPauses;
}

}  // namespace allocations
