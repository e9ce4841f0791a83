#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/libmodemapi_vendor/include/modem_api.h"
#include "platform/libmodemapi_vendor/src/Commands.h"
#include "platform/libmodemapi_vendor/src/Text.h"

using sim::Bytes;

/** What came from the modem, in order; taken one by one, each waited for. */
template <class Item>
class Inbox {
public:
    void put(Item item) {
        std::lock_guard lock(mMutex);
        mItems.push_back(std::move(item));
        mChanged.notify_all();
    }
    Item take() {
        std::unique_lock lock(mMutex);
        if (!mChanged.wait_for(lock, std::chrono::seconds(20),
                               [this] { return !mItems.empty(); })) {
            ADD_FAILURE() << "nothing came";
            return {};
        }
        Item item = std::move(mItems.front());
        mItems.erase(mItems.begin());
        return item;
    }
    bool isEmpty() {
        std::lock_guard lock(mMutex);
        return mItems.empty();
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Item> mItems;
};

struct Event {
    modem_api_event_type number = -1;
    Bytes data;

    int32_t word(size_t offset) const;
};
bool operator==(const Event& event, const Event& other);

struct Answer {
    Bytes data;
    bool isNull = true;
    void* cookie = nullptr;

    uint32_t result() const { return *reinterpret_cast<const uint32_t*>(data.data() + 4); }
};

/** The modem as a plug-in finds it after start, with all services up and bound; knobs off. */
class Desk : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /** Runs a command that is to succeed; what it printed. */
    static std::string run(const std::string& line);
    static void onAnswer(const void* data, size_t length, void* cookie, modem_api_result_type);

    static Event serviceEvent(bool up, modem_api_qmi_service_type service);
    /** Opens or reopens what a plug-in asks of the modem once its services are up. */
    static void bindAndSubscribe();

    static Inbox<Event>& events;
    static Inbox<Answer>& answers;
};
