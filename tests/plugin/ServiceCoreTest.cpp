// Loading, construction, setup, and the way of the modem's events to the clients.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "ModemOptions.h"
#include "OnLoad.h"
#include "tests/support/Service.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** With the words of a line as its arguments. */
int load(const std::string& line) {
    std::istringstream words(line);
    Lines arguments{std::istream_iterator<std::string>(words), {}};
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    return onLoad(static_cast<int>(argv.size()) - 1, argv.data());
}

}  // namespace

// In processes of their own, since options are kept for good; the log goes to stderr there.
TEST(Load, EndsAsTold) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const std::string parsed = "parse: successfully parsed instance id ";
    const std::string setUp = "onLoad: successfully setup MODEM hal service for instance ";
    const std::string invalid = "onLoad: instance id is NOT valid, can't setup MODEM hal service";
    const std::string unread = ".*onLoad: failed to parse modem options, can't load modem plugin";
    const struct {
        const char* arguments;
        int result;
        std::string log;
    } rows[] = {
            {"modem -i 0", 0, "onLoad: loading modem plugin.*parse: parsing modem options"},
            {"modem -i 0", 0, parsed + ".0.*I LIB.*\\[0\\] " + setUp + ".0"},
            {"modem -i 1 -i 0", 0, "parse: instance id .1. was parsed before, ignore .0"},
            {"modem -i 1 -i 0", 0, "\\[1\\] " + setUp + ".1"},
            {"modem -i zero", 0, parsed + ".0"},
            {"modem stray -x -i0", 0, "skip option ..\\(=1\\).*skip option .x\\(=120\\)"},
            {"modem -i", 3, "skip option .i\\(=105\\).*" + invalid},
            {"modem -i 2", 3, "parse: invalid instance id .2. parsed" + unread},
            {"modem -i -1", 3, "parse: invalid instance id .-1. parsed" + unread},
            {"modem", 3, invalid},
            {"", 3, "parse: invalid param input, can't parse options" + unread},
    };
    for (const auto& row : rows) {
        EXPECT_EXIT(_exit(load(row.arguments)), testing::ExitedWithCode(row.result), row.log);
    }
    // The first client that fails ends the setup.
    const auto failing = [] {
        ScriptedModem::instance().returns("modem_api_init_qmi_connection", {0, 0, 9});
        _exit(load("modem -i 0"));
    };
    EXPECT_EXIT(failing(), testing::ExitedWithCode(1),
                "failed to setup NAS QMI notifier[^\n]*\n[^\n]*failed to setup QMI clients.*"
                "onLoad: failed to setup MODEM hal service for instance .0");
}

// What the modem is asked from construction to the last client, in order.
TEST(ServiceCore, ConstructionAndSetupCallTheModemInOrder) {
    const std::pair<std::vector<int>, std::vector<int>> rows[] = {
            {{0, 1, 2, 17, 18, 22}, {8, 2, 3, 36, 17, 228, 1}}, {{0, 1}, {2, 3, 228, 1}}};
    ScriptedModem& modem = ScriptedModem::instance();
    for (const int instance : {0, 1}) {
        Lines expected{"modem_api_init_pre()", "modem_api_set_event_callback()"};
        for (const int event : rows[instance].first) {
            expected.push_back("modem_api_subscribe_event(" + std::to_string(event) + ")");
        }
        for (const int service : rows[instance].second) {
            expected.push_back("modem_api_init_qmi_connection(" + std::to_string(service) + ", 0)");
        }
        modem.reset();
        const auto service = ModemImpl::create(instance);
        EXPECT_EQ(service->setup(), 0);
        EXPECT_EQ(modem.calls(), expected);
        EXPECT_EQ(service->getServiceName(), "instance" + std::to_string(instance));
        EXPECT_EQ(ModemImpl::getInstance(), service);
    }
}

// A name that a live server holds is a line in the log, and no failure of the setup.
TEST(ServiceCore, RefusedRegistrationIsNotReported) {
    Service first;
    LogCapture log;
    const auto second = ModemImpl::create(0);
    EXPECT_EQ(second->setup(), 0);
    EXPECT_EQ(log.take().back(),
              "E setup: failed to register MODEM HIDL service: instance0, status = -17");
}

