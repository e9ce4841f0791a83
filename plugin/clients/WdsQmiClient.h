#pragma once

#include "clients/SubscriptionClient.h"

/**
 * Wireless data (WDS, QMI service 1): state and deletion of the IMS profiles. Every modem call is
 * synchronous.
 */
class WdsQmiClient : public SubscriptionClient {
public:
    static const std::string& RTTI_TYPE;
    static const QmiService SERVICE;

    WdsQmiClient(int instanceId, const std::shared_ptr<ModemResponseProxy>& responseProxy,
                 const std::shared_ptr<ModemIndicationProxy>& indicationProxy);

    int isImsProfileNormal(int serial);
    int deleteImsProfile(int serial);

    int handle(std::shared_ptr<Message> msg) override;
    void onConnected() override;

    static void modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                      modem_api_result_type result);

private:
    int handleCheckImsProfileNormalMessage(const MessagePtr& msg);
    int handleDeleteImsProfileMessage(const MessagePtr& msg);
};
