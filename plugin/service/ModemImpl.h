#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <framework/Errno.h>
#include <modem_api.h>
#include <vendor/lyr/modem/1.0/IModem.h>

#include "clients/AtQmiClient.h"
#include "clients/DmsQmiClient.h"
#include "clients/NasQmiClient.h"
#include "clients/PdcQmiClient.h"
#include "clients/SarQmiClient.h"
#include "clients/VsQmiClient.h"
#include "clients/WdsQmiClient.h"
#include "proxies/ModemIndicationProxy.h"
#include "proxies/ModemResponseProxy.h"
#include "service/ServiceState.h"

/**
 * The service: `IModem` under "instance" plus the instance id. Owns the proxies and one client per
 * QMI service, routes the modem's events to the clients, and hands each request to the client that
 * owns it. Once set up it lives until the process ends; nothing tears it down.
 *
 * Requests run on any number of HIDL threads, events on the modem's; the members are written only
 * before the service is registered.
 */
class ModemImpl : public vendor::lyr::modem::V1_0::IModem,
                  public std::enable_shared_from_this<ModemImpl> {
public:
    using hidl_handle = android::hardware::hidl_handle;
    using hidl_string = android::hardware::hidl_string;
    template <class Value>
    using hidl_vec = android::hardware::hidl_vec<Value>;
    template <class Value>
    using Return = android::hardware::Return<Value>;

    /**
     * Makes the proxies and clients, and asks the modem for events.
     *
     * @param instanceId 0 for the full service; 1 goes without AT, PDC and SAR
     */
    explicit ModemImpl(int instanceId);

    /**
     * Makes the service object with one owner for both counts, HIDL's and the shared pointer's.
     *
     * @return the shared pointer holds one strong reference of HIDL's count for itself and all its
     *         copies, so that the object lives until neither kind of owner is left
     */
    static std::shared_ptr<ModemImpl> create(int instanceId);

    ~ModemImpl() override;

    /**
     * Publishes the object, opens the clients' connections and registers the service, last.
     *
     * @return 0, also when the registration failed; the code of the first client that failed
     * @throws std::bad_weak_ptr when no shared pointer owns the object
     */
    int setup();

    /** The object that was set up last, or null. */
    static std::shared_ptr<ModemImpl> getInstance();

    /** The client of a service, or null: none was set up, or the service has no client here. */
    static std::shared_ptr<QmiClient> getQmiClient(modem_api_qmi_service_type service);
    static std::string getQmiServiceName(modem_api_qmi_service_type service);

    /** Takes the modem's events, on its event thread, from construction on. */
    static void modemApiEventCallback(modem_api_event_type event, void* data, size_t length);

    const std::string& getServiceName() const { return mServiceName; }

    /** Replays the events that were kept while no callback was installed. */
    void onClientConnected() const;

    /**
     * Writes the service's state, as `lshal debug` asks for it: text, or one JSON object with the
     * option "json"; other options are skipped. Runs on the caller's HIDL thread, and never waits
     * for the reader: what cannot be written at once is an error line.
     *
     * @param fd the first descriptor takes the state; at most 4096 bytes
     */
    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) override;

    Return<void> setCallback(
            const android::sp<vendor::lyr::modem::V1_0::IModemResponse>& response,
            const android::sp<vendor::lyr::modem::V1_0::IModemIndication>& indication) override;

    Return<void> switchNRNetworkMode(int32_t serial, int32_t mode) override;
    Return<void> getNRNetworkMode(int32_t serial) override;
    Return<void> getBuildTime(int32_t serial) override;
    Return<void> getBuildId(int32_t serial) override;
    Return<void> getActiveMbnInfo(int32_t serial, int32_t type) override;
    Return<void> getMetaMbnInfo(int32_t serial, const hidl_vec<uint8_t>& configId,
                                int32_t length) override;
    Return<void> getMbnList(int32_t serial) override;
    Return<void> selectMbn(int32_t serial, int32_t type,
                           const hidl_vec<uint8_t>& configId) override;
    Return<void> selectMbnExt(int32_t serial, int32_t type, const hidl_vec<uint8_t>& configId,
                              int32_t length) override;
    Return<void> deleteAllMbns(int32_t serial) override;
    Return<void> loadMbnConfig(int32_t serial, const hidl_vec<uint8_t>& path) override;
    Return<void> activateMbn(int32_t serial, int32_t type) override;
    Return<void> deactivateMbn(int32_t serial, int32_t type) override;
    Return<void> activateRegularMbn(int32_t serial, int32_t type) override;
    Return<void> activateMbnByName(int32_t serial, const hidl_string& name) override;
    Return<void> restoreMbn(int32_t serial) override;
    Return<void> readNVItem(int32_t serial, int32_t item, uint8_t selector1,
                            uint8_t selector2) override;
    Return<void> writeNVItem(int32_t serial, int32_t item, uint8_t selector1, uint8_t selector2,
                             const hidl_vec<uint8_t>& data) override;
    Return<void> verifyNV(int32_t serial, int32_t item, const hidl_vec<uint8_t>& data) override;
    Return<void> readEfsFile(int32_t serial, int32_t file, uint8_t subSelector) override;
    Return<void> writeEfsFile(int32_t serial, int32_t file, uint8_t subSelector,
                              const hidl_vec<uint8_t>& data) override;
    Return<void> deleteEfsFile(int32_t serial, int32_t file, uint8_t subSelector) override;
    Return<void> deleteEfsFileDir(int32_t serial, int32_t directory) override;
    Return<void> setAgpsTestMode(int32_t serial, uint32_t mode) override;
    Return<void> getAgpsTestMode(int32_t serial) override;
    Return<void> getModemPowerSaveMode(int32_t serial) override;
    Return<void> setModemPowerSaveMode(int32_t serial, uint8_t mode) override;
    Return<void> setModemPowerSaveStatus(int32_t serial, uint8_t status) override;
    Return<void> setModemProperty(int32_t serial, const hidl_string& name,
                                  const hidl_string& value) override;
    Return<void> getModemProperty(int32_t serial, const hidl_string& name) override;
    Return<void> deleteModemProperty(int32_t serial, const hidl_string& name) override;
    Return<void> doCommonInterfaceDebug(int32_t serial, uint32_t value) override;
    Return<void> readPrl(int32_t serial, uint8_t selector) override;
    Return<void> writePrl(int32_t serial, uint8_t selector, const hidl_vec<uint8_t>& data) override;
    Return<void> getSimlockInfoStatus(int32_t serial) override;
    Return<void> getSimlockInfoCategory(int32_t serial) override;
    Return<void> getSimlockInfoNumberRetriesRemain(int32_t serial) override;
    Return<void> getSimlockFuseStatus(int32_t serial) override;
    Return<void> rebootModem(int32_t serial) override;
    Return<void> getBandsInfo(int32_t serial) override;
    Return<void> removeRatMask(int32_t serial) override;
    Return<void> abortRRCConnection(int32_t serial) override;
    Return<void> setRadioInfoReportEnabled(int32_t serial, uint32_t enabled) override;
    Return<void> setVoNRMode(int32_t serial, int32_t mode) override;
    Return<void> getVoNRMode(int32_t serial) override;
    Return<void> isImsProfileNormal(int32_t serial) override;
    Return<void> deprioritizeNr(int32_t serial, int32_t mode) override;
    Return<void> deleteImsProfile(int32_t serial) override;
    Return<void> setSarState(int32_t serial, int32_t state) override;
    Return<void> getOperatingMode(int32_t serial) override;
    Return<void> setOperatingMode(int32_t serial, int32_t mode) override;
    Return<void> sendLogControlResp(int32_t serial) override;

