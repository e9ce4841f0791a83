#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <framework/Errno.h>
#include <framework/Handler.h>
#include <framework/Message.h>
#include <modem_api.h>

#include "clients/ModemAsyncCbData.h"
#include "params/FunctionRef.h"
#include "params/ModemLog.h"
#include "proxies/ModemIndicationProxy.h"
#include "proxies/ModemResponseProxy.h"

/** The framework code for a modem API result: 0 for 0, 3 for 3, 2 for 5, and 1 for any other. */
int convertModemAPIResultToOX(modem_api_result_type result);

/** The QMI service that a client serves, as the code and log texts of the base class need it. */
struct QmiService {
    modem_api_qmi_service_type type;
    const char* name;                          ///< short name of the service, as in "DMS"
    const std::string& className;              ///< the client's RTTI_TYPE
    Errno notConnected = ERRNO_NOT_CONNECTED;  ///< answer while it is not connected
};

/** The serial of a message that a client posts to itself: nobody waits for an answer. */
constexpr int INTERNAL_SERIAL = -1;

/** A client's state, for a person who asks the service for it. */
struct ClientState {
    bool connected = false;
    std::optional<bool> bound;        ///< NAS, VS, WDS: the subscription is bound
    std::optional<int> bindRetries;   ///< NAS and WDS: retries posted so far
    std::optional<bool> openCommand;  ///< AT: a command waits for its confirmation
    uint64_t taken = 0;               ///< requests that reached the client
    uint64_t answered = 0;            ///< answers that the upper layer's callback took
    uint64_t refused = 0;             ///< requests that could not be queued
};

/**
 * Base of the clients, one per QMI service. Request methods run on any thread and only post a
 * message to the client itself; `handle` serves the messages on the client's handler thread;
 * modem threads report connections and finish asynchronous calls. Handlers answer the caller
 * themselves. Must be owned by a shared pointer.
 */
class QmiClient : public Handler {
public:
    ~QmiClient() override;

    /** Runs on the modem's event thread each time the service connects. */
    virtual void onConnected();

    /** Opens the connection to the service; 0, or 1 with an error line. */
    virtual int setup();

    /** Closes the connection to the service; 0, or 1 with an error line. */
    virtual int release();

    bool isConnected() const { return mConnected; }

    const QmiService& getService() const { return mService; }

    /** The state at this moment; any thread. Figures that change meanwhile may not match. */
    virtual ClientState getState() const;

    /** Counts a request that came for this client, and one that could not be queued; any thread. */
    void countTaken() { mTaken.fetch_add(1, std::memory_order_relaxed); }
    void countRefused() { mRefused.fetch_add(1, std::memory_order_relaxed); }

    /**
     * Notes whether the service is connected; on the modem's event thread. When it is,
     * `onConnected` runs before this returns.
     */
    void setConnectionStatus(bool connected);

    /**
     * Posts a request with a record of the value's type.
     *
     * @return 0 when it was dispatched; else, after an error line, 5 or what `dispatch` returned
     */
    int sendRequest(int serial, int msgId);
    int sendRequest(int serial, int msgId, int value);
    int sendRequest(int serial, int msgId, unsigned int value);
    int sendRequest(int serial, int msgId, bool value);
    int sendRequest(int serial, int msgId, unsigned char value);
    int sendRequest(int serial, int msgId, const std::string& value);
    int sendRequest(int serial, int msgId, const std::vector<uint8_t>& value);

protected:
    using MessagePtr = std::shared_ptr<Message>;
    using Proxy = ModemResponseProxy;
    template <class... Payload>
    using Respond = ModemResponseProxy::Respond<Payload...>;

    /** Wording of the lines that tell why a message could not be posted. */
    enum class PostTexts {
        BY_ID,           ///< names the message id, not the function
        BY_NAME,         ///< "%s: failed to dispatch msg, serial = %d"
        BY_NAME_SHORT,   ///< "%s: failed to dispatch serial = %d"
        WITHOUT_SERIAL,  ///< "%s: failed to dispatch msg"
    };

    /** What a synchronous call logs; null for no line. */
    struct CallTexts {
        const char* failed = nullptr;
        const char* succeeded = nullptr;
    };

    /** One row of a client's table: which member serves a message id. */
    template <class Client>
    struct Route {
        int id;
        int (Client::*handler)(const MessagePtr& msg);
    };

    /** `service` must outlive the client. */
    QmiClient(const QmiService& service, const std::shared_ptr<ModemResponseProxy>& responseProxy,
              const std::shared_ptr<ModemIndicationProxy>& indicationProxy);

    void logConnected(const char* func) const;

