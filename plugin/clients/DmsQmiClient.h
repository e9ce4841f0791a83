#pragma once

#include "clients/QmiClient.h"

/** Device management (DMS, QMI service 2): the operating mode. Every modem call is synchronous. */
class DmsQmiClient : public QmiClient {
public:
    static const std::string& RTTI_TYPE;
    static const QmiService SERVICE;

    DmsQmiClient(const std::shared_ptr<ModemResponseProxy>& responseProxy,
                 const std::shared_ptr<ModemIndicationProxy>& indicationProxy);

    int getOperatingMode(int serial);
    int setOperatingMode(int serial, int mode);

    int handle(std::shared_ptr<Message> msg) override;
    void onConnected() override;

    static void modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                      modem_api_result_type result);

private:
    int handleGetOperatingModeMessage(const MessagePtr& msg);
    int handleSetOperatingModeMessage(const MessagePtr& msg);
};
