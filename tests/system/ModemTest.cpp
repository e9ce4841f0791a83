#include "tests/system/System.h"

namespace {

using ModemTest = SystemTest;

const std::string REST_OF_RRC = " rrcState=2 wcdmaValid=3 wcdmaRrcState=-4";
constexpr char BUILD_ID[] = "error=0 buildId=SIMULATED.MODEM.1.0-00001";
constexpr char BUILD_TIME[] = "error=0 buildTime=\"Jan 15 2024 10:30:00\"";
constexpr char BANDS[] =
        "error=0 list1=[1, 3, 8] list2=[1, 8] list3=[1, 3, 7, 20, 28] "
        "list4=[1, 78] list5=[78]";

/** An asynchronous request, and its answer when the modem serves it; "*" is the serial's number. */
struct AsyncRow {
    const char* function;
    const char* request;
    const char* answer;
};

const AsyncRow ASYNC_ROWS[] = {
        {"modem_get_build_time", "getBuildTime", BUILD_TIME},
        {"modem_get_build_id", "getBuildId", BUILD_ID},
        {"modem_api_active_mbn", "activateMbnByName row", "error=0"},
        {"modem_api_restore_mbn", "restoreMbn", "error=0"},
        {"modem_api_set_agps_test_mode", "setAgpsTestMode 5", "error=0"},
        {"modem_api_get_agps_test_mode", "getAgpsTestMode", "error=0 mode=5"},
        {"modem_api_get_power_save_mode", "getModemPowerSaveMode", "error=0 mode=2"},
        {"modem_api_set_power_save_mode", "setModemPowerSaveMode 2", "error=0"},
        {"modem_api_set_power_save_status", "setModemPowerSaveStatus 1", "error=0"},
        {"modem_api_set_modem_property", "setModemProperty name* value*", "error=0"},
        {"modem_api_get_modem_property", "getModemProperty name*", "error=0 value=value*"},
        {"modem_get_bands_info", "getBandsInfo", BANDS},
        {"modem_api_remove_rat_mask", "removeRatMask", "error=0"},
        {"modem_abort_rrc_connection", "abortRRCConnection", "error=0"},
        {"modem_api_set_radio_info_report_enabled", "setRadioInfoReportEnabled 0", "error=0"},
};

const AsyncRow& asyncRow(int32_t serial) {
    return ASYNC_ROWS[static_cast<size_t>(serial) % std::size(ASYNC_ROWS)];
}

constexpr int32_t NUMBERS = 16;

std::string filled(std::string text, int32_t serial) {
    for (size_t at = 0; (at = text.find('*')) != std::string::npos;) {
        text.replace(at, 1, std::to_string(serial % NUMBERS));
    }
    return text;
}

/** The answer that brings a configuration event, which claims a length, and has a text's area. */
std::string infoAnswer(std::string text, size_t area, uint32_t length) {
    text.resize(area);
    text.append(reinterpret_cast<const char*>(&length), sizeof length);
    text.resize(std::min<size_t>(length, text.size()));
    std::string answer = "error=0 result=0 configId=hex:";
    for (const char byte : text) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", byte & 0xff);
        answer += digits;
    }
    return answer;
}

}  // namespace

