#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <framework/CallbackProxy.h>
#include <framework/Errno.h>
#include <vendor/lyr/modem/1.0/IModemResponse.h>

#include "proxies/Payloads.h"

/** The error that a client of the interface sees: 0 success, 2 unsupported, 1 anything else. */
uint32_t convertToResponseError(Errno err);

/**
 * Carries the answers of requests to the installed `IModemResponse`, one call each, on the caller's
 * thread; any thread may call any method. Nothing is queued, cached or retried.
 *
 * Every respond method returns 0 when the call was made, 1 when its transport reported an
 * exception, 4 when no callback is installed; the payload is not converted then.
 */
class ModemResponseProxy : public CallbackProxy {
public:
    /** A respond method whose answer has this payload, or none. */
    template <class... Payload>
    using Respond = int (ModemResponseProxy::*)(int serial, Errno err, Payload...);

    /** The installed callback, or null when there is none or it is of another interface. */
    android::sp<vendor::lyr::modem::V1_0::IModemResponse> getCallback() const;

    int respondSwitchNRNetworkMode(int serial, Errno err);
    int respondGetNRNetworkMode(int serial, Errno err, uint32_t mode);
    int respondGetBuildTime(int serial, Errno err, const std::string& buildTime);
    int respondGetActiveMbnInfo(int serial, Errno err, const PdcMbnInfo& info);
    int respondGetMetaMbnInfo(int serial, Errno err, const PdcMbnInfo& info);
    int respondGetMbnList(int serial, Errno err, const std::vector<std::string>& mbns);
    int respondSelectMbn(int serial, Errno err);
    int respondSelectMbnExt(int serial, Errno err);
    int respondDeleteAllMbns(int serial, Errno err);
    int respondLoadMbnConfig(int serial, Errno err);
    int respondActivateMbn(int serial, Errno err);
    int respondDeactivateMbn(int serial, Errno err);
    int respondActivateRegularMbn(int serial, Errno err);
    int respondActivateMbnByName(int serial, Errno err);
    int respondRestoreMbn(int serial, Errno err);
    int respondReadNVItem(int serial, Errno err, const std::vector<uint8_t>& data);
    int respondWriteNVItem(int serial, Errno err);
    int respondVerifyNV(int serial, Errno err, uint8_t verified);
    int respondReadEfsFile(int serial, Errno err, const std::vector<uint8_t>& data);
    int respondWriteEfsFile(int serial, Errno err);
    int respondDeleteEfsFile(int serial, Errno err);
    int respondDeleteEfsFileDir(int serial, Errno err);
    int respondSetAgpsTestMode(int serial, Errno err);
    int respondGetAgpsTestMode(int serial, Errno err, uint32_t mode);
    int respondSetModemPowerSaveMode(int serial, Errno err);
    int respondGetModemPowerSaveMode(int serial, Errno err, uint8_t mode);
    int respondSetModemPowerSaveStatus(int serial, Errno err);
    int respondSetModemProperty(int serial, Errno err);
    int respondGetModemProperty(int serial, Errno err, const std::string& value);
    int respondDeleteModemProperty(int serial, Errno err);
    int respondDoCommonInterfaceDebug(int serial, Errno err);
    int respondGetBuildId(int serial, Errno err, const std::string& buildId);
    int respondReadPrl(int serial, Errno err, const std::vector<uint8_t>& data);
    int respondWritePrl(int serial, Errno err);
    int respondGetSimlockInfoStatus(int serial, Errno err, uint8_t status);
    int respondGetSimlockInfoCategory(int serial, Errno err, uint8_t category);
    int respondGetSimlockInfoNumberRetriesRemain(int serial, Errno err, uint8_t retries);
    int respondGetSimlockFuseStatus(int serial, Errno err, uint32_t status);
    int respondRebootModem(int serial, Errno err);
    int respondGetBandsInfo(int serial, Errno err, const BandsInfoType& bands);
    int respondRemoveRatMask(int serial, Errno err);
    int respondAbortRRCConnection(int serial, Errno err);
    int respondSetRadioInfoReportEnabled(int serial, Errno err);
    int respondSetVoNRMode(int serial, Errno err);
    int respondGetVoNRMode(int serial, Errno err, uint32_t mode);
    int respondIsImsProfileNormal(int serial, Errno err, uint32_t result);
    int respondDeprioritizeNr(int serial, Errno err);
    int respondDeleteImsProfile(int serial, Errno err);
    int respondSetSarState(int serial, Errno err);
    int respondGetOperatingMode(int serial, Errno err, int32_t mode);
    int respondSetOperatingMode(int serial, Errno err);
    int respondSendLogControlResp(int serial, Errno err);

private:
    using ResponseInfo = vendor::lyr::modem::V1_0::ResponseInfo;

    /** Logs and sends; `func` is the respond method's name. */
    template <class Method, class... Payload>
    int respond(const char* func, int serial, Errno err, Method method,
                const Payload&... payload) const;

    /** `respond` whose first log line also tells the payload, as "name = value". */
    template <class Method, class Value>
    int respondNamed(const char* func, const char* name, int serial, Errno err, Method method,
                     Value value) const;

    /** What both do after the first log line: finds the callback, converts, and calls it. */
    template <class Method, class... Payload>
    int send(const char* func, int serial, Errno err, Method method,
             const Payload&... payload) const;
};
