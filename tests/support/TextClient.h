#pragma once

#include <vendor/lyr/modem/1.0/transport.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "desk/modemctl/Api.h"
#include "desk/modemctl/Values.h"
#include "tests/support/Channel.h"

/**
 * A client's callbacks in this process, without a socket. What they are sent is kept as JSON lines,
 * as the client command prints them.
 */
class TextClient {
    /** Of the callbacks, which may outlive the client. */
    struct Inbox {
        std::mutex mutex;
        std::vector<std::string> lines;
    };
    const std::shared_ptr<Inbox> mInbox = std::make_shared<Inbox>();

public:
    using IModemIndication = vendor::lyr::modem::V1_0::IModemIndication;
    using IModemResponse = vendor::lyr::modem::V1_0::IModemResponse;
    using ResponseProxy = vendor::lyr::modem::V1_0::BpHwModemResponse;
    using IndicationProxy = vendor::lyr::modem::V1_0::BpHwModemIndication;

    const android::sp<IModemResponse> responses{new ResponseProxy(channel(api::ANSWERS), 1)};
    const android::sp<IModemIndication> indications{new IndicationProxy(channel(api::EVENTS), 1)};

    /** What came so far, taken out. */
    std::vector<std::string> take() {
        std::lock_guard lock(mInbox->mutex);
        return std::exchange(mInbox->lines, {});
    }

private:
    /** To the inbox, whose lines are the calls of this interface. */
    std::shared_ptr<Channel> channel(const hal::Interface& interface) const {
        return std::make_shared<Channel>(
                [inbox = mInbox, &interface](uint32_t code, hal::Parcel& args) {
                    const hal::Method& method = interface.methods[code - 1];
                    hal::Parcel reading(nullptr, args.data(), args.size());
                    nlohmann::ordered_json line{{"method", method.name}}, arguments;
                    if (!values::decode(reading, method, arguments)) {
                        throw std::logic_error(std::string("undecodable call of ") + method.name);
                    }
                    line.update(arguments);
                    std::lock_guard lock(inbox->mutex);
                    inbox->lines.push_back(values::line(line));
                    return android::hardware::Void();
                });
    }
};
