#pragma once

#include "clients/SubscriptionClient.h"

/**
 * Network access (NAS, QMI service 3): NR network mode, VoNR mode, NR deprioritisation. Every modem
 * call is synchronous; mode values go through unchanged.
 */
class NasQmiClient : public SubscriptionClient {
public:
    static const std::string& RTTI_TYPE;
    static const QmiService SERVICE;

    NasQmiClient(int instanceId, const std::shared_ptr<ModemResponseProxy>& responseProxy,
                 const std::shared_ptr<ModemIndicationProxy>& indicationProxy);

    int switchNRNetworkMode(int serial, int mode);
    int getNRNetworkMode(int serial);
    int setVoNRMode(int serial, int mode);
    int getVoNRMode(int serial);
    int deprioritizeNr(int serial, int mode);

    int handle(std::shared_ptr<Message> msg) override;
    void onConnected() override;

    static void modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                      modem_api_result_type result);

private:
    int handleSwitchNRNetworkMode(const MessagePtr& msg);
    int handleGetNRNetworkMode(const MessagePtr& msg);
    int handleSetVoNRMode(const MessagePtr& msg);
    int handleGetVoNRMode(const MessagePtr& msg);
    int handleSetDeprioritizeNrMode(const MessagePtr& msg);

    int postMode(const char* func, int msgId, int serial, int mode);
    int serveSet(const char* func, CallTexts texts, const MessagePtr& msg, int (*set)(int32_t),
                 Respond<> respond);
    int serveGet(const char* func, CallTexts texts, const MessagePtr& msg, int (*get)(uint32_t*),
                 Respond<uint32_t> respond);
};
