#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <hidl/Table.h>
#include <hidl/Transport.h>
#include <vendor/lyr/modem/1.0/IModem.h>
#include <vendor/lyr/modem/1.0/table.h>

/**
 * A client in this process, without a socket. What it is sent it keeps as JSON lines, as the client
 * command prints them; requests are made by name with text arguments.
 */
class TextClient {
public:
    using IModem = vendor::lyr::modem::V1_0::IModem;
    using IModemIndication = vendor::lyr::modem::V1_0::IModemIndication;
    using IModemResponse = vendor::lyr::modem::V1_0::IModemResponse;

    TextClient();

    /** The client's callbacks. They may outlive it. */
    android::sp<IModemResponse> responses() const { return mResponses; }
    android::sp<IModemIndication> indications() const { return mIndications; }

    /** Makes every call to a callback fail with this description, "" for none. */
    void failWith(const std::string& description);

    /** What came so far, taken out. */
    std::vector<std::string> take();

    /** Waits until `count` calls came; those that are there are taken out. */
    std::vector<std::string> waitFor(size_t count);

    /** Calls a request by name, as a client's call arrives; throws on bad arguments. */
    static void call(const android::sp<IModem>& modem, const std::string& method, int32_t serial,
                     const std::vector<std::string>& arguments);

    struct Inbox;  ///< for the channels

private:
    std::shared_ptr<Inbox> mInbox;
    android::sp<IModemResponse> mResponses;
    android::sp<IModemIndication> mIndications;
};

/** The JSON line of an answer with a coarse error; `payload` are further members, or "". */
std::string answerLine(const std::string& method, int serial, int error,
                       const std::string& payload);
