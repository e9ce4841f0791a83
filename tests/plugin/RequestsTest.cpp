// Every request, on every path: what the modem is asked, what is logged, what the client gets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "params/Params.h"
#include "tests/plugin/RequestTable.h"
#include "tests/support/Allocations.h"
#include "tests/support/Service.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Lines = std::vector<std::string>;

std::string className(const RequestRow& row) {
    return std::string(row.client) + "QmiClient";
}

std::string respondName(const RequestRow& row) {
    std::string name = row.method;
    name[0] = static_cast<char>(toupper(name[0]));
    return "respond" + name;
}

/** The lines of a response; four methods tell their number, too. */
Lines respondLines(const RequestRow& row, int err, const std::string& payload,
                   const std::string& end = "succeed") {
    std::string first = "I " + respondName(row) + ": serial = 7, err = " + std::to_string(err);
    const std::string method = row.method;
    if (method == "getNRNetworkMode" || method == "getVoNRMode" || method == "getOperatingMode" ||
        method == "isImsProfileNormal") {
        first += method == "isImsProfileNormal" ? ", result = " : ", mode = ";
        first += payload.substr(payload.find(':') + 1);
    }
    return {first, std::string(end == "succeed" ? "I " : "E ") + respondName(row) + ": " + end};
}

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Lines entryLines(const RequestRow& row) {
    Lines lines{std::string("I ModemImpl::") + row.method + ": serial = 7"};
    if (std::string(row.method) == "setSarState") {
        lines[0] += ", state = -3";
    }
    if (*row.entry != '\0') {
        lines.push_back(std::string("I ") + row.method + ": " + row.entry);
    }
    return lines;
}

Lines handlingLines(const RequestRow& row) {
    return {"I handle: " + className(row) + " is handling message: " + std::to_string(row.id)};
}

std::string functionOf(const RequestRow& row) {
    return std::string(row.modemCall).substr(0, std::string(row.modemCall).find('('));
}

/** The response that the modem gives to an asynchronous request, as the table's payloads tell. */
modem_async_response responseOf(const RequestRow& row) {
    modem_async_response response{};
    const std::string method = row.method;
    if (method == "getBuildTime" || method == "getBuildId") {
        response.payload.build = {9, "built\0x"};
    } else if (method == "getModemProperty") {
        std::string("kept").copy(response.payload.property_value, 4);
    } else if (method == "getBandsInfo") {
        response.payload.bands.count1 = 3;
        response.payload.bands.bands1[0] = 1;
        response.payload.bands.bands1[1] = 3;
        response.payload.bands.bands1[2] = 7;
        response.payload.bands.count3 = 51;
        response.payload.bands.count5 = 1;
        response.payload.bands.bands5[0] = 78;
    } else {
        response.payload.agps_test_mode = 9;
    }
    return response;
}

struct TokenEvent {
    modem_api_event_type number;
    const char* line;
    const char* function;
    size_t size;
};

TokenEvent tokenEventOf(const RequestRow& row) {
    switch (row.id) {
        case 1:
            return {17, "async response for get-active-mbn-info reported",
                    "respondGetActiveMbnInfoAsync", sizeof(modem_pdc_active_info_event)};
        case 2:
            return {18, "async response for get-meta-mbn-info reported",
                    "respondGetMetaMbnInfoAsync", sizeof(modem_pdc_meta_info_event)};
        default:
            return {22, "async response for activate-regular-mbn reported",
                    "respondActivateRegularMbnAsync", sizeof(modem_pdc_activate_regular_event)};
    }
}

void raiseToken(Service& service, const TokenEvent& event) {
    modem_pdc_meta_info_event data{};  // the longest; all begin alike
    data.token = ROW_SERIAL;
    data.metadata[0] = 'A';
    data.metadata[1] = 'B';
    data.metadata_length = 2;
    modem_pdc_active_info_event active{0, 0, ROW_SERIAL, {'A', 'B'}, 2};
    service.modem.raise(event.number,
                        event.number == 17 ? static_cast<const void*>(&active) : &data, event.size);
}

