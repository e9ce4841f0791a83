#include "tests/system/System.h"

namespace {

using ModemTest = SystemTest;

const std::string REST_OF_RRC = " rrcState=2 wcdmaValid=3 wcdmaRrcState=-4";
}  // namespace

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
    snprintf(expected, sizeof(expected), " 16777216 16777216 %08x ", sum);
    EXPECT_NE(std::string::npos, host.sim("state mbn.MbnApp_" + path).find(expected));
    EXPECT_NE(std::string::npos, host.sim("calls modem_pdc_load_configuration").find("18642\n"));
    host.sim("forget");
}
