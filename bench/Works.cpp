// What is measured. All of it runs on the caller's thread, from the entry point to the answer: what
// is left is the plug-in's own work.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <framework/Desk.h>
#include <unistd.h>

#include <fstream>
#include <memory>

#include <vendor/lyr/modem/1.0/transport.h>

#include "OnLoad.h"
#include "bench/Bench.h"
#include "clients/MbnConfigLoader.h"
#include "service/ModemImpl.h"

using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Void;
using vendor::lyr::modem::V1_0::BpHwModemIndication;
using vendor::lyr::modem::V1_0::BpHwModemResponse;
using vendor::lyr::modem::V1_0::IModem;

namespace {

constexpr size_t LOADED_SIZE = 1 << 20;
constexpr size_t CHUNK_SIZE = 900;

int32_t sAnswered = 0;
int32_t sIndicated = 0;

class Responses final : public BpHwModemResponse {
public:
    using Info = vendor::lyr::modem::V1_0::ResponseInfo;

    Responses() : BpHwModemResponse(std::make_shared<hal::Connection>(-1), 1) {}

    Return<void> getOperatingModeResponse(const Info& info, int32_t mode) override {
        return take(info, mode == OPERATING_MODE);
    }
    Return<void> getBuildTimeResponse(const Info& info, const hidl_string& buildTime) override {
        return take(info, buildTime.size() != 0);
    }
    Return<void> readEfsFileResponse(const Info& info, const hidl_vec<uint8_t>& data) override {
        return take(info, data.size() == EFS_FILE_SIZE);
    }
    Return<void> writeEfsFileResponse(const Info& info) override { return take(info, true); }

private:
    static Return<void> take(const Info& info, bool expected) {
        require(info.error == 0 && expected, "wrong answer");
        sAnswered = info.serial;
        return Void();
    }
};

class Indications final : public BpHwModemIndication {
public:
    Indications() : BpHwModemIndication(std::make_shared<hal::Connection>(-1), 1) {}

    Return<void> modemRRCStateInd(uint32_t /*type*/, int32_t /*lteValid*/, int32_t /*rrcState*/,
                                  int32_t /*wcdmaValid*/, int32_t /*wcdmaRrcState*/) override {
        ++sIndicated;
        return Void();
    }
};

void loadPlugin() {
    char name[] = "bench";
    char option[] = "-i";
    char instance[] = "0";
    char* arguments[] = {name, option, instance, nullptr};
    require(onLoad(3, arguments) == 0, "the plug-in cannot be loaded");
}

IModem& service() {
    static const std::shared_ptr<ModemImpl> impl = [] {
        if (ModemImpl::getInstance() == nullptr) {
            loadPlugin();
        }
        std::shared_ptr<ModemImpl> made = ModemImpl::getInstance();
        require(made->setCallback(new Responses, new Indications).isOk(), "no callback");
        return made;
    }();
    return *impl;
}

template <class Call>
Work request(const char* name, Call call) {
    return {name, [call, serial = 0]() mutable {
                (void)call(service(), ++serial);
                require(sAnswered == serial, "no answer");
            }};
}

void indicate() {
    service();
    const int32_t before = sIndicated;
    reportRrcState();
    require(sIndicated == before + 1, "no event");
}

/** What no request can do without: a record and a message made, a call in and a call out. */
void takeTwoSteps() {
    struct Step {
        virtual ~Step() = default;
        virtual void take(int32_t serial) { last = serial; }
        int32_t last = 0;
    };
    const std::shared_ptr<Step> steps[] = {std::make_shared<Step>(), std::make_shared<Step>()};
    for (const auto& step : steps) {
        benchmark::DoNotOptimize(step.get());
        step->take(1);
    }
}

void readChunks(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    uint8_t chunk[CHUNK_SIZE];
    while (read(fd, chunk, sizeof(chunk)) > 0) {
        benchmark::DoNotOptimize(&chunk);
    }
    close(fd);
}

}  // namespace

std::vector<Work> makeWorks(const std::string& folder) {
    desk::setDelivery(desk::Delivery::CALLER);
    const std::string path = folder + "/config.mbn";
    std::ofstream file(path, std::ios::binary);
    file << std::string(LOADED_SIZE, '\x5a');
    require(file.flush().good(), "no room for the file to load");
    const std::vector<uint8_t> bytes(path.begin(), path.end());
    const std::vector<uint8_t> content(EFS_FILE_SIZE, 0x5a);
    return {
            {"onLoad", loadPlugin},
            {"twoSteps", takeTwoSteps},
            request("getOperatingMode",
                    [](auto& m, auto serial) { return m.getOperatingMode(serial); }),
            request("getBuildTime", [](auto& m, auto serial) { return m.getBuildTime(serial); }),
            {"modemRRCStateInd", indicate},
            {"copy", [=] { benchmark::DoNotOptimize(std::vector<uint8_t>(content).data()); }},
            request("readEfsFile",
                    [](auto& m, auto serial) { return m.readEfsFile(serial, 7, 0); }),
            request("writeEfsFile",
                    [data = hidl_vec<uint8_t>(content)](auto& m, auto serial) {
                        return m.writeEfsFile(serial, 7, 0, data);
                    }),
            {"readChunks", [=] { readChunks(path); }},
            {"loadMbnConfigFile",
             [=] { require(loadMbnConfigFile("load", bytes) == ERRNO_SUCCESS, "loading failed"); }},
    };
}
