#include "tests/system/Client.h"
#include "tests/system/Desk.h"

namespace {

struct Row {
    const char* request;
    const char* answer;
    const char* absent = nullptr;  ///< on instance 1, where its client is absent
};

/** All requests, so that each finds what those before it left. */
const Row ROWS[] = {
        {"switchNRNetworkMode 2", "0 {}"},
        {"getNRNetworkMode", R"(0 {"mode":2})"},
        {"getBuildTime", R"(0 {"buildTime":"Jan 15 2024 10:30:00"})"},
        {"getBuildId", R"(0 {"buildId":"SIMULATED.MODEM.1.0-00001"})"},
        {"getActiveMbnInfo 0",
         R"(0 {"mbnInfo":{"result":0,"configId":[102,97,99,116,111,114,121]}})",
         R"(1 {"mbnInfo":{"result":0,"configId":[]}})"},
        {"getMetaMbnInfo text:none 4", R"(1 {"mbnInfo":{"result":1,"configId":[]}})",
         R"(1 {"mbnInfo":{"result":0,"configId":[]}})"},
        {"getMbnList",
         R"(0 {"mbns":["generic/common/default/","generic/row/commercial/",)"
         R"("generic/row/volte/","generic/eu/commercial/","generic/na/lab/"]})",
         R"(1 {"mbns":[]})"},
        {"loadMbnConfig FILE", "0 {}", "1 {}"},
        {"selectMbn 0 text:MbnApp_FILE", "0 {}", "1 {}"},
        {"selectMbnExt 1 text:factory-and-more 7", "0 {}", "1 {}"},
        {"activateMbn 0", "0 {}", "1 {}"},
        {"deactivateMbn 1", "0 {}", "1 {}"},
        {"activateRegularMbn 1", "0 {}", "1 {}"},
        {"activateMbnByName row", "0 {}"},
        {"restoreMbn", "0 {}"},
        {"deleteAllMbns", "0 {}", "1 {}"},
        {"writeNVItem 550 255 3 hex:0a0b", "0 {}"},
        {"readNVItem 550 255 3", R"(0 {"data":[10,11]})"},
        {"verifyNV 550 hex:0a0b", R"(0 {"verified":1})"},
        {"writeEfsFile -2 200 hex:00ff", "0 {}"},
        {"readEfsFile -2 200", R"(0 {"data":[0,255]})"},
        {"deleteEfsFile -2 200", "0 {}"},
        {"deleteEfsFileDir -2", "1 {}"},
        {"setAgpsTestMode 4294967295", "0 {}"},
        {"getAgpsTestMode", R"(0 {"mode":4294967295})"},
        {"setModemPowerSaveMode 255", "0 {}"},
        {"getModemPowerSaveMode", R"(0 {"mode":255})"},
        {"setModemPowerSaveStatus 1", "0 {}"},
        {"setModemProperty ims.mode auto", "0 {}"},
        {"getModemProperty ims.mode", R"(0 {"value":"auto"})"},
        {"deleteModemProperty ims.mode", "0 {}"},
        {"doCommonInterfaceDebug 6", "0 {}"},
        {"writePrl 9 hex:0c", "0 {}"},
        {"readPrl 9", R"(0 {"data":[12]})"},
        {"getSimlockInfoStatus", R"(0 {"status":0})"},
        {"getSimlockInfoCategory", R"(0 {"category":0})"},
        {"getSimlockInfoNumberRetriesRemain", R"(0 {"retries":10})"},
        {"getSimlockFuseStatus", R"(0 {"status":1})"},
        {"getBandsInfo", R"(0 {"bands":{"list1":[1,3,8],"list2":[1,8],"list3":[1,3,7,20,28],)"
                         R"("list4":[1,78],"list5":[78]}})"},
        {"removeRatMask", "0 {}"},
        {"abortRRCConnection", "0 {}"},
        {"setRadioInfoReportEnabled 0", "0 {}"},
        {"setVoNRMode -1", "0 {}"},
        {"getVoNRMode", R"(0 {"mode":4294967295})"},
        {"isImsProfileNormal", R"(0 {"result":1})"},
        {"deprioritizeNr 3", "0 {}"},
        {"deleteImsProfile", "0 {}"},
        {"setSarState -3", "0 {}", "1 {}"},
        {"setOperatingMode -1", "0 {}"},
        {"getOperatingMode", R"(0 {"mode":-1})"},
        {"sendLogControlResp", "1 {}", "1 {}"},
        {"rebootModem", "0 {}"},
};
static_assert(std::size(ROWS) == 52);

class Requests : public SystemTest {
protected:
    /** Makes every request on an instance. */
    void callAll(int instance) {
        const std::string path = file("config.mbn", std::string(2000, 'x'));
        Client client(instance);
        for (const Row& row : ROWS) {
            std::string request = row.request;
            if (const size_t at = request.find("FILE"); at != std::string::npos) {
                request.replace(at, 4, path);
            }
            const bool isAbsent = instance == 1 && row.absent != nullptr;
            EXPECT_EQ(isAbsent ? row.absent : row.answer, client.call(request)) << request;
        }
    }
};

}  // namespace

/** Both instances side by side: the whole service, and the one without MBN, SAR and AT log. */
TEST_F(Requests, AreAllServedOnBothInstances) {
    const Host first(0);
    const Host second(1);
    callAll(0);
    callAll(1);
    struct {
        const char* command;
        const char* first;
        const char* second;
    } const states[] = {{"state nr-network-mode", "2", "2"},
                        {"state sar-state", "-3", "0"},
                        {"state debug-value", "6", "6"},
                        {"state rrc-connected", "0", "0"},
                        {"state nv.-1.550", "2 ", "2 "},
                        {"state service.sar", "up", "closed"},
                        {"state service.vs", "up bound 0", "up bound 1"},
                        {"state service.nas", "up bound 0", "up bound 1"},
                        {"state service.wds", "up bound 0", "up bound 1"},
                        {"calls modem_set_sar_dsi", "1", "0"},
                        {"calls modem_pdc_load_configuration", "3", "0"},
                        {"calls modem_qdp_delete_ims_profile", "2", "2"}};
    for (const auto& state : states) {
        EXPECT_TRUE(first.awaitSim(state.command, state.first)) << state.command;
        EXPECT_TRUE(second.awaitSim(state.command, state.second)) << state.command;
    }
}
