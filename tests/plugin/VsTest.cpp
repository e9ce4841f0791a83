// The vendor-specific client beyond what requests share: bad answers as they are logged,
// and records that run over.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/Requests.h"
#include "tests/support/Service.h"

using testing::HasSubstr;

namespace {

/** Lines of the answer to a request, from the one after its arrival. */
Lines answer(Service& service, const char* method, const void* data, size_t length) {
    const bool hasArgument = strstr("setAgpsTestMode setRadioInfoReportEnabled", method) != nullptr;
    service.call(method, 7, hasArgument ? Lines{"1"} : Lines{});
    Service::runAll();
    service.log.take();
    EXPECT_TRUE(service.modem.answer(data, length));
    const Lines log = service.log.take();
    return Lines(log.begin() + 1, log.end());
}

}  // namespace

TEST(VsAnswers, BadOnesAreTold) {
    Service service;
    for (const char* name : {"GetBuildTime", "GetBuildId", "RestoreMbn", "SetAgpsTestMode",
                             "GetAgpsTestMode", "GetModemPowerSaveMode", "GetBandsInfo",
                             "RemoveRatMask", "AbortRRCConnection", "SetRadioInfoReportEnabled"}) {
        std::string method = name;
        method[0] = static_cast<char>(tolower(method[0]));
        const bool isAbort = method == "abortRRCConnection";
        const std::string line = std::string("E process") + name +
                                 (isAbort ? "Response" : "AsyncResponse") +
                                 ": invalid async response data";
        for (const uint32_t result : {0, 3, 5, -1}) {
            const modem_async_response response{0, result, {}};
            const Lines log = answer(service, method.c_str(), &response,
                                     sizeof(response) - (result == 0 ? 1 : 0));
            EXPECT_EQ(log[0], std::string("E verifyModemAPIResponse: invalid async response ") +
                                      (result == 0 ? "data request" : "result") +
                                      ", can't process");
            EXPECT_EQ(log[1], line);
            const char err = result == 5 ? '2' : result == 0 || result == 3 ? '3' : '1';
            EXPECT_THAT(log[2], HasSubstr(std::string(": serial = 7, err = ") + err));
        }
    }
    modem_async_response response{};
    response.payload.build.length = 256;
    EXPECT_EQ(answer(service, "getBuildTime", &response, sizeof(response))[0],
              "E processGetBuildTimeAsyncResponse: build time string length 256 exceed max size, "
              "can't report");
    EXPECT_EQ(answer(service, "getBuildId", &response, sizeof(response))[0],
              "E processGetBuildIdAsyncResponse: build Id string length 256 exceed max size, "
              "can't report");
}

TEST(VsProperty, RunsOnIntoWhatFollowsAndStopsTheProcessBeyondTheRecord) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto set = [](size_t name, size_t value) {
        Service service;
        service.log.onLine([](const std::string& line) {
            if (line[0] == 'F') {
                fprintf(stderr, "%s\n", line.c_str());
            }
        });
        service.call("setModemProperty", 1, {std::string(name, 'n'), std::string(value, 'v')});
        Service::runAll();
        const std::string call = service.modem.calls().at(0);
        while (service.modem.answer(nullptr, 0)) {
        }
        return call.substr(call.find('(') + 1, 2 * 576);
    };
    // 60 characters: the last five stand where the length goes, which is written after them.
    EXPECT_EQ(set(60, 1).substr(2 * 56, 12), "3c0000007600");
    EXPECT_EQ(set(575, 1).substr(2 * 60, 4), "766e") << "the value is written after the name";
    EXPECT_EQ(set(575, 1).substr(2 * 572), "01000000");
    EXPECT_EQ(set(1, 516).substr(2 * 572), "04020000");
    EXPECT_DEATH(set(576, 1), "F handleSetModemPropertyMessage: 576 bytes don't fit into 575");
    EXPECT_DEATH(set(1, 517), "F handleSetModemPropertyMessage: 517 bytes don't fit into 516");
}
