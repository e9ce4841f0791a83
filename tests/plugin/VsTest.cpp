// The vendor-specific client beyond what requests share: texts and records that run over.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/Service.h"

TEST(VsAnswers, BuildTextsThatAreTooLongAreTold) {
    Service service;
    modem_async_response response{};
    response.payload.build.length = 256;
    const auto answer = [&](const char* method) {
        service.call(method, 7);
        Service::runAll();
        service.log.take();
        EXPECT_TRUE(service.modem.answer(&response, sizeof(response)));
        return service.log.take().at(1);
    };
    const std::string tooLong = " string length 256 exceed max size, can't report";
    EXPECT_EQ(answer("getBuildTime"), "E processGetBuildTimeAsyncResponse: build time" + tooLong);
    EXPECT_EQ(answer("getBuildId"), "E processGetBuildIdAsyncResponse: build Id" + tooLong);
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
