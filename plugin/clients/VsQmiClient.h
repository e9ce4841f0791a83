#pragma once

#include <atomic>
#include "clients/QmiClient.h"

/**
 * The vendor-specific service (VS, QMI service 228): build texts, MBN by name, AGPS, power save,
 * properties, SIM-lock, bands, RAT mask, RRC, radio reports; NV items, EFS files and PRL; and three
 * kinds of event.
 *
 * Asynchronous requests are finished on the modem's callback threads, beside the handler thread;
 * the cookie brings message and client, so no request needs state of the client.
 */
class VsQmiClient : public QmiClient {
public:
    static const std::string& RTTI_TYPE;
    static const QmiService SERVICE;

    VsQmiClient(int instanceId, const std::shared_ptr<ModemResponseProxy>& responseProxy,
                const std::shared_ptr<ModemIndicationProxy>& indicationProxy);

    // The modem itself: VsQmiClientModem.cpp
    int getBuildTime(int serial);
    int getBuildId(int serial);
    int activateMbnByName(int serial, const std::string& name);
    int restoreMbn(int serial);
    int doCommonInterfaceDebug(int serial, unsigned int value);
    int getSimlockInfoStatus(int serial);
    int getSimlockInfoCategory(int serial);
    int getSimlockInfoNumberRetriesRemain(int serial);
    int getSimlockFuseStatus(int serial);
    int rebootModem(int serial);

    // Settings of the modem: VsQmiClientModem.cpp
    int setAgpsTestMode(int serial, unsigned int mode);
    int getAgpsTestMode(int serial);
    int getModemPowerSaveMode(int serial);
    int setModemPowerSaveMode(int serial, unsigned char mode);
    int setModemPowerSaveStatus(int serial, unsigned char status);
    int setModemProperty(int serial, const std::string& name, const std::string& value);
    int getModemProperty(int serial, const std::string& name);
    int deleteModemProperty(int serial, const std::string& name);

    // NV items, EFS files and PRL: VsQmiClientStorage.cpp
    int readNVItem(int serial, signed char selector1, int item, signed char selector2);
    int writeNVItem(int serial, signed char selector1, int item, signed char selector2,
                    const std::vector<unsigned char>& data);
    int readEfsFile(int serial, int file, unsigned char subSelector);
    int writeEfsFile(int serial, int file, unsigned char subSelector,
                     const std::vector<unsigned char>& data);
    int deleteEfsFile(int serial, int file, unsigned char subSelector);
    int readPrl(int serial, unsigned char selector);
    int writePrl(int serial, unsigned char selector, const std::vector<unsigned char>& data);
    int verifyNV(int serial, int item, const std::vector<unsigned char>& data);
    int deleteEfsFileDir(int serial, int directory);

    // Radio: VsQmiClientRadio.cpp
    int getBandsInfo(int serial);
    int removeRatMask(int serial);
    int abortRRCConnection(int serial);
    int setRadioInfoReportEnabled(int serial, unsigned int enabled);

    /** Events, on the modem's event thread. Data shorter than its layout is refused with 3. */
    int reportRRCStateInd(const void* data, size_t length) const;
    int reportRadioInfoInd(const void* data, size_t length) const;
    int reportPowerSaveModeInd(const void* data, size_t length) const;

    int handle(std::shared_ptr<Message> msg) override;
    /** Binds the subscription and asks for the events, anew with each connection. */
    void onConnected() override;
    ClientState getState() const override;

    /** Finishes an asynchronous request; `data` is a `modem_async_response`. */
    static void modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                      modem_api_result_type result);