template <class Condition>
std::vector<RequestRow> rowsWhere(Condition condition) {
    std::vector<RequestRow> rows;
    std::copy_if(requestTable().begin(), requestTable().end(), std::back_inserter(rows), condition);
    return rows;
}

std::string nameOf(const testing::TestParamInfo<RequestRow>& info) {
    return info.param.method;
}

}  // namespace

class Request : public testing::TestWithParam<RequestRow> {
protected:
    const RequestRow& row = GetParam();
    std::string answer(int error, const std::string& payload) const {
        return answerLine(row.method, ROW_SERIAL, error, payload);
    }
    bool hasStyle(Style style) const { return row.style == style; }
    bool isActiveInfo() const { return row.method == std::string("getActiveMbnInfo"); }
};
INSTANTIATE_TEST_SUITE_P(All, Request, testing::ValuesIn(requestTable()), nameOf);

// Families that leave out the requests that tests of their own show.
class HandedOn : public Request {};
class AskingTheModem : public Request {};
class NeedingTheService : public Request {};
class OfOptionalClients : public Request {};
INSTANTIATE_TEST_SUITE_P(All, HandedOn, testing::ValuesIn(rowsWhere([](const RequestRow& row) {
                             return row.style != Style::OWN;
                         })),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(All, AskingTheModem,
                         testing::ValuesIn(rowsWhere([](const RequestRow& row) {
                             return *row.modemCall != '\0';
                         })),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(All, NeedingTheService,
                         testing::ValuesIn(rowsWhere([](const RequestRow& row) {
                             return *row.modemCall != '\0' ||
                                    row.method == std::string("loadMbnConfig");
                         })),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(All, OfOptionalClients,
                         testing::ValuesIn(rowsWhere([](const RequestRow& row) {
                             const std::string client = row.client;
                             return client == "At" || client == "Pdc" || client == "Sar";
                         })),
                         nameOf);

void PrintTo(const RequestRow& row, std::ostream* out) {
    *out << row.method;
}

TEST_P(HandedOn, IsForwardedOnceAndAnsweredOnce) {
    Service service;
    scriptModem();
    service.call(row.method, ROW_SERIAL, row.arguments);
    EXPECT_THAT(service.modem.calls(), IsEmpty()) << "an entry point only posts";
    Service::runAll();

    EXPECT_THAT(service.modem.calls(), ElementsAre(row.modemCall));
    Lines expected = entryLines(row) + handlingLines(row);
    for (const std::string& line : row.lines) {
        expected.push_back(std::string("I ") + row.handler + ": " + line);
    }
    if (hasStyle(Style::ASYNC)) {
        EXPECT_THAT(service.client.take(), IsEmpty());
        ASSERT_TRUE(service.modem.answer(responseOf(row)));
        expected.push_back(
                "I modemApiAsyncCallback: processing modem api VS async callback data for "
                "message " +
                std::to_string(row.id));
    } else if (hasStyle(Style::TOKEN)) {
        EXPECT_THAT(service.client.take(), IsEmpty());
        const TokenEvent event = tokenEventOf(row);
        raiseToken(service, event);
        expected = expected + Lines{"I received modem api event " + std::to_string(event.number),
                                    std::string("I ") + event.line,
                                    std::string("I ") + event.function + ": token is 7"};
    }
    EXPECT_EQ(service.log.take(), expected + respondLines(row, 0, row.payload));
    EXPECT_THAT(service.client.take(), ElementsAre(answer(0, row.payload)));
}

TEST_P(AskingTheModem, Refuses) {
    Service service;
    scriptModem();  // values that the modem writes although it fails
    service.modem.returns(functionOf(row), 1);
    service.call(row.method, ROW_SERIAL, row.arguments);
    Service::runAll();

    EXPECT_THAT(service.modem.calls(), ElementsAre(row.modemCall));
    Lines expected = entryLines(row) + handlingLines(row);
    for (size_t i = 0; i + 1 < row.lines.size(); ++i) {  // all but the one that tells success
        expected.push_back(std::string("I ") + row.handler + ": " + row.lines[i]);
    }
    if (*row.refused != '\0') {
        const bool isInfo = row.method == std::string("getMetaMbnInfo");
        expected.push_back(std::string(isInfo ? "I " : "E ") + row.handler + ": " + row.refused);
    }
    if (isActiveInfo()) {
        EXPECT_EQ(service.log.take(), expected);
        EXPECT_THAT(service.client.take(), IsEmpty());
        return;
    }
    // Two requests hand out what the modem wrote, also when it failed.
    const bool passedOn = row.method == std::string("getOperatingMode") ||
                          row.method == std::string("isImsProfileNormal");
    const char* payload = passedOn ? row.payload : row.empty;
    EXPECT_EQ(service.log.take(), expected + respondLines(row, 1, payload));
    EXPECT_THAT(service.client.take(), ElementsAre(answer(1, payload)));
}

TEST_P(NeedingTheService, NotConnected) {
    Service service;
    service.disconnect(serviceOf(row));
    service.forget();
    service.call(row.method, ROW_SERIAL, row.arguments);
    Service::runAll();

    EXPECT_THAT(service.modem.calls(), IsEmpty());
    const Lines expected = entryLines(row) + handlingLines(row) +
                           Lines{std::string("E ") + row.handler + ": " + abbreviationOf(row) +
                                 " QMI service not connected"};
    if (isActiveInfo()) {
        EXPECT_EQ(service.log.take(), expected);
        EXPECT_THAT(service.client.take(), IsEmpty());
        return;
    }
    const int err = row.client == std::string("Pdc") ? 1 : 4;
    EXPECT_EQ(service.log.take(), expected + respondLines(row, err, row.empty));
    EXPECT_THAT(service.client.take(), ElementsAre(answer(1, row.empty)));
}

TEST_P(Request, WrongRecordIsRefusedWithoutAnAnswer) {
    Service service;
    const auto client = ModemImpl::getQmiClient(serviceOf(row));
    const std::shared_ptr<Param> wrong[] = {nullptr, std::make_shared<AtCommandParam>(nullptr, 0),
                                            std::make_shared<SerialBoolParam>(7, true)};
    for (const auto& record : wrong) {
        if (record && record->isType(SerialParam::RTTI_TYPE) && row.client == std::string("At")) {
            continue;  // takes any record with a serial
        }
        EXPECT_EQ(client->handle(Message::obtain(row.id, client, record, nullptr)), 3);
        EXPECT_EQ(service.log.take(), handlingLines(row) + Lines{std::string("E ") + row.handler +
                                                                 ": invalid parameter"});
    }
    EXPECT_THAT(service.modem.calls(), IsEmpty());
    EXPECT_THAT(service.client.take(), IsEmpty());
}

TEST_P(OfOptionalClients, AbsentOnInstance1) {
    Service service(1);
    service.call(row.method, ROW_SERIAL, row.arguments);
    Lines expected = entryLines(row);
    expected.resize(1);
    const std::string empty =
            isActiveInfo() ? R"(,"mbnInfo":{"result":0,"configId":[]})" : row.empty;
    EXPECT_EQ(service.log.take(), expected + respondLines(row, 4, empty));
    EXPECT_THAT(service.client.take(), ElementsAre(answer(1, empty)));
    EXPECT_EQ(desk::pendingMessages(), 0U);
}

TEST_P(Request, DispatchRefused) {
    Service service;
    desk::setQueueLimit(0);
    service.call(row.method, ROW_SERIAL, row.arguments);
    const std::string texts = row.postTexts;
    const std::string line =
            texts == "id"     ? "Failed to dispatch msg " + std::to_string(row.id) + ", serial = 7"
            : texts == "name" ? std::string(row.method) + ": failed to dispatch msg, serial = 7"
                              : std::string(row.method) + ": failed to dispatch serial = 7";
    const std::string empty =
            isActiveInfo() ? R"(,"mbnInfo":{"result":0,"configId":[]})" : row.empty;
    EXPECT_EQ(service.log.take(), entryLines(row) + Lines{"E " + line} +
                                          respondLines(row, desk::DISPATCH_QUEUE_FULL, empty));
    EXPECT_THAT(service.client.take(), ElementsAre(answer(1, empty)));
}

TEST_P(Request, NoMemoryForAnyAllocationOfTheEntryPoint) {
    Service service;
    size_t failing = 0;
    bool failed = true;
    for (; failed; ++failing) {
        service.log.onLine([&](const std::string& line) {
            if (line.rfind("I ModemImpl::", 0) == 0) {
                allocations::start(failing);
            }
        });
        service.call(row.method, ROW_SERIAL, row.arguments);
        allocations::stop();
        failed = allocations::failed();
        const Lines log = service.log.take();
        if (failed) {
            EXPECT_THAT(service.client.take(), testing::SizeIs(1));
            EXPECT_THAT(log, testing::Contains(testing::HasSubstr(respondName(row) +
                                                                  ": serial = 7, err = 5")));
        } else {
            EXPECT_THAT(service.client.take(), IsEmpty());
        }
        EXPECT_EQ(desk::pendingMessages(), failed ? 0U : 1U);
    }
    EXPECT_GE(failing, 3U) << "record and message at least";
    service.modem.returns("modem_atlog_send_resp", 0);
    Service::runAll();
    while (service.modem.answer(responseOf(row))) {
    }
}

TEST_P(Request, AnswerFindsNoCallbackOrAFailingOne) {
    Service service;
    desk::setQueueLimit(0);
    const std::string empty =
            isActiveInfo() ? R"(,"mbnInfo":{"result":0,"configId":[]})" : row.empty;
    const auto responseLines = [&] {
        service.call(row.method, ROW_SERIAL, row.arguments);
        Lines lines = service.log.take();
        return Lines(lines.end() - 2, lines.end());
    };
    service.install(nullptr, service.client.indications());
    EXPECT_EQ(responseLines(), respondLines(row, desk::DISPATCH_QUEUE_FULL, empty,
                                            "respCb null, can't send response"));
    service.install();
    service.client.failWith("gone");
    EXPECT_EQ(responseLines(), respondLines(row, desk::DISPATCH_QUEUE_FULL, empty,
                                            "exception = " + android::hardware::Status::fromStatusT(
                                                                     android::DEAD_OBJECT, "gone")
                                                                     .description()));
    EXPECT_THAT(service.client.take(), IsEmpty());
}

// A synchronous request costs a record and a message, an asynchronous one a cookie as well.
TEST(RequestCost, AllocationsInsideThePlugIn) {
    const struct {
        const char* method;
        size_t allocations;
    } rows[] = {{"getOperatingMode", 2}, {"setSarState", 2}, {"getVoNRMode", 2},
                {"getBuildTime", 3},     {"restoreMbn", 3},  {"getActiveMbnInfo", 2}};
    for (const auto& row : rows) {
        Service service(0, desk::Delivery::CALLER);
        service.uninstall();
        service.log.onLine([](const std::string& line) {
            if (line.rfind("I ModemImpl::", 0) == 0) {
                allocations::start();
            }
        });
        const bool hasArgument =
                *row.method != 'r' && strstr("setSarState getActiveMbnInfo", row.method) != nullptr;
        service.call(row.method, 1, hasArgument ? Lines{"1"} : Lines{});
        EXPECT_EQ(allocations::stop(), row.allocations) << row.method;
        while (service.modem.answer(nullptr, 0)) {
        }
    }
}
