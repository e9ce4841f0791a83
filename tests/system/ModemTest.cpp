#include <thread>

#include "tests/system/Client.h"
#include "tests/system/Desk.h"

namespace {

using ModemTest = SystemTest;

std::string rrcEvent(int value) {
    const std::string number = std::to_string(value);
    return R"(modemRRCStateInd {"type":0,"lteValid":)" + number +
           R"(,"rrcState":2,"wcdmaValid":3,)" + R"("wcdmaRrcState":-4})";
}

/** An asynchronous request of the vendor service, and its answer when the modem served it. */
struct AsyncRow {
    const char* request;  ///< "*" stands for a number of the serial's
    const char* payload;
    const char* empty;
};

const AsyncRow ASYNC_ROWS[] = {
        {"getBuildTime", R"({"buildTime":"Jan 15 2024 10:30:00"})", R"({"buildTime":""})"},
        {"getBuildId", R"({"buildId":"SIMULATED.MODEM.1.0-00001"})", R"({"buildId":""})"},
        {"activateMbnByName row", "{}", "{}"},
        {"restoreMbn", "{}", "{}"},
        {"setAgpsTestMode 5", "{}", "{}"},
        {"getAgpsTestMode", R"({"mode":5})", R"({"mode":0})"},
        {"getModemPowerSaveMode", R"({"mode":2})", R"({"mode":0})"},
        {"setModemPowerSaveMode 2", "{}", "{}"},
        {"setModemPowerSaveStatus 1", "{}", "{}"},
        {"setModemProperty name* value*", "{}", "{}"},
        {"getModemProperty name*", R"({"value":"value*"})", R"({"value":""})"},
        {"getBandsInfo",
         R"({"bands":{"list1":[1,3,8],"list2":[1,8],"list3":[1,3,7,20,28],"list4":[1,78],)"
         R"("list5":[78]}})",
         R"({"bands":{"list1":[],"list2":[],"list3":[],"list4":[],"list5":[]}})"},
        {"removeRatMask", "{}", "{}"},
        {"abortRRCConnection", "{}", "{}"},
        {"setRadioInfoReportEnabled 0", "{}", "{}"},
};

constexpr int32_t THREADS = 8;
constexpr int32_t NAMES = 16;

const AsyncRow& asyncRow(int32_t serial) {
    return ASYNC_ROWS[static_cast<size_t>(serial) % std::size(ASYNC_ROWS)];
}

std::string filled(std::string text, int32_t serial) {
    for (size_t at = 0; (at = text.find('*')) != std::string::npos;) {
        text.replace(at, 1, std::to_string(serial % NAMES));
    }
    return text;
}

/** The answer to a request of that serial, served or not. */
std::string asyncAnswer(int32_t serial, bool isServed) {
    const AsyncRow& row = asyncRow(serial);
    const std::string request = row.request;
    return request.substr(0, request.find(' ')) + "Response " + (isServed ? "0 " : "1 ") +
           filled(isServed ? row.payload : row.empty, serial);
}

/** The identifier of a configuration event that claims a length, and has room for so many. */
std::string identifier(std::string text, size_t area, uint32_t length) {
    text.resize(area);
    text.append(reinterpret_cast<const char*>(&length), sizeof length);
    text.resize(std::min<size_t>(length, text.size()));
    std::string list;
    for (const char byte : text) {
        list += (list.empty() ? "" : ",") + std::to_string(byte & 0xff);
    }
    return R"(0 {"mbnInfo":{"result":0,"configId":[)" + list + "]}}";
}

}  // namespace

/** Eight threads of one client, answers late at random, the service dropping in and out. */
TEST_F(ModemTest, AnswersEveryAsynchronousRequestOnceAndWithItsOwnPayload) {
    constexpr int32_t perThread = SANITIZED ? 90 : 450;
    Host host;
    Client client;
    for (int32_t i = 0; i < NAMES; ++i) {
        EXPECT_EQ("0 {}", client.call(filled("setModemProperty name* value*", i)));
    }
    host.sim("set agps-test-mode 5");
    host.sim("set power-save-mode 2");
    for (const char* function :
         {"modem_get_build_time", "modem_get_build_id", "modem_api_active_mbn",
          "modem_api_restore_mbn", "modem_api_set_agps_test_mode", "modem_api_get_agps_test_mode",
          "modem_api_get_power_save_mode", "modem_api_set_power_save_mode",
          "modem_api_set_power_save_status", "modem_api_set_modem_property",
          "modem_api_get_modem_property", "modem_get_bands_info", "modem_api_remove_rat_mask",
          "modem_abort_rrc_connection", "modem_api_set_radio_info_report_enabled"}) {
        host.sim(std::string("delay ") + function + " 0-20");
    }
    std::vector<std::thread> threads;
    for (int32_t i = 0; i < THREADS; ++i) {
        threads.emplace_back([&client, first = i * perThread] {
            for (int32_t serial = first; serial < first + perThread; ++serial) {
                client.send(filled(asyncRow(serial).request, serial), serial);
            }
        });
    }
    std::atomic<bool> done{false};
    threads.emplace_back([&] {
        while (!done) {
            host.sim("disconnect vs");
            host.sim("connect vs");
            EXPECT_TRUE(host.awaitSim("state service.vs", "up bound"));
        }
    });
    int32_t served = 0;
    for (int32_t serial = 0; serial < THREADS * perThread; ++serial) {
        const std::string answer = client.answer(serial);
        served += answer == asyncAnswer(serial, true) ? 1 : 0;
        EXPECT_TRUE(answer == asyncAnswer(serial, true) || answer == asyncAnswer(serial, false))
                << answer;
    }
    EXPECT_GT(served, THREADS * perThread / 10);
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    host.stop();
    for (const auto& [serial, answers] : client.drain()) {
        EXPECT_TRUE(answers.empty()) << serial;
    }
}

