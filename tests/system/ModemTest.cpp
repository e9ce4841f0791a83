#include "tests/system/System.h"

namespace {

using ModemTest = SystemTest;

const std::string REST_OF_RRC = " rrcState=2 wcdmaValid=3 wcdmaRrcState=-4";
}  // namespace

TEST_F(ModemTest, IsBoundAndSubscribedAgainAfterAReboot) {
    const Host host;
    Client client;
    EXPECT_EQ(client.call("switchNRNetworkMode 2"), "error=0");
    EXPECT_EQ(client.call("rebootModem"), "error=0");
    EXPECT_TRUE(host.awaitSim("rrc 1 2 3 -4", "ok"));  // an error until events are wanted again
    EXPECT_EQ(client.event(), "modemRRCStateInd lteValid=1" + REST_OF_RRC);
    for (const char* bind : {"nas", "wds", "vs"}) {
        EXPECT_TRUE(host.awaitCalls("modem_api_bind_" + std::string(bind) + "_subscription", 2));
    }
    EXPECT_TRUE(host.awaitSim("state at.registered", "+LOG"));
    EXPECT_EQ(client.call("getNRNetworkMode"), "error=0 mode=2");
}

TEST_F(ModemTest, ReportsEventsAndReplaysTheFirstThatNobodyHeard) {
    Host host;
    for (const char* event :
         {"power-save 4", "rrc 1 2 3 -4", "rrc 9 2 3 -4", "power-save 5", "radio"}) {
        host.fake(event);
    }
    EXPECT_TRUE(host.prints("indCb null, can't send indication", 5));
    Client client;
    EXPECT_TRUE(client.hasEvents());  // by the time that its callbacks are in place
    EXPECT_EQ(client.event(), "modemRRCStateInd lteValid=1" + REST_OF_RRC);
    EXPECT_EQ(client.event(), "powerSaveModeInd mode=4");
    client.install();
    EXPECT_FALSE(client.hasEvents());
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
    host.fake("delay modem_pdc_load_configuration 20");  // six minutes for the whole
    const int32_t load = client.send("loadMbnConfig " + path);
    EXPECT_TRUE(host.awaitCalls("modem_pdc_load_configuration", 1));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(client.call("getOperatingMode"), "error=0 mode=0");
    }
    host.fake("ok modem_pdc_load_configuration");
    EXPECT_EQ(client.answer(load), "loadMbnConfigResponse error=0");
    char expected[64];
    snprintf(expected, sizeof(expected), " 16777216 16777216 %08x ", sum);
    EXPECT_NE(host.fake("state mbn.MbnApp_" + path).find(expected), std::string::npos);
    EXPECT_NE(host.fake("calls modem_pdc_load_configuration").find("18642\n"), std::string::npos);
    host.fake("forget");
}
