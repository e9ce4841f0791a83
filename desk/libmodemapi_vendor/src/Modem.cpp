#include "Modem.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "Commands.h"
#include "TextPort.h"
#include "runtime/ErrorOutput.h"
#include "runtime/RuntimeDir.h"

namespace fake {

namespace {

/** Events that the vendor service reports, to the subscription it is bound to. */
constexpr modem_api_event_type INDICATIONS[] = {
        MODEM_API_EVENT_RRC_STATE, MODEM_API_EVENT_NR_RADIO_INFO, MODEM_API_EVENT_POWER_SAVE_MODE};

bool isIndication(modem_api_event_type event) {
    return std::count(std::begin(INDICATIONS), std::end(INDICATIONS), event) != 0;
}

}  // namespace

Modem& Modem::get() {
    static Modem& modem = *new Modem;
    return modem;
}

void Modem::startPorts() {
    std::call_once(mPortsOnce, [this] {
        try {
            const std::string instance = runtime::instance();
            const std::string port = runtime::fakeModemPort(instance);
            serveTextPort(port, runCommand);
            const std::string link = runtime::atPort(instance);
            const std::string terminal = mAtPort.open(link);
            runtime::ErrorOutput::get().print("fake modem: text port %s, AT port %s (%s)",
                                              port.c_str(), link.c_str(), terminal.c_str());
        } catch (const std::exception& error) {
            runtime::ErrorOutput::get().print("fake modem goes on without a port: %s",
                                              error.what());
        }
    });
}

int Modem::admit(const char* function, Needs needs, bool isAnsweredLater) {
    if (const int code = mFaults.enter(function, !isAnsweredLater); code != 0) {
        return code;
    }
    if (isAnsweredLater && !(mAnswers.takesMore() && mEvents.takesMore())) {
        return MODEM_API_RESULT_FAILURE;
    }
    std::lock_guard lock(mMutex);
    return mLinks.isReady(needs) ? MODEM_API_RESULT_SUCCESS : MODEM_API_RESULT_FAILURE;
}

bool Links::isReady(Needs needs) const {
    const auto found = connections.find(needs.service);
    return needs.service == 0 || (found != connections.end() && found->second.isUp &&
                                  (!needs.bound || found->second.bound >= 0));
}

Milliseconds Modem::timeOf(const char* name) {
    return with([&](const Memory& memory) { return memory.time(name); });
}

void Modem::answer(const char* function, const modem_async_response& response, void* cookie,
                   modem_api_async_callback callback) {
    mAnswers.post(mFaults.answerDelay(function, timeOf("latency-ms")),
                  [callback, cookie, result = response.result,
                   bytes = mFaults.shape(function, &response, sizeof(response))] {
                      callback(bytes.empty() ? nullptr : bytes.data(), bytes.size(), cookie,
                               result);
                  });
}

void Modem::answerByEvent(const char* function, modem_api_event_type event, const void* record,
                          size_t size) {
    mEvents.post(mFaults.answerDelay(function, timeOf("latency-ms")),
                 [this, event, bytes = mFaults.shape(function, record, size)] {
                     deliver(event, bytes, false);
                 });
}

bool Modem::isWanted(modem_api_event_type event) {
    return receiver(event, false) != nullptr;
}

modem_api_event_callback Modem::receiver(modem_api_event_type event, bool always) {
    std::lock_guard lock(mMutex);
    const bool isPossible =
            event == MODEM_API_EVENT_AT_COMMAND ? mLinks.isReady({MODEM_API_QMI_SERVICE_AT, false})
            : isIndication(event)
                    ? mLinks.indications && mLinks.isReady({MODEM_API_QMI_SERVICE_VS, true})
                    : true;
    return always || (isPossible && mLinks.subscribed.count(event) != 0) ? mLinks.callback
                                                                         : nullptr;
}

void Modem::raise(modem_api_event_type event, Bytes data, bool always) {
    mEvents.post(timeOf("latency-ms"),
                 [this, event, data = std::move(data), always] { deliver(event, data, always); });
}

void Modem::deliver(modem_api_event_type event, Bytes data, bool always) {
    if (const auto callback = receiver(event, always)) {
        callback(event, data.empty() ? nullptr : data.data(), data.size());
    }
}

void Modem::raiseAtCommand(AtCommand command) {
    mEvents.post(timeOf("latency-ms"),
                 [this, command = std::move(command)] { deliverAtCommand(command); });
}

void Modem::deliverAtCommand(const AtCommand& command) {
    const auto callback = receiver(MODEM_API_EVENT_AT_COMMAND, false);
    if (callback == nullptr) {
        mAtPort.finish(command.handle, false);
        return;
    }
    modem_atlog_cmd_type record{};
    record.handle = command.handle;
    record.op_code = command.opCode;
    record.token_count = command.tokenCount;
    // A full name is not terminated.
    memcpy(record.name, command.name.data(), std::min(command.name.size(), sizeof(record.name)));
    // The receiver frees as many as the count says.
    const size_t count = std::min(
            {command.tokens.size(), size_t{command.tokenCount}, size_t{MODEM_ATLOG_TOKENS_MAX}});
    for (size_t i = 0; i < count; ++i) {
        record.tokens[i] = command.tokens[i] ? strdup(command.tokens[i]->c_str()) : nullptr;
    }
    callback(MODEM_API_EVENT_AT_COMMAND, &record, sizeof(record));
}

void Modem::setRadioReport(bool on) {
    std::unique_lock lock(mMutex);
    mRadioReport = on;
    const uint64_t run = ++mRadioRun;
    lock.unlock();
    mEvents.post(timeOf("latency-ms"), [this, run] { reportRadio(run); });
}

void Modem::reportRadio(uint64_t run) {
    std::unique_lock lock(mMutex);
    if (run != mRadioRun || !mRadioReport) {
        return;
    }
    const Bytes data = toBytes(mMemory.radio);
    const Milliseconds interval = mMemory.time("radio-interval-ms");
    lock.unlock();
    deliver(MODEM_API_EVENT_NR_RADIO_INFO, data, false);
    mEvents.post(interval, [this, run] { reportRadio(run); });
}

bool Modem::open(modem_api_qmi_service_type service) {
    if (std::none_of(std::begin(SERVICES), std::end(SERVICES),
                     [&](const auto& known) { return known.first == service; })) {
        return false;
    }
    {
        std::lock_guard lock(mMutex);
        mLinks.connections[service].isOpen = true;
    }
    mEvents.post(timeOf("latency-ms"), [this, service] { comeUp(service, true); });
    return true;
}

void Modem::comeUp(modem_api_qmi_service_type service, bool ifOpen) {
    {
        std::lock_guard lock(mMutex);
        Connection& connection = mLinks.connections[service];
        if (ifOpen && (mRestarting || !connection.isOpen)) {
            return;
        }
        connection.isUp = true;
    }
    deliver(MODEM_API_EVENT_SERVICE_CONNECTED, toBytes(service), false);
}

bool Modem::release(modem_api_qmi_service_type service) {
    goDown(service);
    std::lock_guard lock(mMutex);
    return std::exchange(mLinks.connections[service].isOpen, false);
}

void Modem::connect(modem_api_qmi_service_type service) {
    mEvents.post(timeOf("latency-ms"), [this, service] { comeUp(service, false); });
}

void Modem::disconnect(modem_api_qmi_service_type service) {
    goDown(service);
    raise(MODEM_API_EVENT_SERVICE_DISCONNECTED, toBytes(service));
}

void Modem::goDown(modem_api_qmi_service_type service) {
    {
        std::lock_guard lock(mMutex);
        Connection& connection = mLinks.connections[service];
        connection.isUp = false;
        connection.bound = -1;
        if (service == MODEM_API_QMI_SERVICE_PDC) {
            mMemory.dropUnfinished();
        }
        if (service == MODEM_API_QMI_SERVICE_VS) {
            mLinks.indications = false;
            for (const modem_api_event_type event : INDICATIONS) {
                mLinks.subscribed.erase(event);
            }
        }
    }
    if (service == MODEM_API_QMI_SERVICE_AT) {
        mAtPort.forget();
    }
}

void Modem::restart(std::optional<Milliseconds> pause) {
    std::unique_lock lock(mMutex);
    const uint64_t life = ++mLife;
    mRestarting = true;
    const Milliseconds back = pause.value_or(mMemory.time("restart-ms"));
    lock.unlock();
    for (const modem_api_qmi_service_type service : services(&Connection::isUp)) {
        disconnect(service);
    }
    mEvents.post(timeOf("latency-ms") + back, [this, life] {
        {
            std::lock_guard lock(mMutex);
            if (life != mLife) {
                return;
            }
            mRestarting = false;
        }
        for (const modem_api_qmi_service_type service : services(&Connection::isOpen)) {
            comeUp(service, true);
        }
    });
}

std::vector<modem_api_qmi_service_type> Modem::services(bool Connection::*state) {
    std::lock_guard lock(mMutex);
    std::vector<modem_api_qmi_service_type> found;
    for (const auto& [service, connection] : mLinks.connections) {
        if (connection.*state) {
            found.push_back(service);
        }
    }
    return found;
}

}  // namespace fake