    /** A record built from `values`; null without memory. */
    template <class Record, class... Values>
    static std::shared_ptr<Param> makeRecord(const Values&... values) {
        try {
            return std::make_shared<Record>(values...);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    /** Builds a record from `values`, and posts it to this client; `func` names the request. */
    template <class Record, class... Values>
    int post(PostTexts texts, const char* func, int msgId, int serial, const Values&... values) {
        auto record = makeRecord<Record>(serial, values...);
        return record ? postRecord(texts, func, msgId, serial, std::move(record))
                      : refusePost(texts, func, msgId);
    }

    /** Posts a finished record, or none; `serial` is for the log alone. */
    int postRecord(PostTexts texts, const char* func, int msgId, int serial,
                   std::shared_ptr<Param> record);

    /** Posts a request without arguments, whose log line shows its serial. */
    int postVoid(const char* func, int msgId, int serial);

    static int refusePost(PostTexts texts, const char* func, int msgId);

    /** First step of `handle`: logs the message; false, with an error line, for a null one. */
    bool accepts(const char* func, const MessagePtr& msg) const;

    /** Second step of `handle`: runs the handler for the message's id; 2 when there is none. */
    template <class Client, class Routes>
    static int route(Client& client, const char* func, const Routes& routes, const MessagePtr& msg);

    /** The message's record when it is a `Record`; null with an error line otherwise. */
    template <class Record>
    static const Record* takeRecord(const char* func, const MessagePtr& msg) {
        return static_cast<const Record*>(takeRecord(Record::RTTI_TYPE, func, msg));
    }
    static const Param* takeRecord(const std::string& type, const char* func,
                                   const MessagePtr& msg);

    /** 0, or `QmiService::notConnected` after an error line. */
    Errno checkConnected(const char* func) const;

    /** What a request needs before its modem call: 0, or the code to answer with, logged. */
    using Ready = Errno (QmiClient::*)(const char* func) const;

    /**
     * Serves a synchronous request: takes its record, checks that the client is ready, calls the
     * modem, logs, answers.
     *
     * @param call makes the modem call; gets the record, and the answer's payload (zero or empty)
     *        to fill. Returns 0 on success; any other value is answered with 1
     * @return the respond call's result; 3 without an answer for a wrong record
     */
    template <class Record, class Call>
    int serve(const char* func, CallTexts texts, const MessagePtr& msg, Respond<> respond,
              const Call& call, Ready ready = &QmiClient::checkConnected) {
        const Record* request = takeRecord<Record>(func, msg);
        if (request == nullptr) {
            return ERRNO_INVALID_PARAM;
        }
        const Errno err = callModem(ready, func, texts, [&] { return call(*request); });
        return answer(respond, request->serial, err);
    }
    template <class Record, class Call, class Payload>
    int serve(const char* func, CallTexts texts, const MessagePtr& msg, Respond<Payload> respond,
              const Call& call, Ready ready = &QmiClient::checkConnected) {
        const Record* request = takeRecord<Record>(func, msg);
        if (request == nullptr) {
            return ERRNO_INVALID_PARAM;
        }
        std::decay_t<Payload> payload{};
        const Errno err = callModem(ready, func, texts, [&] { return call(*request, payload); });
        return answer(respond, request->serial, err, payload);
    }

    /** Makes the answer's respond call, and counts it when the upper layer's callback took it. */
    template <class... Payload>
    int answer(Respond<Payload...> respond, int serial, Errno err,
               const std::decay_t<Payload>&... payload) {
        return countAnswer((mResponseProxy.get()->*respond)(serial, err, payload...));
    }
    int countAnswer(int result);

    /** Runs `fill` and returns its code; 5, with an error line, when it ran out of memory. */
    static Errno withMemory(const char* func, FunctionRef<Errno()> fill);

    /** Reads a value with `get`; `value` changes on success alone. Returns what `get` returned. */
    template <class Value>
    static int fetch(int (*get)(Value*), Value& value);

    /**
     * Takes back the cookie of an asynchronous call and frees it at the end; on the modem's
     * callback thread.
     *
     * @param finish runs when the cookie has a message, and a client of this service
     */
    static void finishAsync(const QmiService& service, const char* func, void* cookie,
                            FunctionRef<void(const ModemAsyncCbData&)> finish);

    /** `modemApiAsyncCallback` of a client that makes no asynchronous calls: an error line. */
    static void refuseAsync(const QmiService& service, const char* func, void* cookie);

    static void logUnsupportedOriginal(const QmiService& service, const char* func, int msgId);

    const QmiService& mService;
    const std::shared_ptr<ModemResponseProxy> mResponseProxy;
    const std::shared_ptr<ModemIndicationProxy> mIndicationProxy;

private:
    /** Calls the modem when the client is ready, and logs how it went. */
    Errno callModem(Ready ready, const char* func, CallTexts texts, FunctionRef<int()> call) const;

    std::atomic<bool> mConnected{false};

    // Changed with relaxed order: they are only shown, and nothing else depends on them.
    std::atomic<uint64_t> mTaken{0};
    std::atomic<uint64_t> mAnswered{0};
    std::atomic<uint64_t> mRefused{0};
};

template <class Client, class Routes>
int QmiClient::route(Client& client, const char* func, const Routes& routes,
                     const MessagePtr& msg) {
    const int id = msg->getId();
    for (const auto& row : routes) {
        if (row.id == id) {
            return (client.*row.handler)(msg);
        }
    }
    LOG_E("%s: unsupported message id %d, can't be handled in %s", func, id,
          client.mService.className.c_str());
    return ERRNO_UNSUPPORTED;
}

template <class Value>
int QmiClient::fetch(int (*get)(Value*), Value& value) {
    Value fetched{};
    const int result = get(&fetched);
    if (result == 0) {
        value = fetched;
    }
    return result;
}
