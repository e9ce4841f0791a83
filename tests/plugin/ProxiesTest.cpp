// The proxies where threads meet, and as they are logged. What they send, keep and replay is
// followed by the generated schedules.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
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
    EXPECT_EQ(proxy.indicateModemRRCState(1, 1, 1, 1), ERRNO_NOT_CONNECTED);
    log.onLine(nullptr);
    EXPECT_THAT(client.take(), SizeIs(1));
}

// Threads answer, report, install and replay at once. What was accepted comes once and whole.
TEST_F(Proxies, ThreadsMeetWithoutLossDoubleOrMixture) {
    constexpr int ROUNDS = 500;
    TextClient other;
    std::vector<int> accepted(2 * ROUNDS);
    std::vector<char> reported(ROUNDS);
    std::vector<std::thread> threads;
    for (const int first : {0, ROUNDS}) {
        threads.emplace_back([&, first] {
            for (int i = first; i < first + ROUNDS; ++i) {
                accepted[i] = responses.respondGetBuildId(i, 0, std::to_string(i)) == 0 ? 1 : 0;
            }
        });
        threads.emplace_back([&, first] {
            TextClient& mine = first == 0 ? client : other;
            for (int i = 0; i < ROUNDS; ++i) {
                const bool isNone = i % 3 == 2;
                responses.update(isNone ? nullptr : mine.responses);
                proxy.update(isNone ? nullptr : mine.indications);
                proxy.indicateCachedInfo();
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            reported[i] = proxy.indicateModemRRCState(i, i, i, i) == 0;
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    proxy.update(client.indications);
    proxy.indicateCachedInfo();
    std::vector<int> answers(2 * ROUNDS), events(ROUNDS);
    for (TextClient* each : {&client, &other}) {
        for (const std::string& text : each->take()) {
            const auto line = nlohmann::json::parse(text);
            if (line["method"] == "modemRRCStateInd") {
                const int number = line["lteValid"];
                ++events.at(number);
                EXPECT_EQ(line["wcdmaRrcState"], number);
            } else {
                const int serial = line["info"]["serial"];
                ++answers.at(serial);
                EXPECT_NE(text.find('"' + std::to_string(serial) + '"'), text.npos) << text;
            }
        }
    }
    EXPECT_EQ(answers, accepted);
    for (int i = 0; i < ROUNDS; ++i) {  // one that nobody took may have been kept
        EXPECT_LE(events[i], 1) << i;
        EXPECT_GE(events[i], reported[i] ? 1 : 0) << i;
    }
    EXPECT_EQ(proxy.indicateCachedInfo(), 0);
    EXPECT_THAT(client.take(), IsEmpty()) << "kept after its replay";
}
