// Requests within one process, on the caller's thread: what the plug-in's own code takes from the
// entry point to the answer.

#include <benchmark/benchmark.h>
#include <framework/Desk.h>

#include <memory>
#include <vector>

#include "bench/Bench.h"
#include "service/ModemImpl.h"
#include "tests/support/Allocations.h"

using android::hardware::hidl_vec;
using vendor::lyr::modem::V1_0::IModem;

namespace {

struct Step {
    virtual ~Step() = default;
    virtual void take(int32_t serial) { last = serial; }
    int32_t last = 0;
};

/** What no request can do without: a record and a message made, a call in and a call out. */
void floorOfRequest(benchmark::State& state) {
    int32_t serial = 0;
    for (auto _ : state) {
        const std::shared_ptr<Step> steps[] = {std::make_shared<Step>(), std::make_shared<Step>()};
        for (const auto& step : steps) {
            benchmark::DoNotOptimize(step.get());
            step->take(++serial);
        }
    }
}

void copyOfFile(benchmark::State& state) {
    const std::vector<uint8_t> file(EFS_FILE_SIZE);
    for (auto _ : state) {
        std::vector<uint8_t> copy(file);
        benchmark::DoNotOptimize(copy.data());
    }
}

/** Instance 1: instance 0 serves from its own process. */
IModem& service() {
    static ModemImpl* const impl = [] {
        desk::setDelivery(desk::Delivery::CALLER);
        require(ModemImpl::create(1)->setup() == 0, "the service cannot be set up");
        return ModemImpl::getInstance().get();
    }();
    return *impl;
}

/** Runs one request per iteration; `allocations` is what it has to take, unless 0. */
template <class Call>
void request(benchmark::State& state, size_t allocations, Call call) {
    IModem& modem = service();
    int32_t answered = 0;
    const auto note = [&](int32_t serial) { answered = serial; };
    require(modem.setCallback(new Responses(note), nullptr).isOk(), "no callback");
    int32_t serial = 1;
    (void)call(modem, serial);
    allocations::start();
    (void)call(modem, ++serial);
    const size_t counted = allocations::stop();
    for (auto _ : state) {
        (void)call(modem, ++serial);
    }
    require(modem.setCallback(nullptr, nullptr).isOk(), "the callback stays");
    require(answered == serial, "no answer");
    require(counted == allocations || allocations == 0, "another number of allocations");
    state.counters["allocations"] = static_cast<double>(counted);
}

}  // namespace

void registerRequests() {
    using benchmark::State;
    benchmark::RegisterBenchmark("floor", floorOfRequest);
    benchmark::RegisterBenchmark("getOperatingMode", [](State& state) {
        request(state, 2, [](auto& modem, auto serial) { return modem.getOperatingMode(serial); });
    });
    benchmark::RegisterBenchmark("getBuildTime", [](State& state) {
        // One of them is the answer's text as HIDL carries it.
        request(state, 3, [](auto& modem, auto serial) { return modem.getBuildTime(serial); });
    });
    benchmark::RegisterBenchmark("copy", copyOfFile);
    benchmark::RegisterBenchmark("readEfsFile", [](State& state) {
        request(state, 0, [](auto& modem, auto serial) { return modem.readEfsFile(serial, 7, 0); });
    });
    benchmark::RegisterBenchmark("writeEfsFile", [](State& state) {
        const hidl_vec<uint8_t> data(std::vector<uint8_t>(EFS_FILE_SIZE, 0x5a));
        request(state, 0,
                [&](auto& modem, auto serial) { return modem.writeEfsFile(serial, 7, 0, data); });
    });
}
