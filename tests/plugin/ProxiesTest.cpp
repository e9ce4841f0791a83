// The proxies where threads meet, and as they are logged. What they send, keep and replay is
// followed by the generated schedules.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "proxies/ModemIndicationProxy.h"
#include "proxies/ModemResponseProxy.h"
#include "tests/support/Log.h"
#include "tests/support/TextClient.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Proxies : public testing::Test {
protected:
    ~Proxies() override {  // the cache is the process's
        proxy.update(client.indications);
        proxy.indicateCachedInfo();
    }

    LogCapture log;
    TextClient client;
    ModemResponseProxy responses;
    ModemIndicationProxy proxy;
};

// A callback of another interface is none.
TEST_F(Proxies, CastOfAnotherInterfaceFindsNone) {
    responses.update(client.indications);
    EXPECT_EQ(responses.respondRestoreMbn(1, 0), 4);
    responses.update(client.responses);
    EXPECT_EQ(responses.respondRestoreMbn(1, 0), 0);
    responses.reset();
    EXPECT_EQ(responses.respondRestoreMbn(1, 0), 4);
}

// A count that a client would never let through is cut all the same.
TEST_F(Proxies, BandListsEndWithTheirRoom) {
    BandsInfoType bands{};
    bands.list3.count = 51;
    bands.list4 = {-1, {5}};
    responses.update(client.responses);
    responses.respondGetBandsInfo(1, 0, bands);
    const std::string answer = client.take().at(0);
    EXPECT_EQ(std::count(answer.begin(), answer.end(), '0'), 50 + 2) << "type and error, too";
}

TEST_F(Proxies, LogsAsTheFieldKnowsIt) {
    const auto indicateAll = [&] {
        NetworkStatusInfoType info{};
        proxy.indicateModemRRCState(1, -2, 3, 4);
        proxy.indicateModemRadioInfoReport(info);
        proxy.indicatePowerSaveMode(-1);
        proxy.indicateAtLogControlInfo(1, 3, "tc7");
        return log.take();
    };
    const auto linesEndingIn = [](const std::string& end) {
        return ElementsAre(
                "I indicateModemRRCState: lteValid = 1,  rrcState = -2,  wcdmaValid = 3"
                ",  wcdmaRrcState = 4",
                end[0] + (" indicateModemRRCState: " + end.substr(2)),
                end[0] + (" indicateModemRadioInfoReport: " + end.substr(2)),
                "I indicatePowerSaveMode: mode = -1",
                end[0] + (" indicatePowerSaveMode: " + end.substr(2)),
                "I indicateAtLogControlInfo: log mode = 1, test result = 3, tc name = tc7",
                end[0] + (" indicateAtLogControlInfo: " + end.substr(2)));
    };
    EXPECT_THAT(indicateAll(), linesEndingIn("E indCb null, can't send indication"));
    proxy.update(client.indications);
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_EQ(log.take()[0], "I indicateCachedInfo: enter");
    EXPECT_THAT(indicateAll(), linesEndingIn("I succeed"));
}

// An event between the look for a callback and the keeping, while another thread installs one: the
// log line "indCb null" is that very moment.
TEST_F(Proxies, CallbackInstalledWhileAnEventIsBeingKept) {
    bool installed = false;
    log.onLine([&](const std::string& line) {
        if (!installed && line.find("indCb null") != std::string::npos) {
            installed = true;
            proxy.update(client.indications);  // and the replay that follows finds nothing yet
        }
    });
    EXPECT_EQ(proxy.indicateModemRRCState(1, 1, 1, 1), 0);
    log.onLine(nullptr);
    EXPECT_THAT(client.take(), SizeIs(1));
}

// Every event of many threads reaches somebody, or waits: at most one of them, the first.
TEST_F(Proxies, EventsAgainstInstallationsFromThreads) {
    constexpr int ROUNDS = 300;
    std::thread installer([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            proxy.update(i % 2 == 0 ? client.indications : nullptr);
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
    proxy.update(client.indications);
    proxy.indicateCachedInfo();
    client.take();
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), IsEmpty());
}
