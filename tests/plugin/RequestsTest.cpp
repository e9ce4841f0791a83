// What every request logs on every path, since that is what people search for in the field. What it
// answers is followed by the generated schedules.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "params/Params.h"
#include "tests/support/Allocations.h"
#include "tests/support/Requests.h"
#include "tests/support/Service.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::vector<Request> requestsOf(const std::set<Way>& ways) {
    std::vector<Request> rows;
    std::copy_if(requests().begin(), requests().end(), std::back_inserter(rows),
                 [&](const Request& row) { return ways.count(row.way) != 0; });
    return rows;
}

}  // namespace

class RequestLog : public testing::TestWithParam<Request> {
protected:
    static constexpr int SERIAL = 7;

    RequestLog() {
        for (size_t i = 1; i < row.method->argCount; ++i) {
            const auto kind = row.method->args[i].type->kind;
            const bool isNumber = kind < hal::Type::Kind::STRING;
            const bool isText = kind == hal::Type::Kind::STRING;
            arguments.push_back(isNumber ? "5" : isText ? "n" : "hex:6e");
            values.push_back({isNumber ? 5 : 0, isNumber ? "" : "n"});
        }
        name[0] = static_cast<char>(toupper(name[0]));
    }

    void call() {
        service.call(row.name, SERIAL, arguments);
        Service::runAll();
    }
    std::string handler(const std::string& line) const {
        return (row.handler != nullptr ? row.handler : "handle" + name + "Message") + ": " + line;
    }
    Lines entryLines() const {
        const std::string state = row.service == SAR ? ", state = 5" : "";
        Lines lines{std::string("I ModemImpl::") + row.name + ": serial = 7" + state};
        if (row.entry != nullptr) {
            lines.push_back(std::string("I ") + row.name + ": " +
                            filled(row.entry, row, SERIAL, values));
        }
        return lines;
    }
    Lines arrivalLines() const {
        return entryLines() + Lines{"I handle: " + className() +
                                    " is handling message: " + std::to_string(row.id)};
    }
    std::string className() const {
        std::string text = ModemImpl::getQmiServiceName(row.service);
        for (size_t i = 1; i < text.size(); ++i) {
            text[i] = static_cast<char>(tolower(text[i]));
        }
        return text + "QmiClient";
    }
    /** Lines of a response; those of synchronous methods tell their number, too. */
    Lines respondLines(int err) const {
        const std::string self = "I respond" + name + ": ";
        const bool tells = row.payload == Payload::WORD && row.service != VS;
        const std::string number =
                tells ? std::string(", ") + row.response->args[1].name + " = 0" : "";
        return {self + "serial = 7, err = " + std::to_string(err) + number, self + "succeed"};
    }
    std::string callbackLine() const {
        return "I modemApiAsyncCallback: processing modem api VS async callback data for message " +
               std::to_string(row.id);
    }
    /** What is told of the arguments before the modem is called. */
    Lines argumentLines() const {
        const std::string line = name == "GetMetaMbnInfo" ? "data length = 5"
                                 : name == "SelectMbnExt" ? "config length = 5"
                                 : row.service == SAR     ? "sar state = 5"
                                                          : "";
        return line.empty() ? Lines{} : Lines{"I " + handler(line)};
    }

    const Request& row = GetParam();
    std::string name = row.name;
    Lines arguments;
    std::vector<Value> values;
    Service service;
};
const auto NAME_OF = [](const auto& info) { return info.param.name; };
INSTANTIATE_TEST_SUITE_P(All, RequestLog, testing::ValuesIn(requests()), NAME_OF);

class ModemLog : public RequestLog {};
INSTANTIATE_TEST_SUITE_P(All, ModemLog,
                         testing::ValuesIn(requestsOf({Way::SYNC, Way::ASYNC, Way::TOKEN})),
                         NAME_OF);

class AsyncLog : public RequestLog {};
INSTANTIATE_TEST_SUITE_P(All, AsyncLog, testing::ValuesIn(requestsOf({Way::ASYNC})), NAME_OF);

TEST_P(ModemLog, TellsAnAnswer) {
    call();
    EXPECT_THAT(service.modem.calls(), ElementsAre(filled(row.call, row, SERIAL, values)));
    Lines expected = arrivalLines() + argumentLines() + Lines{"I " + handler(row.done)};
    if (row.way == Way::ASYNC) {
        const modem_async_response response{};
        ASSERT_TRUE(service.modem.answer(&response, sizeof(response)));
        expected.push_back(callbackLine());
    } else if (row.way == Way::TOKEN) {
        const modem_pdc_meta_info_event event{0, 0, SERIAL, {}, 0};
        service.raise(row.event, event);
        const std::string what = row.event == 17   ? "get-active-mbn-info"
                                 : row.event == 18 ? "get-meta-mbn-info"
                                                   : "activate-regular-mbn";
        expected = expected + Lines{"I received modem api event " + std::to_string(row.event),
                                    "I async response for " + what + " reported",
                                    "I respond" + name + "Async: token is 7"};
    }
    EXPECT_EQ(service.log.take(), expected + respondLines(0));
}

