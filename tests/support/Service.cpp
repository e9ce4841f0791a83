#include "tests/support/Service.h"

#include <stdexcept>

namespace {

constexpr int SERVICES[] = {1, 2, 3, 8, 17, 36, 228};

}  // namespace

Service::Service(int instanceId, desk::Delivery delivery) {
    desk::setDelivery(delivery);
    modem.reset();
    impl = ModemImpl::create(instanceId);
    impl->setup();
    install();
    for (int service : SERVICES) {
        connect(service);
    }
    runAll();
    forget();
}

Service::~Service() {
    runAll();
    uninstall();
    desk::setQueueLimit(1024);
    desk::setDelivery(desk::Delivery::THREADS);
}

void Service::install(const android::sp<TextClient::IModemResponse>& response,
                      const android::sp<TextClient::IModemIndication>& indication) const {
    if (!impl->setCallback(response, indication).isOk()) {
        throw std::runtime_error("setCallback failed");
    }
}

void Service::runAll() {
    while (desk::step()) {
    }
}

void Service::forget() {
    log.take();
    client.take();
    modem.clearCalls();
}
