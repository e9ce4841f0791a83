// Binding of subscriptions: NAS and WDS, on connection, by retries and before a request.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Service.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Lines = std::vector<std::string>;

constexpr int LIMIT = 20;

}  // namespace

struct BindRow {
    const char* name;
    int service;
    const char* request;  ///< one that needs the binding
    int id;
    const char* handler;
    const char* empty;
};

class Bind : public testing::TestWithParam<BindRow> {
protected:
    explicit Bind(int instance = 0) : service(instance) {
        lower[0] = static_cast<char>(tolower(lower[0]));
        lower[1] = static_cast<char>(tolower(lower[1]));
        lower[2] = static_cast<char>(tolower(lower[2]));
        function = "modem_api_bind_" + lower + "_subscription";
    }

    /** A service whose client has never been bound. */
    void startUnbound(desk::Delivery delivery = desk::Delivery::STEPS) {
        desk::setDelivery(delivery);
        service.modem.reset();
        service.modem.returns(function, 1);
        impl = ModemImpl::create(1);
        impl->setup();
        EXPECT_TRUE(impl->setCallback(service.client.responses(), nullptr).isOk());
        service.forget();
    }
    size_t attempts() const {
        for (const std::string& call : service.modem.calls(function)) {
            EXPECT_EQ(call, function + "(1)") << "the subscription of the instance";
        }
        return service.modem.calls(function).size();
    }
    std::string failed() const {
        return "E bindSubscription: failed to bind " + name + " QMI subscription for instance id 1";
    }
    std::string retry(int count) const {
        return "I bindSubscription: retry binding " + name +
               " QMI subscription with instance id 1 "
               "for " +
               std::to_string(count) + " times, max 20 times";
    }
    std::string reachedMax() const {
        return "E bindSubscription: retry binding " + name +
               " QMI subscription with instance id 1 reach max 20 times";
    }
    std::string handling(int id) const {
        return "I handle: " + name.substr(0, 1) + lower.substr(1) +
               "QmiClient is handling message: " + std::to_string(id);
    }
    /** The lines of a run of attempts that all fail, from a connection on. */
    Lines failingRun() const {
        Lines lines{"I received modem api event 0", "I " + name + " QMI service is connected",
                    "I onConnected: " + name + " QMI client is connected"};
        for (int count = 1; count <= LIMIT; ++count) {
            lines.insert(lines.end(), {failed(), retry(count), handling(1)});
        }
        lines.insert(lines.end(), {failed(), reachedMax()});
        return lines;
    }

    const BindRow& row = GetParam();
    const std::string name = row.name;
    std::string lower = name;
    std::string function;
    Service service;
    std::shared_ptr<ModemImpl> impl;
};
INSTANTIATE_TEST_SUITE_P(
        Clients, Bind,
        testing::Values(BindRow{"NAS", 3, "getVoNRMode", 7, "handleGetVoNRMode", R"(,"mode":0)"},
                        BindRow{"WDS", 1, "isImsProfileNormal", 2,
                                "handleCheckImsProfileNormalMessage", R"(,"result":0)"}),
        [](const auto& info) { return info.param.name; });

TEST_P(Bind, FailsAlwaysInEitherDelivery) {
    for (const auto delivery : {desk::Delivery::STEPS, desk::Delivery::CALLER}) {
        startUnbound(delivery);
        service.connect(row.service);
        Service::runAll();
        EXPECT_EQ(attempts(), 21U);
        Lines lines = service.log.take();
        if (delivery == desk::Delivery::STEPS) {
            EXPECT_EQ(lines, failingRun());
        } else {
            EXPECT_EQ(lines.size(), failingRun().size());
        }
        EXPECT_EQ(desk::pendingMessages(), 0U);
    }
    // The chain has stopped; another connection makes one attempt and finds the limit reached.
    service.modem.clearCalls();
    service.connect(row.service);
    Service::runAll();
    EXPECT_EQ(attempts(), 1U);
    EXPECT_EQ(service.log.take().back(), reachedMax());
}

