// Binding of subscriptions and deletion of profiles as they are logged. When an attempt is made,
// and what becomes of requests meanwhile, the generated schedules follow.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Requests.h"
#include "tests/support/Service.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Lines = std::vector<std::string>;

}  // namespace

class Bind : public testing::TestWithParam<int> {
protected:
    Bind() : service(1) {
        service.modem.reset();
        service.modem.returns(function, 1);
        impl = ModemImpl::create(1);
        impl->setup();
        service.forget();
    }
    std::string failed() const {
        return "E bindSubscription: failed to bind " + name + " QMI subscription for instance id 1";
    }
    std::string retrying(const std::string& how) const {
        return "bindSubscription: retry binding " + name + " QMI subscription with instance id 1 " +
               how;
    }
    std::string handling() const {
        return std::string("I handle: ") + (name == "NAS" ? "Nas" : "Wds") +
               "QmiClient is handling message: 1";
    }

    const std::string name = ModemImpl::getQmiServiceName(GetParam());
    const std::string function =
            std::string("modem_api_bind_") + (GetParam() == NAS ? "nas" : "wds") + "_subscription";
    Service service;
    std::shared_ptr<ModemImpl> impl;
};
INSTANTIATE_TEST_SUITE_P(Clients, Bind, testing::Values(NAS, WDS));

TEST_P(Bind, TellsTwentyRetriesInEitherDelivery) {
    service.connect(GetParam());
    Service::runAll();
    Lines lines;
    for (int count = 1; count <= 20; ++count) {
        const std::string how = "for " + std::to_string(count) + " times, max 20 times";
        lines.insert(lines.end(), {failed(), "I " + retrying(how), handling()});
    }
    lines.insert(lines.end(), {failed(), "E " + retrying("reach max 20 times")});
    Lines log = service.log.take();
    EXPECT_EQ(Lines(log.begin() + 3, log.end()), lines);

    for (const auto delivery : {desk::Delivery::CALLER, desk::Delivery::THREADS}) {
        desk::setDelivery(delivery);
        impl = ModemImpl::create(1);
        impl->setup();
        service.forget();
        service.connect(GetParam());
        ASSERT_TRUE(service.log.waitFor("reach max 20 times"));
        EXPECT_EQ(service.modem.calls(function).size(), 21U);
    }
}

TEST_P(Bind, IsTriedBeforeAnyRequestAndNotForItsOwnMessage) {
    const auto client = ModemImpl::getQmiClient(GetParam());
    const char* const request = GetParam() == NAS ? "getVoNRMode" : "isImsProfileNormal";
    TextClient::call(impl.get(), request, 5, {});
    Service::runAll();
    EXPECT_THAT(service.log.take(),
                testing::IsSupersetOf({std::string("I handle: need to rebind sub first"), failed(),
                                       "E " + retrying("reach max 20 times")}));
    EXPECT_EQ(client->handle(Message::obtain(9, client, nullptr, nullptr)), 2);
    EXPECT_EQ(service.modem.calls(function).size(), 2U);
    service.forget();
    EXPECT_EQ(client->handle(Message::obtain(1, client, nullptr, nullptr)), 3);
    EXPECT_THAT(service.log.take(),
                ElementsAre(handling(), "E handleBindSubscriptionMessage: invalid parameter"));
    EXPECT_THAT(service.modem.calls(), IsEmpty());
}

TEST(NasBind, SuppressionThatFailsIsOnlyLogged) {
    Service service;
    service.modem.returns("modem_suppress_nas_ss_inds", 1);
    service.connect(NAS);
    EXPECT_EQ(service.log.take().back(), "E onConnected: failed to suppress NAS ss indications");
    service.modem.returns("modem_api_bind_nas_subscription", 1);
    const auto impl = ModemImpl::create(0);
    impl->setup();
    TextClient::call(impl.get(), "getVoNRMode", 5, {});
    Service::runAll();
    EXPECT_THAT(service.log.take(), Contains("E handleGetVoNRMode: bind sub failed"));
}

TEST(Profiles, AreAllTriedAndTold) {
    Service service;
    service.modem.onCall("modem_qdp_get_ims_profile", [](void* out) {
        *static_cast<std::pair<modem_ims_profile*, uint8_t*>*>(out)->second = 2;
    });
    service.modem.returnsOnce("modem_qdp_get_ims_profile", {0, 1});
    service.modem.returnsOnce("modem_qdp_delete_ims_profile", {1, 0});
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
