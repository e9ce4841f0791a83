#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <framework/Errno.h>
#include <framework/Handler.h>
#include <framework/Message.h>
#include <modem_api.h>

#include "clients/ModemAsyncCbData.h"
#include "params/ModemLog.h"
#include "proxies/ModemIndicationProxy.h"
#include "proxies/ModemResponseProxy.h"

/** Result of the modem API as a framework code: 3 and 5 have one of their own, the rest fail. */
int convertModemAPIResultToOX(modem_api_result_type result);

/** What tells one client from another in the steps and log texts that all share. */
struct QmiService {
    modem_api_qmi_service_type type;
    const char* name;                          ///< short name of the service, as in "DMS"
    const std::string& className;              ///< the client's RTTI_TYPE
    Errno notConnected = ERRNO_NOT_CONNECTED;  ///< answer while the service is not connected
};

/**
 * Base of the clients, one per QMI service. Request methods run on any thread and only post a
 * message to the client itself; `handle` serves the messages on the client's handler thread;
 * modem threads report connections and finish asynchronous calls. Handlers answer the caller
 * themselves. Must be owned by a shared pointer.
 */
class QmiClient : public Handler {
public:
    /** Runs on the modem's event thread each time the service connects. */
    virtual void onConnected();

    /** Opens the connection to the service; 0, or 1 with an error line. */
    virtual int setup();

    /** Closes the connection to the service; 0, or 1 with an error line. */
    virtual int release();

    bool isConnected() const { return mConnected; }

    /** Takes the modem's report; `onConnected` runs before it returns, for true. */
    void setConnectionStatus(bool connected);

    /**
     * Posts a request with a record of the value's type.
     *
     * @return 0 when it was dispatched; 5 or dispatch's code after an error line otherwise
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
    template <class... Payload>
    using Respond = int (ModemResponseProxy::*)(int, Errno, Payload...);

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
    QmiClient(const QmiService& service, std::shared_ptr<ModemResponseProxy> responseProxy,
              std::shared_ptr<ModemIndicationProxy> indicationProxy);

    void logConnected(const char* func) const;

    /** Builds a record from `values`, and posts it to this client; `func` names the request. */
    template <class Record, class... Values>
    int post(PostTexts texts, const char* func, int msgId, int serial, Values&&... values);

    /** Posts a finished record, or none; `serial` is for the log alone. */
    int postRecord(PostTexts texts, const char* func, int msgId, int serial,
                   std::shared_ptr<Param> record);

    static int refusePost(PostTexts texts, const char* func, int msgId);

    /** First step of `handle`: logs the arrival; false for a null message. */
    bool accepts(const char* func, const MessagePtr& msg) const;

    /** Second step of `handle`: runs the row of the message's id; 2 when there is none. */
    template <class Client, class Routes>
    static int route(Client& client, const char* func, const Routes& routes, const MessagePtr& msg);

    /** The message's record when it is a `Record`; null with an error line otherwise. */
    template <class Record>
    static const Record* takeRecord(const char* func, const MessagePtr& msg);

    /** 0, or the service's code after an error line. */
    Errno checkConnected(const char* func) const;

    /**
     * Serves a synchronous request: takes its record, checks with `ready`, calls the modem, logs,
     * answers.
     *
     * @param ready gives 0, or the code to answer with instead of calling
     * @param call gets the record and the payload of the answer to fill, zero or empty before;
     *        returns 0 on success, any other value answers with 1
     * @return the respond call's result; 3 without an answer for a wrong record
     */
    template <class Record, class Ready, class Call, class... Payload>
    int serveWhen(Ready ready, const char* func, CallTexts texts, const MessagePtr& msg, Call call,
                  Respond<Payload...> respond);

    /** `serveWhen` the service is connected. */
    template <class Record, class Call, class... Payload>
    int serve(const char* func, CallTexts texts, const MessagePtr& msg, Call call,
              Respond<Payload...> respond);

    /** The code that `fill` returns; 5 with an error line when there was no memory for it. */
    template <class Fill>
    static Errno withMemory(const char* func, Fill fill);

