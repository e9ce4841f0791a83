#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include <framework/CallbackProxy.h>
#include <framework/Errno.h>
#include <vendor/lyr/modem/1.0/IModemIndication.h>

#include "params/FunctionRef.h"
#include "proxies/Payloads.h"

/**
 * Carries modem events to the installed `IModemIndication`, on the caller's thread; any thread may
 * call any method. The first RRC state and the first power save mode that find no callback are
 * kept, for the whole process, and replayed once when one is there.
 *
 * Every indicate method returns 0 when the call was made, 1 when its transport reported an
 * exception, 4 when no callback is installed.
 */
class ModemIndicationProxy : public CallbackProxy {
public:
    /** The installed callback, or null when there is none or it is of another interface. */
    android::sp<vendor::lyr::modem::V1_0::IModemIndication> getCallback() const;

    int indicateModemRRCState(int lteValid, int rrcState, int wcdmaValid, int wcdmaRrcState);
    int indicateModemRadioInfoReport(NetworkStatusInfoType& info);
    int indicatePowerSaveMode(int mode);
    int indicateAtLogControlInfo(uint8_t logMode, uint8_t testResult, const std::string& tcName);

    /**
     * Replays what is kept, RRC state first. Stops at an RRC state that fails. Safe to call from
     * inside a callback; replays on different threads run one after the other.
     *
     * @return the last indication's result, 0 when nothing was kept
     */
    int indicateCachedInfo();

    struct KeptEvents {
        bool rrcState;
        bool powerSaveMode;
    };

    /** Which events wait for a callback; any thread. */
    static KeptEvents keptEvents();

private:
    template <class Value>
    using Cache = std::map<std::string, Value>;

    static const std::string& RRC_STATE;
    static const std::string& POWER_SAVE_MODE;
    static Cache<rrc_state_type>& sCache;
    static Cache<int>& sPowerSaveModeCache;
    static std::mutex sCacheMutex;  ///< guards both maps; never held during a call
    /** Held during a replay, so that two do not mix; recursive, since a callback may replay. */
    static std::recursive_mutex sReplayMutex;

    int sendRRCState(const char* func, const rrc_state_type& state) const;
    int sendPowerSaveMode(const char* func, int mode) const;

    /** Makes one call to the callback; 4 with a log line when there is none. */
    int
    send(const char* func,
         FunctionRef<android::hardware::Return<void>(vendor::lyr::modem::V1_0::IModemIndication&)>
                 call) const;

    /** Keeps an event that found no callback, and replays when one was installed meanwhile. */
    template <class Value>
    int keep(Cache<Value>& cache, const std::string& key, const Value& value);

    /** Takes an event out of the cache and sends it; puts it back if there is no callback. */
    template <class Value, class Send>
    static int replay(Cache<Value>& cache, const std::string& key, Send send);
};