// Both kinds of owner count: the object goes with the last, whichever that is.
TEST(ServiceCore, SharedAndStrongPointersOwnTogether) {
    ScriptedModem::instance().reset();
    auto shared = ModemImpl::create(1);
    const std::weak_ptr<ModemImpl> weak = shared;
    android::sp<ModemImpl> strong(shared.get());
    shared.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(strong->getServiceName(), "instance1");
    EXPECT_THROW(strong->setup(), std::bad_weak_ptr);
    strong.clear();

    shared = ModemImpl::create(1);
    strong = shared.get();
    strong.clear();
    EXPECT_EQ(shared->getServiceName(), "instance1");
}

TEST(Events, AreRoutedOrRefused) {
    using Data = std::vector<int32_t>;
    const auto tooShort = [](const std::string& func, int size, int least) {
        return "E " + func + ": event data of " + std::to_string(size) +
               " bytes is too short, need " + std::to_string(least);
    };
    const auto unknown = [](const std::string& what) {
        return "E unknow QMI service, can't process service " + what + " event";
    };
    const auto onConnected = [](const std::string& name) {
        return Lines{"I " + name + " QMI service is connected",
                     "I onConnected: " + name + " QMI client is connected"};
    };
    // clang-format off
    const struct {
        int instance, event;
        Data data;    // empty for none
        Lines lines;  // after the one that tells the event
    } rows[] = {
        {0, 0, {2}, onConnected("DMS")},
        {0, 0, {17}, onConnected("SAR")},
        {0, 0, {36}, onConnected("PDC")},
        {0, 0, {8}, onConnected("AT")},
        {0, 0, {228}, onConnected("VS")},
        {0, 1, {228}, {"I VS QMI service is disconnected"}},
        {0, 0, {2, 2}, {"E invalid data input for QMI service connected event"}},
        {0, 1, {}, {"E invalid data input for QMI service disconnected event"}},
        {0, 0, {231}, {"I VMS QMI service is connected", unknown("connected")}},
        {0, 1, {99}, {"I UNKNOWN QMI service is disconnected", unknown("disconnected")}},
        {1, 0, {8}, {"I AT QMI service is connected", unknown("connected")}},
        {1, 2, {1}, {"I AT command reported"}},
        {0, 16, {1}, {"E modem api event 16 NOT supported"}},
        {0, 15, Data(6), {"I RRC STATE CHANGED", "I reportRRCStateInd: now report RRC state to upperlayer"}},
        {0, 19, Data(33), {"I NR RADIO INFO", "I reportRadioInfoInd: now report radio info to upperlayer"}},
        {0, 20, Data(2), {"I POWER SAVE MODE REPORT", "I reportPowerSaveModeInd: now report power save mode to upperlayer"}},
        {0, 15, Data(5), {"I RRC STATE CHANGED", tooShort("reportRRCStateInd", 20, 24)}},
        {0, 20, {}, {"I POWER SAVE MODE REPORT", tooShort("reportPowerSaveModeInd", 0, 8)}},
        {0, 17, Data(34), {"I async response for get-active-mbn-info reported", tooShort("respondGetActiveMbnInfoAsync", 136, 140)}},
    };
    // clang-format on
    for (const auto& row : rows) {
        Service service(row.instance);
        service.modem.raise(row.event, row.data.empty() ? nullptr : row.data.data(),
                            row.data.size() * sizeof(int32_t));
        Lines expected{"I received modem api event " + std::to_string(row.event)};
        expected.insert(expected.end(), row.lines.begin(), row.lines.end());
        Lines log = service.log.take();
        log.resize(std::min(log.size(), expected.size()));  // a report goes on to the client
        EXPECT_EQ(log, expected);
    }
}

// ---- What all clients share ---------------------------------------------------------------------

using ServiceAndCallback = std::pair<int, modem_api_async_callback>;

