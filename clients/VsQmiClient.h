#pragma once

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

    VsQmiClient(int instanceId, std::shared_ptr<ModemResponseProxy> responseProxy,
                std::shared_ptr<ModemIndicationProxy> indicationProxy);

    int getBuildTime(int serial);
    int getBuildId(int serial);
    int activateMbnByName(int serial, const std::string& name);
    int restoreMbn(int serial);
    int setAgpsTestMode(int serial, unsigned int mode);
    int getAgpsTestMode(int serial);
    int getModemPowerSaveMode(int serial);
    int setModemPowerSaveMode(int serial, unsigned char mode);
    int setModemProperty(int serial, const std::string& name, const std::string& value);
    int getModemProperty(int serial, const std::string& name);
    int deleteModemProperty(int serial, const std::string& name);
    int doCommonInterfaceDebug(int serial, unsigned int value);
    int setModemPowerSaveStatus(int serial, unsigned char status);
    int getSimlockInfoStatus(int serial);
    int getSimlockInfoCategory(int serial);
    int getSimlockInfoNumberRetriesRemain(int serial);
    int getSimlockFuseStatus(int serial);
    int rebootModem(int serial);
    int getBandsInfo(int serial);
    int removeRatMask(int serial);
    int abortRRCConnection(int serial);
    int setRadioInfoReportEnabled(int serial, unsigned int enabled);

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

    /** Events, on the modem's event thread. Data shorter than its layout is refused with 3. */
    int reportRRCStateInd(const void* data, size_t length) const;
    int reportRadioInfoInd(const void* data, size_t length) const;
    int reportPowerSaveModeInd(const void* data, size_t length) const;

    int handle(std::shared_ptr<Message> msg) override;
    /** Binds the subscription and asks for the events, anew with each connection. */
    void onConnected() override;

    /** Finishes an asynchronous request; `data` is a `modem_async_response`. */
    static void modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                      modem_api_result_type result);

