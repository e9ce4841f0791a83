#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "AtPort.h"
#include "Faults.h"
#include "Memory.h"
#include "Scheduler.h"

namespace fake {

/** What an operation needs: its service up, and perhaps bound to a subscription. */
struct Needs {
    modem_api_qmi_service_type service;
    bool bound;
};

constexpr std::pair<modem_api_qmi_service_type, const char*> SERVICES[] = {
        {MODEM_API_QMI_SERVICE_WDS, "wds"}, {MODEM_API_QMI_SERVICE_DMS, "dms"},
        {MODEM_API_QMI_SERVICE_NAS, "nas"}, {MODEM_API_QMI_SERVICE_AT, "at"},
        {MODEM_API_QMI_SERVICE_SAR, "sar"}, {MODEM_API_QMI_SERVICE_PDC, "pdc"},
        {MODEM_API_QMI_SERVICE_VS, "vs"},   {MODEM_API_QMI_SERVICE_VMS, "vms"},
};

struct Connection {
    bool isOpen = false;
    bool isUp = false;
    int32_t bound = -1;  ///< instance, or -1
};

/** The modem's services, and what it reports to whom. Not locked: see Modem::withLinks(). */
struct Links {
    std::map<modem_api_qmi_service_type, Connection> connections;
    modem_api_event_callback callback = nullptr;
    std::set<modem_api_event_type> subscribed;
    bool indications = false;

    bool isReady(Needs needs) const;
};

/**
 * The one modem of the process. It answers and reports on threads of its own: events on one thread,
 * one at a time; answers on two others. No lock is held while a callback runs, so a callback may
 * call any function. Everything may be called from any thread.
 */
class Modem {
public:
    /** Lives until the process ends: its threads may run while the process is leaving. */
    static Modem& get();

    /** Opens the text port and the AT port at the first call; a failure is told on stderr only. */
    void startPorts();

    /**
     * Starts a call of the API. Returns 0, or the result with which the call is to be refused.
     *
     * @param isAnsweredLater the answer comes after the call, and needs room among those that wait
     */
    int admit(const char* function, Needs needs, bool isAnsweredLater);

    /** Runs `work` on the memory, locked. `work` calls nothing of the modem. */
    template <class Work>
    auto with(Work&& work) {
        std::lock_guard lock(mMutex);
        return work(mMemory);
    }

    /** The same for the services. */
    template <class Work>
    auto withLinks(Work&& work) {
        std::lock_guard lock(mMutex);
        return work(mLinks);
    }

    /** A time of the memory. */
    Milliseconds timeOf(const char* name);

    Faults& faults() { return mFaults; }
    AtPort& atPort() { return mAtPort; }

    // Answers, as the faults of `function` have them.
    void answer(const char* function, const modem_async_response& response, void* cookie,
                modem_api_async_callback callback);
    void answerByEvent(const char* function, modem_api_event_type event, const void* record,
                       size_t size);

    // Events.
    /** False when too many events wait. */
    bool takesEvents() { return mEvents.takesMore(); }
    /** True when the event would reach the callback now. */
    bool isWanted(modem_api_event_type event);
    /** Queues an event; it is dropped if nobody wants it when its turn comes, unless `always`. */
    void raise(modem_api_event_type event, Bytes data, bool always = false);
    void raiseAtCommand(AtCommand command);
    void setRadioReport(bool on);

    // Connections.
    /** False when there is no such service. */
    bool open(modem_api_qmi_service_type service);
    /** False when it was not open. */
    bool release(modem_api_qmi_service_type service);
    /** Takes a service up or down and reports it, whether or not somebody opened it. */
    void connect(modem_api_qmi_service_type service);
    void disconnect(modem_api_qmi_service_type service);
    /**
     * Loses all services, bindings and subscriptions of indications; after `pause`, or after the
     * memory's own time for it, the open services are back.
     */
    void restart(std::optional<Milliseconds> pause = {});
    /** Those that are open, or up. */
    std::vector<modem_api_qmi_service_type> services(bool Connection::*state);

    /** The modem's whole state as keys and values, for `state` of the text port. */
    std::vector<std::pair<std::string, std::string>> describe();

private:
    Modem() = default;

    modem_api_event_callback receiver(modem_api_event_type event, bool always);
    void deliver(modem_api_event_type event, Bytes data, bool always);
    void deliverAtCommand(const AtCommand& command);
    void reportRadio(uint64_t run);
    /** On the event thread. @param ifOpen only when the service is open, and no restart goes on */
    void comeUp(modem_api_qmi_service_type service, bool ifOpen);
    void goDown(modem_api_qmi_service_type service);

    std::mutex mMutex;
    Memory mMemory;
    Links mLinks;
    uint64_t mLife = 0;  ///< counts restarts: the last one decides when the modem is back
    bool mRestarting = false;
    bool mRadioReport = false;
    uint64_t mRadioRun = 0;  ///< counts the times that reports were switched

    std::once_flag mPortsOnce;
    Faults mFaults;
    AtPort mAtPort;
    Scheduler& mEvents = *new Scheduler(1);
    Scheduler& mAnswers = *new Scheduler(2);
};

}  // namespace fake
