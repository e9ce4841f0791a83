// Answers and indications on their way up: conversions, errors, and the cache with its replay.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "proxies/ModemIndicationProxy.h"
#include "proxies/ModemResponseProxy.h"
#include "tests/support/Log.h"
#include "tests/support/TextClient.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Lines = std::vector<std::string>;

std::string rrcLine(int lte, int rrc, int wcdma, int wcdmaRrc) {
    return R"({"method":"modemRRCStateInd","type":0,"lteValid":)" + std::to_string(lte) +
           R"(,"rrcState":)" + std::to_string(rrc) + R"(,"wcdmaValid":)" + std::to_string(wcdma) +
           R"(,"wcdmaRrcState":)" + std::to_string(wcdmaRrc) + "}";
}

std::string powerLine(int mode) {
    return R"({"method":"powerSaveModeInd","type":0,"mode":)" + std::to_string(mode) + "}";
}

}  // namespace

TEST(ResponseProxy, ErrorIsCoarseAndTheSerialGoesThrough) {
    LogCapture log;
    TextClient client;
    ModemResponseProxy proxy;
    proxy.update(client.responses());
    const std::pair<Errno, int> rows[] = {{0, 0}, {2, 2}, {1, 1}, {3, 1}, {4, 1}, {5, 1}, {-7, 1}};
    for (const auto& [err, error] : rows) {
        EXPECT_EQ(proxy.respondSelectMbn(-1, err), 0);
        EXPECT_THAT(client.take(), ElementsAre(answerLine("selectMbn", -1, error, "")));
    }
    EXPECT_EQ(log.take()[12], "I respondSelectMbn: serial = -1, err = -7");
}

TEST(ResponseProxy, PayloadsAreConvertedWhole) {
    LogCapture log;
    TextClient client;
    ModemResponseProxy proxy;
    proxy.update(client.responses());

    proxy.respondGetMbnList(1, 0, {"a", "", "c"});
    proxy.respondGetMbnList(1, 0, {});
    proxy.respondGetModemProperty(1, 0, std::string("a\0b", 3));
    proxy.respondGetActiveMbnInfo(1, 0, PdcMbnInfo{-5, {0, 255}});
    EXPECT_THAT(client.take(),
                ElementsAre(answerLine("getMbnList", 1, 0, R"(,"mbns":["a","","c"])"),
                            answerLine("getMbnList", 1, 0, R"(,"mbns":[])"),
                            answerLine("getModemProperty", 1, 0, R"(,"value":"a\u0000b")"),
                            answerLine("getActiveMbnInfo", 1, 0,
                                       R"(,"mbnInfo":{"result":-5,"configId":[0,255]})")));

    BandsInfoType bands{};
    bands.list1 = {3, {1, 3, 7, 9}};
    bands.list2 = {21, {5}};  // above the capacity: cut to it
    bands.list4 = {-1, {5}};  // no number of bands
    bands.list3.count = 50;
    std::string fifty, twenty = "5";
    for (int i = 0; i < 50; ++i) {
        bands.list3.bands[i] = 100 + i;
        fifty += (i == 0 ? "" : ",") + std::to_string(100 + i);
        twenty += i > 0 && i < 20 ? ",0" : "";
    }
    proxy.respondGetBandsInfo(1, 0, bands);
    EXPECT_THAT(client.take(), ElementsAre(answerLine("getBandsInfo", 1, 0,
                                                      R"(,"bands":{"list1":[1,3,7],"list2":[)" +
                                                              twenty + R"(],"list3":[)" + fifty +
                                                              R"(],"list4":[],"list5":[]})")));
}

// A callback of another interface is none.
TEST(ResponseProxy, CastOfAnotherInterfaceFindsNone) {
    LogCapture log;
    TextClient client;
    ModemResponseProxy proxy;
    proxy.update(client.indications());
    EXPECT_EQ(proxy.respondRestoreMbn(1, 0), 4);
    proxy.update(client.responses());
    EXPECT_EQ(proxy.respondRestoreMbn(1, 0), 0);
    proxy.reset();
    EXPECT_EQ(proxy.respondRestoreMbn(1, 0), 4);
}

class IndicationProxy : public testing::Test {
protected:
    ~IndicationProxy() override {  // the cache is the process's
        proxy.update(client.indications());
        proxy.indicateCachedInfo();
    }

    LogCapture log;
    TextClient client;
    ModemIndicationProxy proxy;
};

TEST_F(IndicationProxy, SendsWithTheLinesOfTheField) {
    proxy.update(client.indications());
    EXPECT_EQ(proxy.indicateModemRRCState(1, -2, 3, 4), 0);
    EXPECT_EQ(proxy.indicatePowerSaveMode(-1), 0);
    EXPECT_EQ(proxy.indicateAtLogControlInfo(1, 3, "tc7"), 0);
    EXPECT_THAT(client.take(),
                ElementsAre(rrcLine(1, -2, 3, 4), powerLine(-1),
                            R"({"method":"atLogControlInfoInd","type":0,"logMode":1,)"
                            R"("testResult":3,"tcName":"tc7"})"));
    EXPECT_THAT(
            log.take(),
            ElementsAre("I indicateModemRRCState: lteValid = 1,  rrcState = -2,  wcdmaValid = 3"
                        ",  wcdmaRrcState = 4",
                        "I indicateModemRRCState: succeed", "I indicatePowerSaveMode: mode = -1",
                        "I indicatePowerSaveMode: succeed",
                        "I indicateAtLogControlInfo: log mode = 1, test result = 3, tc name = tc7",
                        "I indicateAtLogControlInfo: succeed"));
    client.failWith("gone");
    EXPECT_EQ(proxy.indicateModemRRCState(1, 2, 3, 4), 1);
    EXPECT_EQ(proxy.indicatePowerSaveMode(1), 1);
    client.failWith("");
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), IsEmpty()) << "an event that met an exception is not kept";
}