private:
    static void processServiceEvent(bool connected, const void* data, size_t length);

    ServiceState getState() const;

    template <class... Payload>
    using Respond = ModemResponseProxy::Respond<Payload...>;

    /**
     * What every entry point does: logs the request, and hands it to its client with `send`. One
     * that could not be handed over is answered with `refuse`, its code and an empty payload.
     *
     * @param client null on an instance without it
     * @param send converts the arguments and calls the client's method
     */
    template <class... Payload>
    Return<void> request(const char* func, int32_t serial, QmiClient* client,
                         Respond<Payload...> refuse, FunctionRef<int()> send);

    /** `request` without the log line, for an entry point with a line of its own. */
    template <class... Payload>
    Return<void> requestUnlogged(const char* func, int32_t serial, QmiClient* client,
                                 Respond<Payload...> refuse, FunctionRef<int()> send);

    /** 0; 4 without the client, 5 without memory, or what `send` returned. */
    static Errno handOver(const char* func, QmiClient* client, FunctionRef<int()> send);

    template <auto Client>
    static QmiClient* clientOf(const ModemImpl& owner) {
        return (owner.*Client).get();
    }

    /** A QMI service and its client, which is null on an instance without it. */
    struct ClientRow {
        const QmiService& service;
        QmiClient* (*client)(const ModemImpl& owner);
    };

    /** In the order in which the clients are set up. */
    static const ClientRow CLIENTS[];

    std::shared_ptr<ModemResponseProxy> mResponseProxy;
    std::shared_ptr<ModemIndicationProxy> mIndicationProxy;
    std::shared_ptr<AtQmiClient> mAtClient;
    std::shared_ptr<DmsQmiClient> mDmsClient;
    std::shared_ptr<NasQmiClient> mNasClient;
    std::shared_ptr<PdcQmiClient> mPdcClient;
    std::shared_ptr<SarQmiClient> mSarClient;
    std::shared_ptr<VsQmiClient> mVsClient;
    std::shared_ptr<WdsQmiClient> mWdsClient;
    const int32_t mInstanceId;
    const std::string mServiceName;

    /** Set by `setup` while the modem's threads may read it already, hence with a lock. */
    static std::shared_ptr<ModemImpl>& sInstance;
    static std::mutex sInstanceMutex;
};
