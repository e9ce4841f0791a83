#include "tests/support/TextClient.h"

#include <vendor/lyr/modem/1.0/transport.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "tests/support/Channel.h"
#include "tools/modemctl/Values.h"

using android::sp;
using android::hardware::Return;
using android::hardware::Status;
using namespace vendor::lyr::modem::V1_0;

struct TextClient::Inbox {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<std::string> lines;
    std::string failure;
};

namespace {

/** A channel to the inbox, whose lines are the calls of this interface. */
std::shared_ptr<Channel> channel(const std::shared_ptr<TextClient::Inbox>& inbox,
                                 const hal::Interface& interface) {
    return std::make_shared<Channel>(
            [inbox, &interface](uint32_t code, hal::Parcel& args) -> Return<void> {
                const hal::Method& method = interface.methods[code - 1];
                hal::Parcel reading(nullptr, args.data(), args.size());
                nlohmann::ordered_json arguments;
                if (!values::decode(reading, method, arguments)) {
                    throw std::logic_error(std::string("undecodable call of ") + method.name);
                }
                nlohmann::ordered_json line{{"method", method.name}};
                line.update(arguments);
                std::lock_guard lock(inbox->mutex);
                if (!inbox->failure.empty()) {
                    return Status::fromStatusT(android::DEAD_OBJECT, inbox->failure);
                }
                inbox->lines.push_back(values::line(line));
                inbox->arrived.notify_all();
                return android::hardware::Void();
            });
}

}  // namespace

TextClient::TextClient()
    : mInbox(std::make_shared<Inbox>()),
      mResponses(new BpHwModemResponse(channel(mInbox, IModemResponse_table), 1)),
      mIndications(new BpHwModemIndication(channel(mInbox, IModemIndication_table), 1)) {
}

void TextClient::failWith(const std::string& description) {
    std::lock_guard lock(mInbox->mutex);
    mInbox->failure = description;
}

std::vector<std::string> TextClient::take() {
    std::lock_guard lock(mInbox->mutex);
    return std::exchange(mInbox->lines, {});
}

std::vector<std::string> TextClient::waitFor(size_t count) {
    std::unique_lock lock(mInbox->mutex);
    mInbox->arrived.wait_for(lock, std::chrono::seconds(30),
                             [&] { return mInbox->lines.size() >= count; });
    return std::exchange(mInbox->lines, {});
}

void TextClient::call(const sp<IModem>& modem, const std::string& method, int32_t serial,
                      const std::vector<std::string>& arguments) {
    const auto* end = IModem_table.methods + IModem_table.methodCount;
    const auto* found = std::find_if(IModem_table.methods, end,
                                     [&](const hal::Method& row) { return row.name == method; });
    hal::Parcel written;
    values::encode(written, *found, serial, arguments);
    hal::Parcel read(nullptr, written.data(), written.size());
    hal::Parcel reply;
    const sp<hal::Stub> stub(new hal::InterfaceStub<IModem>(modem));
    if (!stub->onTransact(found->code, read, reply)) {
        throw std::logic_error("undecodable call of " + method);
    }
}

std::string answerLine(const std::string& method, int serial, int error,
                       const std::string& payload) {
    return R"({"method":")" + method + R"(Response","info":{"type":0,"serial":)" +
           std::to_string(serial) + R"(,"error":)" + std::to_string(error) + "}" + payload + "}";
}
