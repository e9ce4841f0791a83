#include "Faults.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "ApiFunctions.h"

namespace fake {

namespace {

int takeFailure(Fault& fault) {
    if (fault.failTimes == 0) {
        return 0;
    }
    if (fault.failAfter > 0) {
        --fault.failAfter;
        return 0;
    }
    --fault.failTimes;
    return fault.failCode;
}

}  // namespace

int Faults::enter(const std::string& function, bool blocks) {
    Milliseconds pause{0};
    int code = 0;
    {
        std::lock_guard lock(mMutex);
        Fault& fault = mFaults[function];
        ++fault.calls;
        code = takeFailure(fault);
        pause = blocks && fault.delay ? draw(fault) : pause;
    }
    std::this_thread::sleep_for(pause);
    return code;
}

Milliseconds Faults::answerDelay(const std::string& function, Milliseconds ordinary) {
    std::lock_guard lock(mMutex);
    const Fault& fault = mFaults[function];
    if (fault.silent) {
        return NEVER;
    }
    return fault.delay ? draw(fault) : ordinary;
}

Bytes Faults::shape(const std::string& function, const void* record, size_t size) {
    const auto* from = static_cast<const uint8_t*>(record);
    Bytes bytes(from, from + size);
    std::lock_guard lock(mMutex);
    const Fault& fault = mFaults[function];
    for (const auto& [offset, patch] : fault.patches) {
        bytes.resize(std::max(bytes.size(), offset + patch.size()));
        std::copy(patch.begin(), patch.end(), bytes.begin() + static_cast<ptrdiff_t>(offset));
    }
    bytes.resize(fault.recordSize.value_or(bytes.size()));
    bytes.shrink_to_fit();  // no room behind the end, so that a sanitizer sees reads beyond it
    return bytes;
}

void Faults::clear() {
    std::lock_guard lock(mMutex);
    mFaults.clear();
}

std::map<std::string, Fault> Faults::all() const {
    std::lock_guard lock(mMutex);
    return mFaults;
}

void Faults::checkFunction(const std::string& function) {
    if (std::find(std::begin(API_FUNCTIONS), std::end(API_FUNCTIONS), function) ==
        std::end(API_FUNCTIONS)) {
        throw std::invalid_argument("the modem API has no function '" + function +
                                    "'; 'calls' lists them");
    }
}

Milliseconds Faults::draw(const Fault& fault) {
    std::uniform_int_distribution<int64_t> range(fault.delay->first.count(),
                                                 fault.delay->second.count());
    return Milliseconds(range(mRandom));
}

}  // namespace fake