TEST_F(ModemTest, SurvivesAnswersThatAreNotAsTheyShouldBe) {
    Host host;
    Client client;
    host.sim("silence modem_get_build_time");
    const int32_t silent = client.send("getBuildTime");
    EXPECT_TRUE(host.awaitCalls("modem_get_build_time", 1));
    constexpr char NO_ID[] = R"(1 {"buildId":""})";
    constexpr char LISTS[] = R"("list4":[1,78],"list5":[78]}})";
    struct {
        const char* knob;
        const char* request;
        std::string answer;
    } const rows[] = {
            {"fail modem_get_build_id 7", "getBuildId", NO_ID},
            {"result modem_get_build_id 3", "getBuildId", NO_ID},
            {"answer-length modem_get_build_id 0", "getBuildId", NO_ID},
            {"answer-length modem_get_build_id 547", "getBuildId", NO_ID},
            {"answer-length modem_get_build_id 549", "getBuildId", NO_ID},
            {"patch modem_get_build_id 8 00010000", "getBuildId", NO_ID},
            {"patch modem_get_build_id 8 ff000000 410042", "getBuildId", R"(0 {"buildId":"A"})"},
            {"answer modem_api_get_modem_property 0000000000000000 6f6464", "getModemProperty no",
             R"(0 {"value":"odd"})"},
            {"patch modem_get_bands_info 8 15000000", "getBandsInfo",
             R"(0 {"bands":{"list1":[],"list2":[1,8],"list3":[1,3,7,20,28],)" + std::string(LISTS)},
            {"patch modem_get_bands_info 176 ffffffff", "getBandsInfo",
             R"(0 {"bands":{"list1":[1,3,8],"list2":[1,8],"list3":[],)" + std::string(LISTS)},
    };
    for (const auto& row : rows) {
        host.sim(row.knob);
        EXPECT_EQ(row.answer, client.call(row.request)) << row.knob;
        host.sim("clear");
    }
    EXPECT_EQ(R"(0 {"buildTime":"Jan 15 2024 10:30:00"})", client.call("getBuildTime"));
    host.stop();
    EXPECT_TRUE(client.drain()[silent].empty());
}

TEST_F(ModemTest, IsBoundAndSubscribedAgainAfterAReboot) {
    const Host host;
    Client client;
    EXPECT_EQ("0 {}", client.call("switchNRNetworkMode 2"));
    EXPECT_EQ("0 {}", client.call("rebootModem"));
    EXPECT_TRUE(host.awaitSim("rrc 1 2 3 -4", "ok"));  // an error until events are wanted again
    EXPECT_EQ(rrcEvent(1), client.event());
    for (const char* bind : {"nas", "wds", "vs"}) {
        EXPECT_TRUE(host.awaitCalls("modem_api_bind_" + std::string(bind) + "_subscription", 2));
    }
    EXPECT_TRUE(host.awaitSim("state at.registered", "+LOG"));
    EXPECT_EQ(R"(0 {"mode":2})", client.call("getNRNetworkMode"));
}

TEST_F(ModemTest, ReportsEventsAndReplaysTheFirstThatNobodyHeard) {
    Host host;
    for (const char* event :
         {"power-save 4", "rrc 1 2 3 -4", "radio", "rrc 9 2 3 -4", "power-save 5"}) {
        host.sim(event);
    }
    EXPECT_TRUE(host.process.prints("indCb null, can't send indication", 5));
    Client client;
    EXPECT_TRUE(client.hasEvents());  // by the time that its callbacks are in place
    EXPECT_EQ(rrcEvent(1), client.event());
    EXPECT_EQ(R"(powerSaveModeInd {"type":0,"mode":4})", client.event());
    client.install();
    EXPECT_FALSE(client.hasEvents());
    host.sim("rrc 9 2 3 -4");
    host.sim("power-save 7");
    host.sim(
            "radio 1 2 18446744073709 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 "
            "26 27 28 29 30 31");
    host.sim("event 15 -");
    host.sim("event 20 0000000003");
    host.sim("rrc 10 2 3 -4");
    EXPECT_EQ(rrcEvent(9), client.event());
    EXPECT_EQ(R"(powerSaveModeInd {"type":0,"mode":7})", client.event());
    EXPECT_EQ(R"(modemRadioInfoReportInd {"type":0,"radioInfo":{"field1":1,"field2":2,)"
              R"("field3":18446744073709,"field4":4,"field5":[5,6,7,8],"field6":9,"field7":10,)"
              R"("field8":[11,12,13,14],"field9":15,"field10Entry1":[16,17,18,19],)"
              R"("field10Entry2":[20,21,22,23],"field10Entry3":[24,25,26,27],)"
              R"("field10Entry4":[28,29,30,31]}})",
              client.event());
    EXPECT_EQ(rrcEvent(10), client.event());
    EXPECT_TRUE(host.process.prints("is too short", 2));
}

