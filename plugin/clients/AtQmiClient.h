#pragma once

#include <atomic>
#include <chrono>

#include "clients/QmiClient.h"

/**
 * AT command forwarding (AT, QMI service 8): the AT command "+LOG", with which an operator starts
 * and stops the log of a test case. Instance 0 only.
 *
 * A command that was recognised stays open until the upper layer confirms it or an error is sent;
 * one is open at a time, and a later one takes its place. The log's state is kept in persistent
 * properties. Messages run on the handler thread; a log that was left running is re-announced once
 * on a detached thread, which holds no reference to the client while it waits.
 */
class AtQmiClient : public QmiClient {
public:
    static const std::string& RTTI_TYPE;
    static const QmiService SERVICE;

    static constexpr const char* sAtLogCommandName = "+LOG";
    static constexpr const char* AT_COMMAND_LOG_MODE_START_STRING = "1";
    static constexpr const char* AT_COMMAND_LOG_MODE_STOP_STRING = "0";
    static constexpr const char* AT_COMMAND_LOG_TEST_RESULT_SUCCESS_STRING = "0";
    static constexpr const char* AT_COMMAND_LOG_TEST_RESULT_FAILURE_STRING = "1";
    static constexpr const char* AT_COMMAND_LOG_TC_NAME_TS_START = "ts_start";
    static constexpr const char* AT_COMMAND_LOG_TC_NAME_TS_END = "ts_end";
    static constexpr const char* AT_LOG_STATUS_PROPERTY = "persist.service.atlog.status";
    static constexpr const char* AT_LOG_TCNAME_PROPERTY = "persist.service.atlog.tcname";
    static constexpr const char* AT_LOG_TCINDEX_PROPERTY = "persist.service.atlog.tcindex";

    /** @param reportDelay how long the re-announcement of a log waits */
    AtQmiClient(const std::shared_ptr<ModemResponseProxy>& responseProxy,
                const std::shared_ptr<ModemIndicationProxy>& indicationProxy,
                std::chrono::milliseconds reportDelay = std::chrono::seconds(3));

    /** Posts the registration of the command with the modem. */
    int registerAtCommandInd();

    /** Takes an AT command event, on the modem's event thread; `data` is copied. */
    int processAtCommand(const void* data, size_t len);

    int sendLogControlResp(int serial);

    /**
     * Writes the log's state to the properties; a stop keeps the stored name.
     *
     * @return 0; 1, with an error line, when a property cannot be written
     */
    static int saveAtLogStatus(bool start, const char* tcName);

    /**
     * Reads the log's state back and, while it is on, consumes one index.
     *
     * @param name takes the stored name, "_" and the index, NUL-terminated, as far as they fit
     * @param size bytes of `name`, above 5; the stored name is cut to `size` - 6 characters
     * @return 0; 1 when the index is too long or cannot be written; 3 for a bad argument
     */
    static int retrieveAtLogStatus(bool* on, char* name, size_t size);

    ClientState getState() const override;
    int handle(std::shared_ptr<Message> msg) override;
    void onConnected() override;

    static void modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                      modem_api_result_type result);

private:
    /** What an AT+LOG command asks for. */
    struct LogCommand {
        uint8_t logMode;
        uint8_t testResult;
        std::string tcName;
    };

    int handleRegisterAtCommandIndMessage(const MessagePtr& msg);
    int handleProcessAtCommandMessage(const MessagePtr& msg);
    int handleSendLogControlRespMessage(const MessagePtr& msg);

    void startReportThread();

    /** The report thread: waits and announces a log that was left running. */
    static void runReport(const std::weak_ptr<AtQmiClient>& client,
                          std::chrono::milliseconds delay);
    void reportAtLogControlInfo(const char* tcName);

    Errno parseAtCommand(const modem_atlog_cmd_type& command);
    /** Tells the upper layer what the parsed command asks for; 0 when its callback took it. */
    int processParsedCommand(const char* func);
    /** Reads the tokens into `command`, moving the name out; false for an unknown command. */
    bool readLogCommand(const char* func, LogCommand& command);
    uint8_t readTestResult(const char* func) const;

    int sendLogControlErrorResp();
    int confirmLogCommand(const char* func);
    /**
     * Sends the modem the response to the open command, which is open no more then. Without a
     * connection nothing is sent and the command stays open.
     *
     * @param what the response, as the log lines call it
     */
    int sendToModem(const char* func, uint32_t result, const char* what);

    const std::chrono::milliseconds mReportDelay;

    // The command that is being handled, for the handler thread alone. The handle stays until the
    // next command: the response to this one may be sent long after.
    uint64_t mHandle = 0;
    uint64_t mOpCode = 0;
    std::string mName;
    std::vector<std::string> mTokens;

    /** True from the moment an AT+LOG command is recognised until the modem got its response. */
    std::atomic<bool> mProcessing{false};
    /** Set when the report thread starts and never cleared: a client starts one at most. */
    std::atomic<bool> mReported{false};
};
