#pragma once

#include "clients/QmiClient.h"

/** Specific absorption rate (SAR, QMI service 17): the RF SAR state. Instance 0 only. */
class SarQmiClient : public QmiClient {
public:
    static const std::string& RTTI_TYPE;
    static const QmiService SERVICE;

    SarQmiClient(const std::shared_ptr<ModemResponseProxy>& responseProxy,
                 const std::shared_ptr<ModemIndicationProxy>& indicationProxy);

    /** The modem gets the state unchanged, also a negative one. */
    int setSarState(int serial, int state);

    int handle(std::shared_ptr<Message> msg) override;
    void onConnected() override;

    static void modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                      modem_api_result_type result);

private:
    int handleSetSarStateMessage(const MessagePtr& msg);
};