TEST_F(IndicationProxy, KeepsTheFirstOfEachKindAndReplaysItOnce) {
    NetworkStatusInfoType info{};
    EXPECT_EQ(proxy.indicatePowerSaveMode(1), 4);
    EXPECT_EQ(proxy.indicatePowerSaveMode(2), 4);
    EXPECT_EQ(proxy.indicateModemRRCState(1, 1, 1, 1), 4);
    EXPECT_EQ(proxy.indicateModemRRCState(2, 2, 2, 2), 4);
    EXPECT_EQ(proxy.indicateModemRadioInfoReport(info), 4);
    EXPECT_EQ(proxy.indicateAtLogControlInfo(1, 3, "lost"), 4);
    EXPECT_THAT(log.take(), testing::Contains("E indicateModemRadioInfoReport: indCb null, can't "
                                              "send indication"));
    proxy.update(client.indications());
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), ElementsAre(rrcLine(1, 1, 1, 1), powerLine(1)));
    EXPECT_EQ(log.take()[0], "I indicateCachedInfo: enter");
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), IsEmpty());
}

TEST_F(IndicationProxy, ReplayStopsAtAFailingRrcState) {
    proxy.indicateModemRRCState(1, 1, 1, 1);
    proxy.indicatePowerSaveMode(1);
    proxy.update(client.indications());
    client.failWith("gone");
    EXPECT_EQ(proxy.indicateCachedInfo(), 1);
    client.failWith("");
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), ElementsAre(powerLine(1))) << "the RRC state is gone, as tried";
}

// A replay without a callback, which would meet its own lock if it kept one.
TEST_F(IndicationProxy, ReplayWithoutACallbackLosesNothing) {
    proxy.indicateModemRRCState(1, 1, 1, 1);
    proxy.indicatePowerSaveMode(1);
    EXPECT_EQ(proxy.indicateCachedInfo(), 4);
    proxy.indicateModemRRCState(2, 2, 2, 2);
    proxy.update(client.indications());
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), ElementsAre(rrcLine(1, 1, 1, 1), powerLine(1)));
}

// The callback goes while the replay is under way: what was not delivered waits for the next one.
TEST_F(IndicationProxy, CallbackTakenAwayDuringTheReplay) {
    proxy.indicateModemRRCState(1, 1, 1, 1);
    proxy.indicatePowerSaveMode(1);
    proxy.update(client.indications());
    client.onCall([&](const std::string&) { proxy.update(nullptr); });
    EXPECT_EQ(proxy.indicateCachedInfo(), 4);
    EXPECT_THAT(client.take(), ElementsAre(rrcLine(1, 1, 1, 1)));
    client.onCall(nullptr);
    proxy.update(client.indications());
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), ElementsAre(powerLine(1)));
}

// A client that installs callbacks anew from inside one gets the rest at the new one.
TEST_F(IndicationProxy, ReplayFromInsideACallback) {
    TextClient second;
    proxy.indicateModemRRCState(1, 1, 1, 1);
    proxy.indicatePowerSaveMode(1);
    proxy.update(client.indications());
    client.onCall([&](const std::string&) {
        proxy.update(second.indications());
        EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    });
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), ElementsAre(rrcLine(1, 1, 1, 1)));
    EXPECT_THAT(second.take(), ElementsAre(powerLine(1)));
    client.onCall(nullptr);
}

// An event between the look for a callback and the keeping, while another thread installs one: the
// log line "indCb null" is that very moment.
TEST_F(IndicationProxy, CallbackInstalledWhileAnEventIsBeingKept) {
    bool installed = false;
    log.onLine([&](const std::string& line) {
        if (!installed && line.find("indCb null") != std::string::npos) {
            installed = true;
            proxy.update(client.indications());  // and the replay that follows finds nothing yet
        }
    });
    EXPECT_EQ(proxy.indicateModemRRCState(1, 1, 1, 1), 0);
    log.onLine(nullptr);
    EXPECT_THAT(client.take(), ElementsAre(rrcLine(1, 1, 1, 1)));
}

// Every event of many threads reaches somebody, or waits: at most one of them, the first.
TEST_F(IndicationProxy, EventsAgainstInstallationsFromThreads) {
    constexpr int ROUNDS = 300;
    std::thread installer([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            proxy.update(i % 2 == 0 ? client.indications() : nullptr);
            proxy.indicateCachedInfo();
        }
    });
    std::thread events([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            proxy.indicateModemRRCState(i, i, i, i);
            proxy.indicatePowerSaveMode(i);
        }
    });
    installer.join();
    events.join();
    proxy.update(client.indications());
    proxy.indicateCachedInfo();
    log.take();
    client.take();
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), IsEmpty());
}
