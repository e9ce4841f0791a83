#include "service/ModemImpl.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>

#include "params/ModemLog.h"

using android::sp;
using android::hardware::hidl_string;
using android::hardware::Return;
using android::hardware::Void;
using vendor::lyr::modem::V1_0::IModemIndication;
using vendor::lyr::modem::V1_0::IModemResponse;

const ModemImpl::ClientRow ModemImpl::CLIENTS[] = {
        {AtQmiClient::SERVICE, clientOf<&ModemImpl::mAtClient>},
        {DmsQmiClient::SERVICE, clientOf<&ModemImpl::mDmsClient>},
        {NasQmiClient::SERVICE, clientOf<&ModemImpl::mNasClient>},
        {PdcQmiClient::SERVICE, clientOf<&ModemImpl::mPdcClient>},
        {SarQmiClient::SERVICE, clientOf<&ModemImpl::mSarClient>},
        {VsQmiClient::SERVICE, clientOf<&ModemImpl::mVsClient>},
        {WdsQmiClient::SERVICE, clientOf<&ModemImpl::mWdsClient>},
};

// Never destroyed: requests and events arrive even while the process exits.
std::shared_ptr<ModemImpl>& ModemImpl::sInstance = *new std::shared_ptr<ModemImpl>;
std::mutex ModemImpl::sInstanceMutex;

std::shared_ptr<ModemImpl> ModemImpl::create(int instanceId) {
    sp<ModemImpl> strong(new ModemImpl(instanceId));
    ModemImpl* const service = strong.get();
    return {service, [strong](ModemImpl*) mutable { strong.clear(); }};
}

ModemImpl::ModemImpl(int instanceId)
    : mResponseProxy(std::make_shared<ModemResponseProxy>()),
      mIndicationProxy(std::make_shared<ModemIndicationProxy>()),
      mInstanceId(instanceId),
      mServiceName("instance" + std::to_string(instanceId)) {
    mDmsClient = std::make_shared<DmsQmiClient>(mResponseProxy, mIndicationProxy);
    mNasClient = std::make_shared<NasQmiClient>(mInstanceId, mResponseProxy, mIndicationProxy);
    mVsClient = std::make_shared<VsQmiClient>(mInstanceId, mResponseProxy, mIndicationProxy);
    mWdsClient = std::make_shared<WdsQmiClient>(mInstanceId, mResponseProxy, mIndicationProxy);
    const bool isFullService = mInstanceId == 0;
    if (isFullService) {
        mAtClient = std::make_shared<AtQmiClient>(mResponseProxy, mIndicationProxy);
        mPdcClient = std::make_shared<PdcQmiClient>(mResponseProxy, mIndicationProxy);
        mSarClient = std::make_shared<SarQmiClient>(mResponseProxy, mIndicationProxy);
    }
    modem_api_init_pre();
    modem_api_set_event_callback(modemApiEventCallback);
    modem_api_subscribe_event(MODEM_API_EVENT_SERVICE_CONNECTED);
    modem_api_subscribe_event(MODEM_API_EVENT_SERVICE_DISCONNECTED);
    if (isFullService) {
        modem_api_subscribe_event(MODEM_API_EVENT_AT_COMMAND);
        modem_api_subscribe_event(MODEM_API_EVENT_ACTIVE_MBN_INFO);
        modem_api_subscribe_event(MODEM_API_EVENT_META_MBN_INFO);
        modem_api_subscribe_event(MODEM_API_EVENT_ACTIVATE_REGULAR_MBN);
    }
}

ModemImpl::~ModemImpl() {
    mResponseProxy.reset();
    mIndicationProxy.reset();
}

int ModemImpl::setup() {
    {
        // First: opening a connection raises an event, whose handling looks the client up here.
        const std::shared_ptr<ModemImpl> self = shared_from_this();
        std::lock_guard lock(sInstanceMutex);
        sInstance = self;
    }
    for (const ClientRow& row : CLIENTS) {
        QmiClient* const client = row.client(*this);
        const int result = client != nullptr ? client->setup() : ERRNO_SUCCESS;
        if (result != ERRNO_SUCCESS) {
            LOG_E("%s: failed to setup QMI clients", __func__);
            return result;
        }
    }
    const android::status_t status = registerAsService(mServiceName);
    if (status != android::OK) {
        LOG_E("%s: failed to register MODEM HIDL service: %s, status = %d", __func__,
              mServiceName.c_str(), status);
    } else {
        LOG_I("%s: successfully registered MODEM HIDL service: %s", __func__, mServiceName.c_str());
    }
    return ERRNO_SUCCESS;
}

Return<void> ModemImpl::setCallback(const sp<IModemResponse>& response,
                                    const sp<IModemIndication>& indication) {
    LOG_I("set resp and ind callbacks for HIDL modem service");
    mResponseProxy->update(response);
    mIndicationProxy->update(indication);
    onClientConnected();
    return Void();
}

void ModemImpl::onClientConnected() const {
    const int result = mIndicationProxy->indicateCachedInfo();
    LOG_I("%s: result of indicating cached info: %d", __func__, result);
}