class Client : public testing::TestWithParam<ServiceAndCallback> {
protected:
    Service service;
    std::shared_ptr<QmiClient> client = ModemImpl::getQmiClient(GetParam().first);
    const std::string name = client->getService().name;
    const std::string className = client->getService().className;
};
// clang-format off
const ServiceAndCallback CLIENTS[] = {
    {8, AtQmiClient::modemApiAsyncCallback}, {2, DmsQmiClient::modemApiAsyncCallback},
    {3, NasQmiClient::modemApiAsyncCallback}, {36, PdcQmiClient::modemApiAsyncCallback},
    {17, SarQmiClient::modemApiAsyncCallback}, {228, VsQmiClient::modemApiAsyncCallback},
    {1, WdsQmiClient::modemApiAsyncCallback},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(All, Client, testing::ValuesIn(CLIENTS), [](const auto& info) {
    return ModemImpl::getQmiServiceName(info.param.first);
});

TEST_P(Client, OpensAndReleasesItsConnection) {
    service.modem.returns("modem_api_init_qmi_connection", {0, 5});
    service.modem.returns("modem_api_release_qmi_connection", {0, -1});
    EXPECT_EQ(client->setup(), 0);
    EXPECT_EQ(client->setup(), 1);
    EXPECT_EQ(client->release(), 0);
    EXPECT_EQ(client->release(), 1);
    const std::string number = std::to_string(GetParam().first);
    EXPECT_THAT(service.modem.calls(),
                Contains("modem_api_release_qmi_connection(" + number + ")").Times(2));
    EXPECT_THAT(service.log.take(),
                ElementsAre("I setup: " + name + " QMI notifier setup completed",
                            "E setup: failed to setup " + name + " QMI notifier",
                            "I release: " + name + " QMI client and notifier released",
                            "E release: failed to release " + name + " QMI client or notifier"));
}

TEST_P(Client, RefusesNoMessageAndUnknownIds) {
    EXPECT_EQ(client->handle(nullptr), 3);
    EXPECT_EQ(service.log.take(),
              Lines{"E handle: null msg input, " + className + " can't handle it"});
    for (const int id : {0, 24, 53, -1}) {
        EXPECT_EQ(client->handle(Message::obtain(id, client, nullptr, nullptr)), 2);
        const std::string number = std::to_string(id);
        EXPECT_THAT(service.log.take(),
                    ElementsAre("I handle: " + className + " is handling message: " + number,
                                "E handle: unsupported message id " + number +
                                        ", can't be handled in " + className));
    }
}

TEST_P(Client, AsyncCallbackChecksItsCookieAndFreesIt) {
    const auto other = ModemImpl::getQmiClient(name == "DMS" ? 3 : 2);
    const auto callback = [&](ModemAsyncCbData* cookie) {
        GetParam().second(nullptr, 0, cookie, 0);
        return service.log.take();
    };
    const auto message = Message::obtain(3, client, std::make_shared<SerialVoidParam>(7), nullptr);
    const std::string begin = "E modemApiAsyncCallback: ";
    EXPECT_EQ(callback(nullptr), Lines{begin + "null async cb data for " + name +
                                       " QMI client, can't proceed callback"});
    EXPECT_EQ(callback(new ModemAsyncCbData(nullptr, client)),
              Lines{begin + "can't get original " + name +
                    " request message from cb data, maybe logic issue"});
    for (const auto& wrong : {std::shared_ptr<QmiClient>(), other}) {
        EXPECT_EQ(
                callback(new ModemAsyncCbData(message, wrong)),
                Lines{begin + "can't get " + name + " QMI client from cb data, maybe logic issue"});
    }
    EXPECT_THAT(callback(new ModemAsyncCbData(message, client)),
                ElementsAre("I modemApiAsyncCallback: processing modem api " + name +
                                    " async callback data for message 3",
                            begin + "unsupported original message id 3, can't be handled in " +
                                    className));
    EXPECT_EQ(message.use_count(), 1) << "the cookies are gone";
    if (name == "VS") {
        const auto empty = Message::obtain(1, client, nullptr, nullptr);
        EXPECT_EQ(callback(new ModemAsyncCbData(empty, client)),
                  Lines{begin + "null param, can't process async response"});
    }
    EXPECT_THAT(service.client.take(), IsEmpty());
}