private:
    // Some synchronous requests use the asynchronous texts on purpose: logs are searched for them.
    static constexpr CallTexts SYNC_TEXTS{"failed to send sync request",
                                          "successfully sent sync request"};
    static constexpr CallTexts ASYNC_TEXTS{"failed to send async request",
                                           "successfully sent async request"};

    /** What the modem reports for an asynchronous request, and the request's own record. */
    struct Completion {
        const void* data;
        size_t length;
        const SerialParam& request;
    };

    using Process = int (VsQmiClient::*)(const Completion& completion);

    /** A request's row: its handler and, for an asynchronous one, the completion. */
    struct VsRoute : Route<VsQmiClient> {
        Process process = nullptr;
    };
    static const VsRoute ROUTES[];

    // The modem itself.
    int handleGetBuildTimeMessage(const MessagePtr& msg);
    int processGetBuildTimeAsyncResponse(const Completion& completion);
    int handleGetBuildIdMessage(const MessagePtr& msg);
    int processGetBuildIdAsyncResponse(const Completion& completion);
    int finishBuildText(const char* func, const char* what, const Completion& completion,
                        Respond<const std::string&> respond);
    int handleActivateMbnByNameMessage(const MessagePtr& msg);
    int processActivateMbnByNameAsyncResponse(const Completion& completion);
    int handleRestoreMbnMessage(const MessagePtr& msg);
    int processRestoreMbnAsyncResponse(const Completion& completion);
    int handleDoCommonInterfaceDebugMessage(const MessagePtr& msg);
    int serveSimlockInfo(const char* func, const MessagePtr& msg,
                         uint8_t modem_simlock_info::*field, Respond<uint8_t> respond);
    int handleGetSimlockInfoStateMessage(const MessagePtr& msg);
    int handleGetSimlockInfoCategoryMessage(const MessagePtr& msg);
    int handleGetSimlockInfoNumberRetriesRemainMessage(const MessagePtr& msg);
    int handleGetSimlockFuseStateMessage(const MessagePtr& msg);
    int handleRebootModemMessage(const MessagePtr& msg);

    // Settings.
    int handleSetAgpsTestModeMessage(const MessagePtr& msg);
    int processSetAgpsTestModeAsyncResponse(const Completion& completion);
    int handleGetAgpsTestModeMessage(const MessagePtr& msg);
    int processGetAgpsTestModeAsyncResponse(const Completion& completion);
    int handleGetModemPowerSaveModeMessage(const MessagePtr& msg);
    int processGetModemPowerSaveModeAsyncResponse(const Completion& completion);
    int handleSetModemPowerSaveModeMessage(const MessagePtr& msg);
    int processSetModemPowerSaveModeAsyncResponse(const Completion& completion);
    int handleSetModemPowerSaveStatusMessage(const MessagePtr& msg);
    int processSetModemPowerSaveStatusAsyncResponse(const Completion& completion);
    int handleSetModemPropertyMessage(const MessagePtr& msg);
    int processSetModemPropertyAsyncResponse(const Completion& completion);
    int handleGetModemPropertyMessage(const MessagePtr& msg);
    int processGetModemPropertyAsyncResponse(const Completion& completion);
    int handleDeleteModemPropertyMessage(const MessagePtr& msg);

    // NV items, EFS files and PRL.
    int handleReadNVItemMessage(const MessagePtr& msg);
    int handleWriteNVItemMessage(const MessagePtr& msg);
    int handleReadEfsFileMessage(const MessagePtr& msg);
    int handleWriteEfsFileMessage(const MessagePtr& msg);
    int handleDeleteEfsFileMessage(const MessagePtr& msg);
    int handleReadPrlMessage(const MessagePtr& msg);
    int handleWritePrlMessage(const MessagePtr& msg);
    int handleVerifyNVMessage(const MessagePtr& msg);
    int handleDeleteEfsFileDirMessage(const MessagePtr& msg);

    // Radio.
    int handleGetBandsInfoMessage(const MessagePtr& msg);
    int processGetBandsInfoAsyncResponse(const Completion& completion);
    int handleRemoveRatMaskMessage(const MessagePtr& msg);
    int processRemoveRatMaskAsyncResponse(const Completion& completion);
    int handleAbortRRCConnectionMessage(const MessagePtr& msg);
    int processAbortRRCConnectionResponse(const Completion& completion);
    int handleSetRadioInfoReportEnabledMessage(const MessagePtr& msg);
    int processSetRadioInfoReportEnabledAsyncResponse(const Completion& completion);

    /** The Errno of an asynchronous response record; 3 for one of another size. */
    Errno verifyModemAPIResponse(const void* data, size_t length) const;

    /**
     * Serves an asynchronous request: takes its record, checks the connection, hands the modem a
     * cookie; answers only when the modem does not take the call.
     *
     * @param call makes the modem call; gets the record and the cookie, returns what it returned
     */
    template <class Record, class Call, class... Payload>
    int serveAsync(const char* func, const MessagePtr& msg, Respond<Payload...> respond,
                   const Call& call);

    /** Makes the cookie and the call; 0 when the modem took it, else the code to answer with. */
    Errno sendAsync(const char* func, const MessagePtr& msg, FunctionRef<int(void* cookie)> call);

    /** Finishes a request whose answer is its result alone. */
    int finish(const char* func, const Completion& completion, Respond<> respond);

    /**
     * Finishes a request with a payload.
     *
     * @param extract fills the payload from the response; returns 0, or the Errno to answer with
     */
    template <class Extract, class Payload>
    int finish(const char* func, const Completion& completion, Respond<Payload> respond,
               const Extract& extract);

    /** Checks a response record and hands it to `extract`; returns the code to answer with. */
    Errno readAsyncResponse(const char* func, const void* data, size_t length,
                            FunctionRef<Errno(const modem_async_response&)> extract) const;

    const int mInstanceId;
    std::atomic<bool> mBound{false};  ///< what the bind at the last connection came to
};

template <class Record, class Call, class... Payload>
int VsQmiClient::serveAsync(const char* func, const MessagePtr& msg, Respond<Payload...> respond,
                            const Call& call) {
    const Record* request = takeRecord<Record>(func, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    const Errno err = sendAsync(func, msg, [&](void* cookie) { return call(*request, cookie); });
    return err == ERRNO_SUCCESS ? err
                                : answer(respond, request->serial, err, std::decay_t<Payload>{}...);
}

template <class Extract, class Payload>
int VsQmiClient::finish(const char* func, const Completion& completion, Respond<Payload> respond,
                        const Extract& extract) {
    std::decay_t<Payload> payload{};
    const Errno err = readAsyncResponse(func, completion.data, completion.length,
                                        [&](const modem_async_response& reported) {
                                            return extract(reported.payload, payload);
                                        });
    return answer(respond, completion.request.serial, err, payload);
}
