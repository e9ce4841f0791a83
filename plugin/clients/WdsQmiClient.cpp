#include "clients/WdsQmiClient.h"

#include <algorithm>

#include "params/MessageIds.h"

const std::string& WdsQmiClient::RTTI_TYPE = *new std::string("WdsQmiClient");
const QmiService WdsQmiClient::SERVICE{MODEM_API_QMI_SERVICE_WDS, "WDS", RTTI_TYPE};

namespace {

const SubscriptionBinding BINDING{modem_api_bind_wds_subscription, true};

int deleteProfile(const char* func, const modem_ims_profile& profile) {
    const int result = modem_qdp_delete_ims_profile(&profile);
    if (result != 0) {
        LOG_E("%s: failed to send sync request to delete ims profile", func);
    } else {
        LOG_I("%s: successfully sent sync request to delete ims profile", func);
    }
    return result;
}

/** Deletes every profile. Returns the result of the last deletion; 1 when there was none. */
int deleteProfiles(const char* func) {
    modem_ims_profile profiles[MODEM_IMS_PROFILE_MAX] = {};
    uint8_t count = MODEM_IMS_PROFILE_MAX;
    if (modem_qdp_get_ims_profile(profiles, &count) != 0) {
        LOG_E("%s: failed to send sync request to get ims profile list", func);
        return ERRNO_FAILED;
    }
    LOG_I("%s: successfully sent sync request to get ims profile list", func);
    int result = ERRNO_FAILED;
    for (uint8_t i = 0; i < std::min<uint8_t>(count, MODEM_IMS_PROFILE_MAX); ++i) {
        result = deleteProfile(func, profiles[i]);
    }
    return result;
}

}  // namespace

WdsQmiClient::WdsQmiClient(int instanceId, const std::shared_ptr<ModemResponseProxy>& responseProxy,
                           const std::shared_ptr<ModemIndicationProxy>& indicationProxy)
    : SubscriptionClient(SERVICE, BINDING, instanceId, responseProxy, indicationProxy) {
    enableRtti(RTTI_TYPE);
}

int WdsQmiClient::handle(std::shared_ptr<Message> msg) {
    static constexpr Route<WdsQmiClient> ROUTES[] = {
            {SubscriptionMessage::BIND_SUBSCRIPTION, &WdsQmiClient::handleBindSubscriptionMessage},
            {WdsMessage::CHECK_IMS_PROFILE_NORMAL,
             &WdsQmiClient::handleCheckImsProfileNormalMessage},
            {WdsMessage::DELETE_IMS_PROFILE, &WdsQmiClient::handleDeleteImsProfileMessage},
    };
    if (!accepts(__func__, msg)) {
        return ERRNO_INVALID_PARAM;
    }
    rebindBeforeUse(__func__, msg->getId());
    return route(*this, __func__, ROUTES, msg);
}

void WdsQmiClient::onConnected() {
    logConnected(__func__);
    bindSubscription(mInstanceId);
}

int WdsQmiClient::isImsProfileNormal(int serial) {
    return postVoid(__func__, WdsMessage::CHECK_IMS_PROFILE_NORMAL, serial);
}

int WdsQmiClient::handleCheckImsProfileNormalMessage(const MessagePtr& msg) {
    // The modem decides what is normal; its value is passed on, also when the call failed.
    return serve<SerialVoidParam>(
            __func__, {"failed to check ims profile", "successfully check ims profile"}, msg,
            &Proxy::respondIsImsProfileNormal,
            [](const auto&, uint32_t& state) { return modem_qdp_check_ims_profile(&state); },
            BOUND);
}

int WdsQmiClient::deleteImsProfile(int serial) {
    return postVoid(__func__, WdsMessage::DELETE_IMS_PROFILE, serial);
}

int WdsQmiClient::handleDeleteImsProfileMessage(const MessagePtr& msg) {
    // Needs the connection, but no bound subscription.
    const char* func = __func__;
    return serve<SerialVoidParam>(func, {}, msg, &Proxy::respondDeleteImsProfile,
                                  [func](const auto&) { return deleteProfiles(func); });
}

void WdsQmiClient::modemApiAsyncCallback(const void*, size_t, void* cookie, modem_api_result_type) {
    refuseAsync(SERVICE, __func__, cookie);
}