TEST_P(Bind, FailsAlwaysOnThreads) {
    startUnbound(desk::Delivery::THREADS);
    service.connect(row.service);
    ASSERT_TRUE(service.log.waitFor(reachedMax()));
    EXPECT_EQ(attempts(), 21U);
}

TEST_P(Bind, FailsTwiceThenSucceedsAndALaterFailureStartsAfresh) {
    startUnbound();
    service.modem.returnsOnce(function, {1, 1, 0});
    service.connect(row.service);
    Service::runAll();
    EXPECT_EQ(attempts(), 3U);
    service.forget();
    service.disconnect(row.service);
    service.log.take();
    service.connect(row.service);
    Service::runAll();
    EXPECT_EQ(attempts(), 21U);
    EXPECT_EQ(service.log.take(), failingRun());
    // Bound is for good: the request is served, whatever failed since.
    service.forget();
    TextClient::call(impl.get(), row.request, 5, {});
    Service::runAll();
    EXPECT_EQ(attempts(), 0U);
    EXPECT_THAT(service.client.take(), ElementsAre(answerLine(row.request, 5, 0, row.empty)));
}

TEST_P(Bind, RequestWhileUnboundMakesOneAttempt) {
    startUnbound();
    service.connect(row.service);
    Service::runAll();
    service.forget();
    TextClient::call(impl.get(), row.request, 5, {});
    Service::runAll();
    EXPECT_EQ(attempts(), 1U);
    Lines lines = service.log.take();
    EXPECT_EQ(Lines(lines.begin() + 2, lines.begin() + 7),
              (Lines{handling(row.id), "I handle: need to rebind sub first", failed(), reachedMax(),
                     std::string("E ") + row.handler + ": bind sub failed"}));
    EXPECT_THAT(service.client.take(), ElementsAre(answerLine(row.request, 5, 1, row.empty)));

    service.modem.returns(function, 0);
    TextClient::call(impl.get(), row.request, 6, {});
    Service::runAll();
    EXPECT_THAT(service.client.take(), ElementsAre(answerLine(row.request, 6, 0, row.empty)));
}

// A request that comes while retries are queued ends their chain with its own attempt.
TEST_P(Bind, RequestBetweenRetries) {
    startUnbound();
    service.connect(row.service);  // one attempt, and a retry in the queue
    TextClient::call(impl.get(), row.request, 5, {});
    Service::runAll();
    // Connection, queued retry (which queues another), request, and the last in the queue.
    EXPECT_EQ(attempts(), 4U);
    EXPECT_EQ(service.log.take().back(), reachedMax());
}

TEST_P(Bind, UnservedIdsStillRebindAndTheBindMessageDoesNot) {
    startUnbound();
    const auto client = ModemImpl::getQmiClient(row.service);
    EXPECT_EQ(client->handle(Message::obtain(9, client, nullptr, nullptr)), 2);
    EXPECT_EQ(attempts(), 1U);
    service.forget();
    EXPECT_EQ(client->handle(Message::obtain(1, client, nullptr, nullptr)), 3);
    EXPECT_THAT(service.log.take(),
                ElementsAre(handling(1), "E handleBindSubscriptionMessage: invalid parameter"));
    EXPECT_EQ(attempts(), 0U);
    service.modem.returns(function, 0);
    EXPECT_EQ(client->handle(
                      Message::obtain(1, client, std::make_shared<SerialIntParam>(-1, 1), nullptr)),
              0);
    EXPECT_EQ(attempts(), 1U);
    EXPECT_THAT(service.client.take(), IsEmpty());
}

// Bound while not connected: the connection is what the answer tells.
TEST_P(Bind, BoundButNotConnected) {
    startUnbound();
    service.modem.returns(function, 0);
    TextClient::call(impl.get(), row.request, 5, {});
    Service::runAll();
    EXPECT_THAT(service.log.take(), testing::Contains(std::string("E ") + row.handler + ": " +
                                                      name + " QMI service not connected"));
}