TEST_P(ModemLog, TellsThatItWasRefusedOrTheServiceIsNotConnected) {
    const bool isSilent = row.event == 17;  // an event alone answers it
    const std::string function(row.call, strcspn(row.call, "("));
    service.modem.returns(function, {1});
    call();
    Lines expected = arrivalLines() + argumentLines();
    if (*row.refused != '\0') {
        expected.push_back((row.event == 18 ? "I " : "E ") + handler(row.refused));
    }
    EXPECT_EQ(service.log.take(), isSilent ? expected : expected + respondLines(1));
    service.disconnect(row.service);
    service.log.take();
    call();
    const std::string line = ModemImpl::getQmiServiceName(row.service);
    expected = arrivalLines() + Lines{"E " + handler(line + " QMI service not connected")};
    const int err = row.service == PDC ? 1 : 4;
    EXPECT_EQ(service.log.take(), isSilent ? expected : expected + respondLines(err));
}

TEST_P(AsyncLog, TellsABadAnswer) {
    const char* const end = name == "AbortRRCConnection" ? "Response" : "AsyncResponse";
    for (const uint32_t result : {0, 3, 5, -1}) {  // after success, one byte is missing
        call();
        service.log.take();
        const modem_async_response response{0, result, {}};
        ASSERT_TRUE(service.modem.answer(&response, sizeof(response) - (result == 0 ? 1 : 0)));
        const std::string what = result == 0 ? "data request" : "result";
        const Lines expected{
                callbackLine(),
                "E verifyModemAPIResponse: invalid async response " + what + ", can't process",
                "E process" + name + end + ": invalid async response data"};
        const int err = result == 5 ? 2 : result == 0 || result == 3 ? 3 : 1;
        EXPECT_EQ(service.log.take(), expected + respondLines(err));
    }
}

TEST_P(RequestLog, TellsAWrongRecordWhichHasNoAnswer) {
    const auto client = ModemImpl::getQmiClient(row.service);
    const std::shared_ptr<Param> wrong[] = {nullptr, std::make_shared<AtCommandParam>(nullptr, 0),
                                            std::make_shared<SerialBoolParam>(7, true)};
    for (const auto& record : wrong) {
        if (row.service == AT && record && record->isType(SerialParam::RTTI_TYPE)) {
            continue;  // takes any record with a serial
        }
        EXPECT_EQ(client->handle(Message::obtain(row.id, client, record, nullptr)), 3);
        EXPECT_EQ(service.log.take()[1], "E " + handler("invalid parameter"));
    }
    EXPECT_THAT(service.modem.calls(), IsEmpty());
    EXPECT_THAT(service.client.take(), IsEmpty());
}

TEST_P(RequestLog, TellsWhatCouldNotBePosted) {
    const std::string id = std::to_string(row.id);
    const std::string self = std::string("E ") + row.name + ": failed to ";
    const bool isById = row.posts == Posts::BY_ID;
    desk::setQueueLimit(0);
    call();
    EXPECT_EQ(service.log.take(),
              entryLines() +
                      Lines{isById ? "E Failed to dispatch msg " + id + ", serial = 7"
                            : row.posts == Posts::BY_NAME ? self + "dispatch msg, serial = 7"
                                                          : self + "dispatch serial = 7"} +
                      respondLines(desk::DISPATCH_QUEUE_FULL));
    size_t failing = 0;
    service.log.onLine([&](const std::string& line) {
        if (line.rfind("I ModemImpl::", 0) == 0) {
            allocations::start(failing++);
        }
    });
    while (failing < 4) {
        call();
        allocations::stop();
    }
    EXPECT_THAT(service.log.take(),
                Contains(isById ? "E Failed to alloc new param or message for msg id " + id
                                : self + "alloc new param or message"));
}

TEST(Response, TellsThatNobodyTookIt) {
    Service service;
    service.install(nullptr, service.client.indications);
    const auto last = [&] {
        service.call("getOperatingMode", 7);
        Service::runAll();
        return service.log.take().back();
    };
    EXPECT_EQ(last(), "E respondGetOperatingMode: respCb null, can't send response");
    const auto gone = [](auto, auto&) {
        return android::hardware::Status::fromStatusT(android::DEAD_OBJECT, "gone");
    };
    service.install(new TextClient::ResponseProxy(std::make_shared<Channel>(gone), 1), nullptr);
    EXPECT_THAT(last(), HasSubstr("E respondGetOperatingMode: exception = "));
}
