#include "Knobs.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "ApiFunctions.h"

namespace fake {

namespace {

int takeFailure(Knobs& knobs) {
    if (knobs.failTimes == 0) {
        return 0;
    }
    if (knobs.failAfter > 0) {
        --knobs.failAfter;
        return 0;
    }
    --knobs.failTimes;
    return knobs.failCode;
}

}  // namespace

int KnobBoard::enter(std::string_view function, bool blocks) {
    Milliseconds pause{0};
    int code = 0;
    {
        std::lock_guard lock(mMutex);
        Knobs& knobs = entry(function);
        ++knobs.calls;
        code = takeFailure(knobs);
        pause = blocks && knobs.delay ? draw(knobs) : pause;
    }
    if (pause > Milliseconds(0)) {
        std::this_thread::sleep_for(pause);
    }
    return code;
}

Milliseconds KnobBoard::answerDelay(std::string_view function, Milliseconds ordinary) {
    std::lock_guard lock(mMutex);
    const Knobs& knobs = entry(function);
    if (knobs.silent) {
        return NEVER;
    }
    return knobs.delay ? draw(knobs) : ordinary;
}

Bytes KnobBoard::shape(std::string_view function, const void* record, size_t size) {
    const auto* from = static_cast<const uint8_t*>(record);
    Bytes bytes(from, from + size);
    std::lock_guard lock(mMutex);
    const Knobs& knobs = entry(function);
    for (const auto& [offset, patch] : knobs.patches) {
        bytes.resize(std::max(bytes.size(), offset + patch.size()));
        std::copy(patch.begin(), patch.end(), bytes.begin() + static_cast<ptrdiff_t>(offset));
    }
    bytes.resize(knobs.recordSize.value_or(bytes.size()));
    bytes.shrink_to_fit();  // no room behind the end, so that a sanitizer sees reads beyond it
    return bytes;
}

void KnobBoard::clear() {
    std::lock_guard lock(mMutex);
    mKnobs.clear();
}

std::map<std::string, Knobs, std::less<>> KnobBoard::all() const {
    std::lock_guard lock(mMutex);
    return mKnobs;
}

void KnobBoard::checkFunction(const std::string& function) {
    if (std::find(std::begin(API_FUNCTIONS), std::end(API_FUNCTIONS), function) ==
        std::end(API_FUNCTIONS)) {
        throw std::invalid_argument("the modem API has no function '" + function +
                                    "'; 'help functions' lists them");
    }
}

Knobs& KnobBoard::entry(std::string_view function) {
    const auto found = mKnobs.find(function);
    return found != mKnobs.end() ? found->second : mKnobs[std::string(function)];
}

Milliseconds KnobBoard::draw(const Knobs& knobs) {
    std::uniform_int_distribution<int64_t> range(knobs.delay->first.count(),
                                                 knobs.delay->second.count());
    return Milliseconds(range(mRandom));
}

}  // namespace fake
