#pragma once

#include "clients/QmiClient.h"

/**
 * Persistent device configuration (PDC, QMI service 36): the modem configuration files (MBN).
 * Instance 0 only.
 *
 * Active info, meta info and activate regular are answered later, from modem events: the request's
 * serial travels to the modem as a token and comes back in the event, and no table of requests is
 * kept. A load is synchronous and holds up this client's later requests until it ends.
 */
class PdcQmiClient : public QmiClient {
public:
    static const std::string& RTTI_TYPE;
    static const QmiService SERVICE;

    PdcQmiClient(const std::shared_ptr<ModemResponseProxy>& responseProxy,
                 const std::shared_ptr<ModemIndicationProxy>& indicationProxy);

    int getActiveMbnInfo(int serial, int type);
    int getMetaMbnInfo(int serial, const std::vector<uint8_t>& configId, int length);
    int getMbnList(int serial);
    int selectMbn(int serial, int type, const std::vector<uint8_t>& configId);
    int selectMbnExt(int serial, int type, const std::vector<uint8_t>& configId, int length);
    int deleteAllMbns(int serial);
    int loadMbnConfig(int serial, const std::vector<uint8_t>& path);
    int activateMbn(int serial, int type);
    int deactivateMbn(int serial, int type);
    int activateRegularMbn(int serial, int type);

    /** Events, on the modem's event thread. Data shorter than its layout is refused with 3. */
    int respondGetActiveMbnInfoAsync(const void* data, size_t len);
    int respondGetMetaMbnInfoAsync(const void* data, size_t len);
    int respondActivateRegularMbnAsync(const void* data, size_t len);

    int handle(std::shared_ptr<Message> msg) override;
    void onConnected() override;

    static void modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                      modem_api_result_type result);

private:
    static constexpr CallTexts SELECTED{nullptr, "successfully selected mbn"};

    int handleGetActiveMbnInfoMessage(const MessagePtr& msg);
    int handleGetMetaMbnInfoMessage(const MessagePtr& msg);
    int handleGetMbnListMessage(const MessagePtr& msg);
    int handleSelectMbnMessage(const MessagePtr& msg);
    int handleSelectMbnExtMessage(const MessagePtr& msg);
    int handleDeleteAllMbnsMessage(const MessagePtr& msg);
    int handleLoadMbnConfigMessage(const MessagePtr& msg);
    int handleActivateMbnMessage(const MessagePtr& msg);
    int handleDeactivateMbnMessage(const MessagePtr& msg);
    int handleActivateRegularMbnMessage(const MessagePtr& msg);

    template <class Record, class... Values>
    int postRequest(const char* func, int msgId, int serial, const Values&... values);

    /** Answers an info request from its event, whose record holds the bytes at offset 12. */
    template <class Event>
    int respondInfo(const char* func, const void* data, size_t len, uint32_t Event::*length,
                    Respond<const PdcMbnInfo&> respond);
};