TEST(NasBind, SuppressionFollowsTheBindAndItsFailureIsOnlyLogged) {
    Service service;
    service.modem.returns("modem_suppress_nas_ss_inds", 1);
    service.connect(3);
    EXPECT_THAT(service.modem.calls(),
                ElementsAre("modem_api_bind_nas_subscription(0)", "modem_suppress_nas_ss_inds()"));
    EXPECT_EQ(service.log.take().back(), "E onConnected: failed to suppress NAS ss indications");
}

// ---- Deletion of IMS profiles -------------------------------------------------------------------

struct ProfilesRow {
    const char* name;
    int listResult;
    int count;                   ///< as the modem reports it
    std::vector<int> deletions;  ///< results
    size_t calls;
    int error;
};

class Profiles : public testing::TestWithParam<ProfilesRow> {};
INSTANTIATE_TEST_SUITE_P(Rows, Profiles,
                         testing::Values(ProfilesRow{"All", 0, 3, {0, 0, 0}, 3, 0},
                                         ProfilesRow{"MiddleFails", 0, 3, {0, 1, 0}, 3, 0},
                                         ProfilesRow{"LastFails", 0, 3, {0, 0, 1}, 3, 1},
                                         ProfilesRow{"None", 0, 0, {}, 0, 1},
                                         ProfilesRow{"ListFails", 1, 3, {}, 0, 1},
                                         ProfilesRow{"Full", 0, 24, {}, 24, 0},
                                         ProfilesRow{"CountTooLarge", 0, 255, {}, 24, 0}),
                         [](const auto& info) { return info.param.name; });

TEST_P(Profiles, AreAllTriedAndTheLastDecides) {
    const ProfilesRow& row = GetParam();
    Service service;
    service.modem.onCall("modem_qdp_get_ims_profile", [&](void* out) {
        auto& [list, count] = *static_cast<std::pair<modem_ims_profile*, uint8_t*>*>(out);
        list[1].bytes[7] = 0xab;
        *count = static_cast<uint8_t>(row.count);
    });
    service.modem.returns("modem_qdp_get_ims_profile", row.listResult);
    service.modem.returnsOnce("modem_qdp_delete_ims_profile", row.deletions);
    service.call("deleteImsProfile", 5);
    Service::runAll();
    const Lines deleted = service.modem.calls("modem_qdp_delete");
    ASSERT_THAT(deleted, SizeIs(row.calls));
    if (row.calls > 1) {
        EXPECT_EQ(deleted[1], "modem_qdp_delete_ims_profile(00000000000000ab)");
    }
    EXPECT_THAT(service.client.take(),
                ElementsAre(answerLine("deleteImsProfile", 5, row.error, "")));
    const std::string begin = "handleDeleteImsProfileMessage: ";
    Lines expected{row.listResult == 0
                           ? "I " + begin + "successfully sent sync request to get ims profile list"
                           : "E " + begin + "failed to send sync request to get ims profile list"};
    for (size_t i = 0; i < row.calls; ++i) {
        const bool failed = i < row.deletions.size() && row.deletions[i] != 0;
        expected.push_back(
                (failed ? "E " + begin + "failed to send" : "I " + begin + "successfully sent") +
                std::string(" sync request to delete ims profile"));
    }
    Lines lines = service.log.take();
    EXPECT_EQ(Lines(lines.begin() + 3, lines.end() - 2), expected);
}

// Served while the subscription is unbound, after the one attempt that every request makes.
TEST(Profiles, AreDeletedWhileUnbound) {
    Service service;
    service.modem.returns("modem_api_bind_wds_subscription", 1);
    const auto impl = ModemImpl::create(0);
    impl->setup();
    EXPECT_TRUE(impl->setCallback(service.client.responses(), nullptr).isOk());
    service.connect(1);
    Service::runAll();
    service.forget();
    TextClient::call(impl.get(), "deleteImsProfile", 5, {});
    Service::runAll();
    EXPECT_THAT(service.modem.calls(), testing::Contains("modem_qdp_delete_ims_profile"
                                                         "(0000000000000000)")
                                               .Times(24));
    EXPECT_THAT(service.client.take(), ElementsAre(answerLine("deleteImsProfile", 5, 0, "")));
}