Return<void> ModemImpl::debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) {
    if (fd.getNativeHandle() == nullptr || fd->numFds < 1) {
        LOG_E("%s: no descriptor to write the state to", __func__);
        return Void();
    }
    const bool json = std::any_of(options.begin(), options.end(), [](const hidl_string& option) {
        return strcmp(option.c_str(), "json") == 0;
    });
    try {
        const ServiceState state = getState();
        const int error = writeAtOnce(fd->data[0], json ? toJson(state) : toText(state));
        if (error != 0) {
            LOG_E("%s: failed to write the state: %s", __func__, strerror(error));
        }
    } catch (const std::bad_alloc&) {
        LOG_E("%s: no memory for the state", __func__);
    }
    return Void();
}

ServiceState ModemImpl::getState() const {
    const ModemIndicationProxy::KeptEvents kept = ModemIndicationProxy::keptEvents();
    ServiceState state;
    state.instanceId = mInstanceId;
    state.answers = mResponseProxy->getCallback() != nullptr;
    state.indications = mIndicationProxy->getCallback() != nullptr;
    state.keptRrcState = kept.rrcState;
    state.keptPowerSaveMode = kept.powerSaveMode;
    for (const ClientRow& row : CLIENTS) {
        const QmiClient* const client = row.client(*this);
        state.clients.push_back({row.service.name, client != nullptr,
                                 client != nullptr ? client->getState() : ClientState()});
    }
    return state;
}

std::shared_ptr<ModemImpl> ModemImpl::getInstance() {
    std::lock_guard lock(sInstanceMutex);
    return sInstance;
}

std::shared_ptr<QmiClient> ModemImpl::getQmiClient(modem_api_qmi_service_type service) {
    const std::shared_ptr<ModemImpl> instance = getInstance();
    if (!instance) {
        return nullptr;
    }
    for (const ClientRow& row : CLIENTS) {
        QmiClient* const client = row.client(*instance);
        if (row.service.type == service && client != nullptr) {
            return std::static_pointer_cast<QmiClient>(client->shared_from_this());
        }
    }
    return nullptr;
}

std::string ModemImpl::getQmiServiceName(modem_api_qmi_service_type service) {
    for (const ClientRow& row : CLIENTS) {
        if (row.service.type == service) {
            return row.service.name;
        }
    }
    return service == MODEM_API_QMI_SERVICE_VMS ? "VMS" : "UNKNOWN";
}

void ModemImpl::modemApiEventCallback(modem_api_event_type event, void* data, size_t length) {
    LOG_I("received modem api event %d", event);
    // This copy keeps the clients alive. Before `setup` there is no service and no client.
    const std::shared_ptr<ModemImpl> service = getInstance();
    AtQmiClient* const at = service ? service->mAtClient.get() : nullptr;
    PdcQmiClient* const pdc = service ? service->mPdcClient.get() : nullptr;
    VsQmiClient* const vs = service ? service->mVsClient.get() : nullptr;
    const auto deliver = [&](auto* client, auto report) {
        if (client != nullptr) {
            (client->*report)(data, length);
        }
    };
    switch (event) {
        case MODEM_API_EVENT_SERVICE_CONNECTED:
            processServiceEvent(true, data, length);
            break;
        case MODEM_API_EVENT_SERVICE_DISCONNECTED:
            processServiceEvent(false, data, length);
            break;
        case MODEM_API_EVENT_AT_COMMAND:
            LOG_I("AT command reported");
            deliver(at, &AtQmiClient::processAtCommand);
            break;
        case MODEM_API_EVENT_RRC_STATE:
            LOG_I("RRC STATE CHANGED");
            deliver(vs, &VsQmiClient::reportRRCStateInd);
            break;
        case MODEM_API_EVENT_ACTIVE_MBN_INFO:
            LOG_I("async response for get-active-mbn-info reported");
            deliver(pdc, &PdcQmiClient::respondGetActiveMbnInfoAsync);
            break;
        case MODEM_API_EVENT_META_MBN_INFO:
            LOG_I("async response for get-meta-mbn-info reported");
            deliver(pdc, &PdcQmiClient::respondGetMetaMbnInfoAsync);
            break;
        case MODEM_API_EVENT_NR_RADIO_INFO:
            LOG_I("NR RADIO INFO");
            deliver(vs, &VsQmiClient::reportRadioInfoInd);
            break;
        case MODEM_API_EVENT_POWER_SAVE_MODE:
            LOG_I("POWER SAVE MODE REPORT");
            deliver(vs, &VsQmiClient::reportPowerSaveModeInd);
            break;
        case MODEM_API_EVENT_ACTIVATE_REGULAR_MBN:
            LOG_I("async response for activate-regular-mbn reported");
            deliver(pdc, &PdcQmiClient::respondActivateRegularMbnAsync);
            break;
        default:
            LOG_E("modem api event %d NOT supported", event);
            break;
    }
}

void ModemImpl::processServiceEvent(bool connected, const void* data, size_t length) {
    const char* change = connected ? "connected" : "disconnected";
    modem_api_qmi_service_type service{};
    if (data == nullptr || length != sizeof(service)) {
        LOG_E("invalid data input for QMI service %s event", change);
        return;
    }
    memcpy(&service, data, sizeof(service));
    LOG_I("%s QMI service is %s", getQmiServiceName(service).c_str(), change);
    const std::shared_ptr<QmiClient> client = getQmiClient(service);
    if (!client) {
        LOG_E("unknow QMI service, can't process service %s event", change);
        return;
    }
    client->setConnectionStatus(connected);
}