private:
    using RequestPtr = std::shared_ptr<SerialParam>;
    using Process = int (VsQmiClient::*)(const void* data, size_t length, RequestPtr request) const;

    /** A request's row: its handler and, for an asynchronous one, what finishes it. */
    struct VsRoute : Route<VsQmiClient> {
        Process process = nullptr;
    };
    static const VsRoute ROUTES[];
    static constexpr size_t ROUTE_COUNT = 31;

    int handleGetBuildTimeMessage(const MessagePtr& msg);
    int handleGetBuildIdMessage(const MessagePtr& msg);
    int handleActivateMbnByNameMessage(const MessagePtr& msg);
    int handleRestoreMbnMessage(const MessagePtr& msg);
    int handleSetAgpsTestModeMessage(const MessagePtr& msg);
    int handleGetAgpsTestModeMessage(const MessagePtr& msg);
    int handleGetModemPowerSaveModeMessage(const MessagePtr& msg);
    int handleSetModemPowerSaveModeMessage(const MessagePtr& msg);
    int handleSetModemPropertyMessage(const MessagePtr& msg);
    int handleGetModemPropertyMessage(const MessagePtr& msg);
    int handleDeleteModemPropertyMessage(const MessagePtr& msg);
    int handleDoCommonInterfaceDebugMessage(const MessagePtr& msg);
    int handleSetModemPowerSaveStatusMessage(const MessagePtr& msg);
    int handleReadNVItemMessage(const MessagePtr& msg);
    int handleWriteNVItemMessage(const MessagePtr& msg);
    int handleReadEfsFileMessage(const MessagePtr& msg);
    int handleWriteEfsFileMessage(const MessagePtr& msg);
    int handleDeleteEfsFileMessage(const MessagePtr& msg);
    int handleReadPrlMessage(const MessagePtr& msg);
    int handleWritePrlMessage(const MessagePtr& msg);
    int handleVerifyNVMessage(const MessagePtr& msg);
    int handleGetSimlockInfoStateMessage(const MessagePtr& msg);
    int handleGetSimlockInfoCategoryMessage(const MessagePtr& msg);
    int handleGetSimlockInfoNumberRetriesRemainMessage(const MessagePtr& msg);
    int handleGetSimlockFuseStateMessage(const MessagePtr& msg);
    int handleRebootModemMessage(const MessagePtr& msg);
    int handleGetBandsInfoMessage(const MessagePtr& msg);
    int handleRemoveRatMaskMessage(const MessagePtr& msg);
    int handleAbortRRCConnectionMessage(const MessagePtr& msg);
    int handleSetRadioInfoReportEnabledMessage(const MessagePtr& msg);
    int handleDeleteEfsFileDirMessage(const MessagePtr& msg);

    int processGetBuildTimeAsyncResponse(const void* data, size_t length, RequestPtr request) const;
    int processGetBuildIdAsyncResponse(const void* data, size_t length, RequestPtr request) const;
    int processActivateMbnByNameAsyncResponse(const void* data, size_t length,
                                              RequestPtr request) const;
    int processRestoreMbnAsyncResponse(const void* data, size_t length, RequestPtr request) const;
    int processSetAgpsTestModeAsyncResponse(const void* data, size_t length,
                                            RequestPtr request) const;
    int processGetAgpsTestModeAsyncResponse(const void* data, size_t length,
                                            RequestPtr request) const;
    int processGetModemPowerSaveModeAsyncResponse(const void* data, size_t length,
                                                  RequestPtr request) const;
    int processSetModemPowerSaveModeAsyncResponse(const void* data, size_t length,
                                                  RequestPtr request) const;
    int processSetModemPropertyAsyncResponse(const void* data, size_t length,
                                             RequestPtr request) const;
    int processGetModemPropertyAsyncResponse(const void* data, size_t length,
                                             RequestPtr request) const;
    int processSetModemPowerSaveStatusAsyncResponse(const void* data, size_t length,
                                                    RequestPtr request) const;
    int processGetBandsInfoAsyncResponse(const void* data, size_t length, RequestPtr request) const;
    int processRemoveRatMaskAsyncResponse(const void* data, size_t length,
                                          RequestPtr request) const;
    int processAbortRRCConnectionResponse(const void* data, size_t length,
                                          RequestPtr request) const;
    int processSetRadioInfoReportEnabledAsyncResponse(const void* data, size_t length,
                                                      RequestPtr request) const;

    int postVoid(const char* func, int msgId, int serial);

    /** The Errno of an asynchronous response record. */
    Errno verifyModemAPIResponse(const void* data, size_t length) const;

    /**
     * Serves an asynchronous request: takes its record, checks the connection, hands the modem a
     * cookie.
     *
     * @param call gets the record and the cookie, and returns what the modem's function returned;
     *        nonzero gives the cookie back and answers with 1
     */
    template <class Record, class Call, class... Payload>
    int serveAsync(const char* func, const MessagePtr& msg, Call call, Respond<Payload...> respond);

    /** `serveAsync` for a modem function without arguments, and for one with the record's value. */
    template <class... Payload>
    int serveAsync(const char* func, const MessagePtr& msg,
                   int (*modemCall)(void*, modem_api_async_callback), Respond<Payload...> respond);
    template <class Record, class Value, class... Payload>
    int serveAsync(const char* func, const MessagePtr& msg,
                   int (*modemCall)(Value, void*, modem_api_async_callback),
                   Respond<Payload...> respond);

    /** Finishes a request whose answer is its result alone. */
    int finish(const char* func, const void* data, size_t length, const RequestPtr& request,
               Respond<> respond) const;

    /**
     * Finishes a request with a payload.
     *
     * @param extract fills the payload from the response; a nonzero Errno answers with that and
     *        an empty payload
     */
    template <class Extract, class Payload>
    int finish(const char* func, const void* data, size_t length, const RequestPtr& request,
               Respond<Payload> respond, Extract extract) const;

    int finishBuildText(const char* func, const char* what, const void* data, size_t length,
                        const RequestPtr& request, Respond<const std::string&> respond) const;

    int serveSimlockInfo(const char* func, const MessagePtr& msg,
                         uint8_t modem_simlock_info::*field, Respond<uint8_t> respond);

    /** Posts an NV, EFS or PRL request, whose lines name the function. */
    template <class Record, class... Values>
    int postStorage(const char* func, int msgId, int serial, Values&&... values);

    const int mInstanceId;
};