/** Eight threads of one client, answers late at random, the service dropping in and out. */
TEST_F(ModemTest, AnswersEveryAsynchronousRequestOnceAndWithItsOwnPayload) {
    constexpr int32_t perThread = SANITIZED ? 90 : 450;
    Host host;
    Client client;
    for (int32_t i = 0; i < NUMBERS; ++i) {
        EXPECT_EQ("error=0", client.call(filled("setModemProperty name* value*", i)));
    }
    host.sim("set agps-test-mode 5");
    host.sim("set power-save-mode 2");
    for (const AsyncRow& row : ASYNC_ROWS) {
        host.sim(std::string("delay ") + row.function + " 0-20");
    }
    std::vector<std::thread> threads;
    for (int32_t i = 0; i < 8; ++i) {
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
    for (int32_t serial = 0; serial < 8 * perThread; ++serial) {
        const std::string request = asyncRow(serial).request;
        const std::string name = request.substr(0, request.find(' ')) + "Response ";
        const std::string answer = client.answer(serial);
        const bool isServed = answer == name + filled(asyncRow(serial).answer, serial);
        EXPECT_TRUE(isServed || answer.rfind(name + "error=1", 0) == 0) << answer;
        served += isServed ? 1 : 0;
    }
    EXPECT_GT(served, 8 * perThread / 10);
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
    constexpr char NO_ID[] = "error=1 buildId=\"\"";
    const char* const rows[][3] = {
            {"fail modem_get_build_id 7", "getBuildId", NO_ID},
            {"patch modem_get_build_id result 3", "getBuildId", NO_ID},
            {"patch modem_get_build_id size 0", "getBuildId", NO_ID},
            {"patch modem_get_build_id size 547", "getBuildId", NO_ID},
            {"patch modem_get_build_id size 549", "getBuildId", NO_ID},
            {"patch modem_get_build_id 8 00010000", "getBuildId", NO_ID},
            {"patch modem_get_build_id 8 ff000000 410042", "getBuildId", "error=0 buildId=A"},
            {"patch modem_api_get_modem_property 0 0000000000000000 6f6464", "getModemProperty no",
             "error=0 value=odd"},
            {"patch modem_get_bands_info 8 15000000", "getBandsInfo",
             "error=0 list1=[] list2=[1, 8] list3=[1, 3, 7, 20, 28] list4=[1, 78] list5=[78]"},
            {"patch modem_get_bands_info 176 ffffffff", "getBandsInfo",
             "error=0 list1=[1, 3, 8] list2=[1, 8] list3=[] list4=[1, 78] list5=[78]"},
    };
    for (const auto& row : rows) {
        host.sim(row[0]);
        EXPECT_EQ(row[2], client.call(row[1])) << row[0];
        host.sim("clear");
    }
    EXPECT_EQ(BUILD_TIME, client.call("getBuildTime"));
    host.stop();
    EXPECT_TRUE(client.drain()[silent].empty());
}

TEST_F(ModemTest, IsBoundAndSubscribedAgainAfterAReboot) {
    const Host host;
    Client client;
    EXPECT_EQ("error=0", client.call("switchNRNetworkMode 2"));
    EXPECT_EQ("error=0", client.call("rebootModem"));
    EXPECT_TRUE(host.awaitSim("rrc 1 2 3 -4", "ok"));  // an error until events are wanted again
    EXPECT_EQ("modemRRCStateInd lteValid=1" + REST_OF_RRC, client.event());
    for (const char* bind : {"nas", "wds", "vs"}) {
        EXPECT_TRUE(host.awaitCalls("modem_api_bind_" + std::string(bind) + "_subscription", 2));
    }
    EXPECT_TRUE(host.awaitSim("state at.registered", "+LOG"));
    EXPECT_EQ("error=0 mode=2", client.call("getNRNetworkMode"));
}

TEST_F(ModemTest, ReportsEventsAndReplaysTheFirstThatNobodyHeard) {
    Host host;
    for (const char* event :
         {"power-save 4", "rrc 1 2 3 -4", "rrc 9 2 3 -4", "power-save 5", "radio"}) {
        host.sim(event);
    }
    EXPECT_TRUE(host.prints("indCb null, can't send indication", 5));
    Client client;
    EXPECT_TRUE(client.hasEvents());  // by the time that its callbacks are in place
    EXPECT_EQ("modemRRCStateInd lteValid=1" + REST_OF_RRC, client.event());
    EXPECT_EQ("powerSaveModeInd mode=4", client.event());
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
    EXPECT_EQ("modemRRCStateInd lteValid=9" + REST_OF_RRC, client.event());
    EXPECT_EQ("powerSaveModeInd mode=7", client.event());
    EXPECT_EQ(
            "modemRadioInfoReportInd field1=1 field2=2 field3=18446744073709 field4=4 "
            "field5=[5, 6, 7, 8] field6=9 field7=10 field8=[11, 12, 13, 14] field9=15 "
            "field10Entry1=[16, 17, 18, 19] field10Entry2=[20, 21, 22, 23] "
            "field10Entry3=[24, 25, 26, 27] field10Entry4=[28, 29, 30, 31]",
            client.event());
    EXPECT_EQ("modemRRCStateInd lteValid=10" + REST_OF_RRC, client.event());
    EXPECT_TRUE(host.prints("is too short", 2));
}

/** NAS never binds in its 21 attempts, nor at the first request; WDS does at its third attempt. */
TEST_F(ModemTest, BindsAgainUntilItSucceedsOrAtARequest) {
    for (const int instance : {0, 1}) {
        const Host host(instance, {PREPARED_HOST, std::to_string(instance),
                                   "fail modem_api_bind_nas_subscription 1 22",
                                   "fail modem_api_bind_wds_subscription 1 2"});
        const std::string bound = "up bound " + std::to_string(instance);
        EXPECT_TRUE(host.awaitCalls("modem_api_bind_nas_subscription", 21));
        EXPECT_TRUE(host.awaitSim("state service.wds", bound));
        Client client(instance);
        EXPECT_EQ("error=1 mode=0", client.call("getNRNetworkMode"));
        EXPECT_EQ("error=0 result=1", client.call("isImsProfileNormal"));
        EXPECT_TRUE(host.awaitCalls("modem_api_bind_nas_subscription", 22));
        EXPECT_EQ("error=0 mode=0", client.call("getNRNetworkMode"));
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
    host.sim("delay modem_pdc_load_configuration 20");  // six minutes for the whole
    const int32_t load = client.send("loadMbnConfig " + path);
    EXPECT_TRUE(host.awaitCalls("modem_pdc_load_configuration", 1));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ("error=0 mode=0", client.call("getOperatingMode"));
    }
    host.sim("ok modem_pdc_load_configuration");
    EXPECT_EQ("loadMbnConfigResponse error=0", client.answer(load));
    char expected[64];
    snprintf(expected, sizeof expected, " 16777216 16777216 %08x ", sum);
    EXPECT_NE(std::string::npos, host.sim("state mbn.MbnApp_" + path).find(expected));
    EXPECT_NE(std::string::npos, host.sim("calls modem_pdc_load_configuration").find("18642\n"));
}

TEST_F(ModemTest, TakesConfigurationEventsAsTheyCome) {
    Host host;
    Client client;
    for (const uint32_t length : {0U, 124U, 125U, 256U, 257U, 4294967295U}) {
        for (const char* function : {"get_activate_config_info", "get_config_info"}) {
            host.sim(std::string("patch modem_pdc_") + function + " length " +
                     std::to_string(length));
        }
        EXPECT_EQ(infoAnswer("factory", 124, length), client.call("getActiveMbnInfo 0"));
        EXPECT_EQ(infoAnswer("name=factory size=1", 256, length),
                  client.call("getMetaMbnInfo text:factory 7"));
    }
    host.sim("clear");
    host.sim("delay modem_pdc_get_activate_config_info 200");
    const int32_t late = client.send("getActiveMbnInfo 0");
    EXPECT_TRUE(host.awaitCalls("modem_pdc_get_activate_config_info", 1));
    host.sim("delay modem_pdc_get_activate_config_info 0");
    EXPECT_EQ(infoAnswer("factory", 7, 7), client.call("getActiveMbnInfo 1"));
    EXPECT_EQ("getActiveMbnInfoResponse " + infoAnswer("factory", 7, 7), client.answer(late));
    host.sim("patch modem_pdc_activate_regular_config token 4711");
    const int32_t foreign = client.send("activateRegularMbn 0");
    EXPECT_EQ("activateRegularMbnResponse error=0", client.answer(4711));
    for (const char* event : {"event 17 -", "event 18 00", "event 22 0000000000000000000000"}) {
        host.sim(event);
    }
    EXPECT_TRUE(host.prints("is too short", 3));
    host.stop();
    EXPECT_TRUE(client.drain()[foreign].empty());
}
