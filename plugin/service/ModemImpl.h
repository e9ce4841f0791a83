#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
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
    android::hardware::Return<void> debug(
            const android::hardware::hidl_handle& fd,
            const android::hardware::hidl_vec<android::hardware::hidl_string>& options) override;

    android::hardware::Return<void> setCallback(
            const android::sp<vendor::lyr::modem::V1_0::IModemResponse>& response,
            const android::sp<vendor::lyr::modem::V1_0::IModemIndication>& indication) override;

    android::hardware::Return<void> switchNRNetworkMode(int32_t serial, int32_t mode) override;
    android::hardware::Return<void> getNRNetworkMode(int32_t serial) override;
    android::hardware::Return<void> getBuildTime(int32_t serial) override;
    android::hardware::Return<void> getBuildId(int32_t serial) override;
    android::hardware::Return<void> getActiveMbnInfo(int32_t serial, int32_t type) override;
    android::hardware::Return<void> getMetaMbnInfo(
            int32_t serial, const android::hardware::hidl_vec<uint8_t>& configId,
            int32_t length) override;
    android::hardware::Return<void> getMbnList(int32_t serial) override;
    android::hardware::Return<void> selectMbn(
            int32_t serial, int32_t type,
            const android::hardware::hidl_vec<uint8_t>& configId) override;
    android::hardware::Return<void> selectMbnExt(
            int32_t serial, int32_t type, const android::hardware::hidl_vec<uint8_t>& configId,
            int32_t length) override;
    android::hardware::Return<void> deleteAllMbns(int32_t serial) override;
    android::hardware::Return<void> loadMbnConfig(
            int32_t serial, const android::hardware::hidl_vec<uint8_t>& path) override;
    android::hardware::Return<void> activateMbn(int32_t serial, int32_t type) override;
    android::hardware::Return<void> deactivateMbn(int32_t serial, int32_t type) override;
    android::hardware::Return<void> activateRegularMbn(int32_t serial, int32_t type) override;
    android::hardware::Return<void> activateMbnByName(
            int32_t serial, const android::hardware::hidl_string& name) override;
    android::hardware::Return<void> restoreMbn(int32_t serial) override;
    android::hardware::Return<void> readNVItem(int32_t serial, int32_t item, uint8_t selector1,
                                               uint8_t selector2) override;
    android::hardware::Return<void> writeNVItem(
            int32_t serial, int32_t item, uint8_t selector1, uint8_t selector2,
            const android::hardware::hidl_vec<uint8_t>& data) override;
    android::hardware::Return<void> verifyNV(
            int32_t serial, int32_t item,
            const android::hardware::hidl_vec<uint8_t>& data) override;
    android::hardware::Return<void> readEfsFile(int32_t serial, int32_t file,
                                                uint8_t subSelector) override;
    android::hardware::Return<void> writeEfsFile(
            int32_t serial, int32_t file, uint8_t subSelector,
            const android::hardware::hidl_vec<uint8_t>& data) override;
    android::hardware::Return<void> deleteEfsFile(int32_t serial, int32_t file,
                                                  uint8_t subSelector) override;
    android::hardware::Return<void> deleteEfsFileDir(int32_t serial, int32_t directory) override;
    android::hardware::Return<void> setAgpsTestMode(int32_t serial, uint32_t mode) override;
    android::hardware::Return<void> getAgpsTestMode(int32_t serial) override;
    android::hardware::Return<void> getModemPowerSaveMode(int32_t serial) override;
    android::hardware::Return<void> setModemPowerSaveMode(int32_t serial, uint8_t mode) override;
    android::hardware::Return<void> setModemPowerSaveStatus(int32_t serial,
                                                            uint8_t status) override;
    android::hardware::Return<void> setModemProperty(
            int32_t serial, const android::hardware::hidl_string& name,
            const android::hardware::hidl_string& value) override;
    android::hardware::Return<void> getModemProperty(
            int32_t serial, const android::hardware::hidl_string& name) override;
    android::hardware::Return<void> deleteModemProperty(
            int32_t serial, const android::hardware::hidl_string& name) override;
    android::hardware::Return<void> doCommonInterfaceDebug(int32_t serial, uint32_t value) override;
    android::hardware::Return<void> readPrl(int32_t serial, uint8_t selector) override;
    android::hardware::Return<void> writePrl(
            int32_t serial, uint8_t selector,
            const android::hardware::hidl_vec<uint8_t>& data) override;
    android::hardware::Return<void> getSimlockInfoStatus(int32_t serial) override;
    android::hardware::Return<void> getSimlockInfoCategory(int32_t serial) override;
    android::hardware::Return<void> getSimlockInfoNumberRetriesRemain(int32_t serial) override;
    android::hardware::Return<void> getSimlockFuseStatus(int32_t serial) override;
    android::hardware::Return<void> rebootModem(int32_t serial) override;
    android::hardware::Return<void> getBandsInfo(int32_t serial) override;
    android::hardware::Return<void> removeRatMask(int32_t serial) override;
    android::hardware::Return<void> abortRRCConnection(int32_t serial) override;
    android::hardware::Return<void> setRadioInfoReportEnabled(int32_t serial,
                                                              uint32_t enabled) override;
    android::hardware::Return<void> setVoNRMode(int32_t serial, int32_t mode) override;
    android::hardware::Return<void> getVoNRMode(int32_t serial) override;
    android::hardware::Return<void> isImsProfileNormal(int32_t serial) override;
    android::hardware::Return<void> deprioritizeNr(int32_t serial, int32_t mode) override;
    android::hardware::Return<void> deleteImsProfile(int32_t serial) override;
    android::hardware::Return<void> setSarState(int32_t serial, int32_t state) override;
    android::hardware::Return<void> getOperatingMode(int32_t serial) override;
    android::hardware::Return<void> setOperatingMode(int32_t serial, int32_t mode) override;
    android::hardware::Return<void> sendLogControlResp(int32_t serial) override;

private:
    static void processServiceEvent(bool connected, const void* data, size_t length);

    ServiceState getState() const;

    /**
     * What every entry point does: logs the request, and hands it to its client with `send`. One
     * that could not be handed over is answered with `refuse`: 4 without the client, 5 without
     * memory, or what `send` returned.
     *
     * @param client null on an instance without it
     * @param send converts the arguments and calls the client's method
     * @param refuse answers with the code that it gets and an empty payload
     */
    android::hardware::Return<void> request(const char* func, int32_t serial, QmiClient* client,
                                            FunctionRef<int()> send,
                                            FunctionRef<void(Errno)> refuse);

    /** `request` without the log line, for an entry point with a line of its own. */
    android::hardware::Return<void> handOver(const char* func, QmiClient* client,
                                             FunctionRef<int()> send,
                                             FunctionRef<void(Errno)> refuse);

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

    /** Read and written atomically: the modem's threads read it while `setup` writes it. */
    static std::shared_ptr<ModemImpl>& sInstance;
};
