#pragma once

#include <framework/Desk.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "service/ModemImpl.h"
#include "tests/support/Log.h"
#include "tests/support/ScriptedModem.h"
#include "tests/support/TextClient.h"

/**
 * The service over a scripted modem, with a client whose callbacks are installed, every QMI service
 * connected, and messages that wait to be stepped. The log is captured, and so far empty.
 */
class Service {
public:
    using IModem = vendor::lyr::modem::V1_0::IModem;

    explicit Service(int instanceId = 0, desk::Delivery delivery = desk::Delivery::STEPS) {
        desk::setDelivery(delivery);
        modem.reset();
        impl = ModemImpl::create(instanceId);
        impl->setup();
        install();
        for (const int service : {1, 2, 3, 8, 17, 36, 228}) {
            connect(service);
        }
        runAll();
        forget();
    }
    ~Service() {
        runAll();
        uninstall();
        desk::setQueueLimit(1024);
        desk::setDelivery(desk::Delivery::THREADS);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void connect(int service) { raise(MODEM_API_EVENT_SERVICE_CONNECTED, service); }
    void disconnect(int service) { raise(MODEM_API_EVENT_SERVICE_DISCONNECTED, service); }
    template <class Data>
    void raise(int event, const Data& data) {
        modem.raise(event, &data, sizeof(data));
    }

    /** Installs callbacks; either may be null. */
    void install(const android::sp<TextClient::IModemResponse>& response,
                 const android::sp<TextClient::IModemIndication>& indication) const {
        EXPECT_TRUE(impl->setCallback(response, indication).isOk());
    }
    void install() const { install(client.responses, client.indications); }
    void uninstall() const { install(nullptr, nullptr); }

    /** Makes a request by name, as a client's call arrives, without running it. */
    void call(const std::string& method, int serial, const Lines& arguments = {}) {
        const hal::Method& request = api::request(method);
        hal::Parcel written, reply;
        values::encode(written, request, serial, arguments);
        hal::Parcel read(nullptr, written.data(), written.size());
        const android::sp<hal::Stub> stub(new hal::InterfaceStub<IModem>(impl.get()));
        EXPECT_TRUE(stub->onTransact(request.code, read, reply)) << method;
    }

    /** Runs every waiting message, and those that they post. */
    static void runAll() {
        while (desk::step()) {
        }
    }

    /** Forgets what was logged, called and answered so far. */
    void forget() {
        log.take();
        client.take();
        modem.clearCalls();
    }

    ScriptedModem& modem = ScriptedModem::instance();
    LogCapture log;
    TextClient client;
    std::shared_ptr<ModemImpl> impl;
};
