#include "Ledger.h"

#include <algorithm>

void Ledger::plan(const hal::Method& request) {
    const std::lock_guard guard(mLock);
    mEntries.push_back({&request});
}

int32_t Ledger::next() const {
    const std::lock_guard guard(mLock);
    return static_cast<int32_t>(mEntries.size());
}

void Ledger::answer(int32_t serial, const std::string& method, int32_t error) {
    const std::lock_guard guard(mLock);
    const bool isKnown = serial >= 0 && static_cast<size_t>(serial) < mEntries.size();
    Entry* entry = isKnown ? &mEntries[static_cast<size_t>(serial)] : nullptr;
    const bool isOwn = isKnown && entry->request->name + std::string("Response") == method;
    if (isOwn && !entry->answered) {
        entry->answered = true;
        ++mTotals.answered;
        mTotals.errors += error != 0 ? 1 : 0;
        return;
    }
    ++(isOwn ? mTotals.doubled : mTotals.misrouted);
    if (mTotals.first.empty()) {
        mTotals.first = method + (isOwn ? " came twice" : " came") + " for serial " +
                        std::to_string(serial) + (isKnown ? ", a " : ", which nobody used") +
                        (isKnown ? entry->request->name : "");
    }
}

void Ledger::excuse(int32_t from, int32_t to) {
    const std::lock_guard guard(mLock);
    std::for_each(mEntries.begin() + from, mEntries.begin() + to,
                  [](Entry& entry) { entry.excused = true; });
}

bool Ledger::isDue(int32_t from, int32_t to) const {
    const std::lock_guard guard(mLock);
    return std::any_of(mEntries.begin() + from, mEntries.begin() + to,
                       [](const Entry& entry) { return !entry.answered && !entry.excused; });
}

Ledger::Totals Ledger::totals() const {
    const std::lock_guard guard(mLock);
    Totals totals = mTotals;
    for (size_t serial = 0; serial < mEntries.size(); ++serial) {
        const Entry& entry = mEntries[serial];
        if (entry.answered) {
            continue;
        }
        ++(entry.excused ? totals.excused : totals.lost);
        if (!entry.excused && totals.first.empty()) {
            totals.first = std::string("no answer to ") + entry.request->name + ", serial " +
                           std::to_string(serial);
        }
    }
    return totals;
}