/** NAS never binds in its 21 attempts, nor at the first request; WDS does at its third attempt. */
TEST_F(ModemTest, BindsAgainUntilItSucceedsOrAtARequest) {
    for (const int instance : {0, 1}) {
        const Host host(instance,
                        Host::prepared(instance, {"fail modem_api_bind_nas_subscription 1 22",
                                                  "fail modem_api_bind_wds_subscription 1 2"}));
        const std::string bound = "up bound " + std::to_string(instance);
        EXPECT_TRUE(host.awaitCalls("modem_api_bind_nas_subscription", 21));
        EXPECT_TRUE(host.awaitSim("state service.wds", bound));
        Client client(instance);
        EXPECT_EQ(R"(1 {"mode":0})", client.call("getNRNetworkMode"));
        EXPECT_EQ(R"(0 {"result":1})", client.call("isImsProfileNormal"));
        EXPECT_TRUE(host.awaitCalls("modem_api_bind_nas_subscription", 22));
        EXPECT_EQ(R"(0 {"mode":0})", client.call("getNRNetworkMode"));
        EXPECT_TRUE(host.awaitCalls("modem_api_bind_nas_subscription", 23));
        EXPECT_TRUE(host.awaitCalls("modem_api_bind_wds_subscription", 3));
        EXPECT_TRUE(host.awaitSim("state service.nas", bound));
    }
}

TEST_F(ModemTest, LoadsALargeConfigurationWhileOtherServicesAnswer) {
    std::string content(16 << 20, '\0');
    uint32_t sum = 2166136261U;
    for (size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<char>(i * i >> 7);
        sum = (sum ^ (content[i] & 0xffU)) * 16777619U;
    }
    const Host host;
    Client client;
    const std::string path = file("large.mbn", content);
    host.sim("delay modem_pdc_load_configuration 20");
    const int32_t load = client.send("loadMbnConfig " + path);
    EXPECT_TRUE(host.awaitCalls("modem_pdc_load_configuration", 1));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(R"(0 {"mode":0})", client.call("getOperatingMode"));
    }
    EXPECT_TRUE(host.awaitSim("state mbn.MbnApp_", " 16777216 ")) << "still under way";
    host.sim("ok modem_pdc_load_configuration");
    EXPECT_EQ("loadMbnConfigResponse 0 {}", client.answer(load));
    char expected[64];
    snprintf(expected, sizeof expected, " 16777216 16777216 %08x ", sum);
    EXPECT_NE(std::string::npos, host.sim("state mbn.MbnApp_" + path).find(expected));
    EXPECT_NE(std::string::npos, host.sim("calls modem_pdc_load_configuration").find("18642\n"));
}

TEST_F(ModemTest, TakesConfigurationEventsAsTheyCome) {
    Host host;
    Client client;
    for (const uint32_t length : {0U, 124U, 125U, 256U, 257U, 4294967295U}) {
        host.sim("pdc-length " + std::to_string(length));
        EXPECT_EQ(identifier("factory", 124, length), client.call("getActiveMbnInfo 0"));
        EXPECT_EQ(identifier("name=factory size=1", 256, length),
                  client.call("getMetaMbnInfo text:factory 7"));
    }
    host.sim("clear");
    host.sim("delay modem_pdc_get_activate_config_info 200");
    const int32_t late = client.send("getActiveMbnInfo 0");
    EXPECT_TRUE(host.awaitCalls("modem_pdc_get_activate_config_info", 1));
    host.sim("delay modem_pdc_get_activate_config_info 0");
    EXPECT_EQ(identifier("factory", 7, 7), client.call("getActiveMbnInfo 1"));
    EXPECT_EQ("getActiveMbnInfoResponse " + identifier("factory", 7, 7), client.answer(late));
    host.sim("pdc-token 4711");
    const int32_t foreign = client.send("activateRegularMbn 0");
    EXPECT_EQ("activateRegularMbnResponse 0 {}", client.answer(4711));
    for (const char* event : {"event 17 -", "event 18 00", "event 22 0000000000000000000000"}) {
        host.sim(event);
    }
    EXPECT_TRUE(host.process.prints("is too short", 3));
    host.stop();
    EXPECT_TRUE(client.drain()[foreign].empty());
}