    /** Reads a value from the modem; one that could not be read stays as it was. */
    template <class Value>
    static int fetch(int (*get)(Value*), Value& value);

    /**
     * Takes back the cookie of an asynchronous call and frees it at the end.
     *
     * @param finish gets the cookie, whose message and client were checked
     */
    template <class Finish>
    static void finishAsync(const QmiService& service, const char* func, void* cookie,
                            Finish finish);

    /** The whole callback of a client that makes no asynchronous calls. */
    static void refuseAsync(const QmiService& service, const char* func, void* cookie);

    static void logUnsupportedOriginal(const QmiService& service, const char* func, int msgId);

    const QmiService& mService;
    const std::shared_ptr<ModemResponseProxy> mResponseProxy;
    const std::shared_ptr<ModemIndicationProxy> mIndicationProxy;

private:
    std::atomic<bool> mConnected{false};
};

template <class Record, class... Values>
int QmiClient::post(PostTexts texts, const char* func, int msgId, int serial, Values&&... values) {
    std::shared_ptr<Param> record;
    try {
        record = std::make_shared<Record>(serial, std::forward<Values>(values)...);
    } catch (const std::bad_alloc&) {
        return refusePost(texts, func, msgId);
    }
    return postRecord(texts, func, msgId, serial, std::move(record));
}

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

template <class Record>
const Record* QmiClient::takeRecord(const char* func, const MessagePtr& msg) {
    const std::shared_ptr<Param> param = msg->getParam();
    if (!param || !param->isType(Record::RTTI_TYPE)) {
        LOG_E("%s: invalid parameter", func);
        return nullptr;
    }
    return static_cast<const Record*>(param.get());
}

template <class Record, class Ready, class Call, class... Payload>
int QmiClient::serveWhen(Ready ready, const char* func, CallTexts texts, const MessagePtr& msg,
                         Call call, Respond<Payload...> respond) {
    const Record* request = takeRecord<Record>(func, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    std::tuple<std::decay_t<Payload>...> payload{};
    Errno err = ready();
    if (err == ERRNO_SUCCESS) {
        const auto callWith = [&](auto&... values) { return call(*request, values...); };
        err = withMemory(func, [&] {
            return std::apply(callWith, payload) == 0 ? ERRNO_SUCCESS : ERRNO_FAILED;
        });
        if (err != ERRNO_SUCCESS && texts.failed != nullptr) {
            LOG_E("%s: %s", func, texts.failed);
        } else if (err == ERRNO_SUCCESS && texts.succeeded != nullptr) {
            LOG_I("%s: %s", func, texts.succeeded);
        }
    }
    const auto answerWith = [&](const auto&... values) {
        return (mResponseProxy.get()->*respond)(request->serial, err, values...);
    };
    return std::apply(answerWith, payload);
}

template <class Record, class Call, class... Payload>
int QmiClient::serve(const char* func, CallTexts texts, const MessagePtr& msg, Call call,
                     Respond<Payload...> respond) {
    return serveWhen<Record>([&] { return checkConnected(func); }, func, texts, msg, call, respond);
}

template <class Fill>
Errno QmiClient::withMemory(const char* func, Fill fill) {
    try {
        return fill();
    } catch (const std::bad_alloc&) {
        LOG_E("%s: no memory for the answer", func);
        return ERRNO_NO_MEMORY;
    }
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

template <class Finish>
void QmiClient::finishAsync(const QmiService& service, const char* func, void* cookie,
                            Finish finish) {
    if (cookie == nullptr) {
        LOG_E("%s: null async cb data for %s QMI client, can't proceed callback", func,
              service.name);
        return;
    }
    const std::unique_ptr<ModemAsyncCbData> owned(static_cast<ModemAsyncCbData*>(cookie));
    if (!owned->msg) {
        LOG_E("%s: can't get original %s request message from cb data, maybe logic issue", func,
              service.name);
    } else if (!owned->client || !owned->client->isType(service.className)) {
        LOG_E("%s: can't get %s QMI client from cb data, maybe logic issue", func, service.name);
    } else {
        finish(*owned);
    }
}
