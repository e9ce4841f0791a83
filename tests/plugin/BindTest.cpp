// Connecting, binding of subscriptions and deletion of profiles as they are logged. When an attempt
// is made, and what becomes of requests meanwhile, the generated schedules follow.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Requests.h"
#include "tests/support/Service.h"

using testing::Contains;

class Bind : public testing::TestWithParam<Qmi> {
protected:
    const std::string name = ModemImpl::getQmiServiceName(GetParam());
    const std::string function = GetParam() == NAS ? "modem_api_bind_nas_subscription(1)"
                                                   : "modem_api_bind_wds_subscription(1)";
    const std::string handling = std::string("I handle: ") + (name == "NAS" ? "Nas" : "Wds") +
                                 "QmiClient is handling message: 1";
    const std::string failed =
            "E bindSubscription: failed to bind " + name + " QMI subscription for instance id 1";
    const std::string retry =
            " bindSubscription: retry binding " + name + " QMI subscription with instance id 1 ";
    Service service{1};

    Bind() { startUnbound(); }

    void startUnbound() {
        service.modem.returns(function.substr(0, function.find('(')), {1});
        service.impl = ModemImpl::create(1);
        service.impl->setup();
        service.forget();
    }
};
INSTANTIATE_TEST_SUITE_P(Clients, Bind, testing::Values(NAS, WDS));

TEST_P(Bind, TellsTwentyRetriesInEitherDelivery) {
    service.connect(GetParam());
    Service::runAll();
    Lines lines;
    for (int count = 1; count <= 20; ++count) {
        const std::string how = "for " + std::to_string(count) + " times, max 20 times";
        lines.insert(lines.end(), {failed, "I" + retry + how, handling});
    }
    lines.insert(lines.end(), {failed, "E" + retry + "reach max 20 times"});
    Lines log = service.log.take();
    EXPECT_EQ(Lines(log.begin() + 3, log.end()), lines);

    for (const auto delivery : {desk::Delivery::CALLER, desk::Delivery::THREADS}) {
        desk::setDelivery(delivery);
        startUnbound();
        service.connect(GetParam());
        ASSERT_TRUE(service.log.waitFor("reach max 20 times"));
        EXPECT_THAT(service.modem.calls(), Contains(function).Times(21));
    }
}

TEST_P(Bind, IsTriedBeforeAnyRequest) {
    const bool isNas = GetParam() == NAS;
    service.call(isNas ? "getVoNRMode" : "isImsProfileNormal", 5);
    Service::runAll();
    const std::string handler = isNas ? "GetVoNRMode" : "CheckImsProfileNormalMessage";
    EXPECT_THAT(service.log.take(),
                testing::IsSupersetOf({std::string("I handle: need to rebind sub first"), failed,
                                       "E" + retry + "reach max 20 times",
                                       "E handle" + handler + ": bind sub failed"}));
    const auto client = ModemImpl::getQmiClient(GetParam());
    EXPECT_EQ(client->handle(Message::obtain(1, client, nullptr, nullptr)), 3);
    EXPECT_EQ(service.log.take(),
              (Lines{handling, "E handleBindSubscriptionMessage: invalid parameter"}));
}

// What is called nevertheless, the generated schedules follow.
TEST(Connection, GoesOnWithoutWhatTheModemRefuses) {
    Service service(1);
    service.modem.returns("modem_suppress_nas_ss_inds", {1});
    service.modem.returns("modem_api_bind_vs_subscription", {1});
    service.connect(NAS);
    EXPECT_EQ(service.log.take().back(), "E onConnected: failed to suppress NAS ss indications");
    service.connect(VS);
    EXPECT_EQ(service.log.take().back(),
              "E onConnected: failed to bind VS QMI subscription for instance id 1");
}

TEST(Profiles, AreAllTriedAndTold) {
    Service service;
    service.modem.onCall("modem_qdp_get_ims_profile", [](void* out) {
        *static_cast<std::pair<modem_ims_profile*, uint8_t*>*>(out)->second = 2;
    });
    service.modem.returns("modem_qdp_get_ims_profile", {0, 1});
    service.modem.returns("modem_qdp_delete_ims_profile", {1, 0});
    service.call("deleteImsProfile", 5);
    service.call("deleteImsProfile", 6);
    Service::runAll();
    const std::string func = " handleDeleteImsProfileMessage: ";
    EXPECT_THAT(service.log.take(),
                testing::IsSupersetOf(
                        {"I" + func + "successfully sent sync request to get ims profile list",
                         "E" + func + "failed to send sync request to delete ims profile",
                         "I" + func + "successfully sent sync request to delete ims profile",
                         "E" + func + "failed to send sync request to get ims profile list"}));
}
