#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <vendor/lyr/modem/1.0/transport.h>

constexpr int32_t OPERATING_MODE = 3;  ///< what the modem reports
constexpr size_t EFS_FILE_SIZE = 10240;

void registerRequests();

/** Starts the server processes, hence before this process has threads. */
void registerRoundTrips();

/** @param folder takes the file that is loaded */
void registerLoading(const std::string& folder);

/** Ends the process with a message when something does not hold that the figures rest on. */
void require(bool holds, const char* otherwise);

/** A client's callbacks: check the answers that the benchmarks ask for, and hand on the serial. */
class Responses final : public vendor::lyr::modem::V1_0::BpHwModemResponse {
public:
    using Info = vendor::lyr::modem::V1_0::ResponseInfo;
    using Result = android::hardware::Return<void>;

    explicit Responses(std::function<void(int32_t serial)> answered)
        : BpHwModemResponse(std::make_shared<hal::Connection>(-1), 1),
          mAnswered(std::move(answered)) {}

    Result getOperatingModeResponse(const Info& info, int32_t mode) override {
        return take(info, mode == OPERATING_MODE);
    }
    Result getBuildTimeResponse(const Info& info,
                                const android::hardware::hidl_string& buildTime) override {
        return take(info, buildTime.size() != 0);
    }
    Result readEfsFileResponse(const Info& info,
                               const android::hardware::hidl_vec<uint8_t>& data) override {
        return take(info, data.size() == EFS_FILE_SIZE);
    }
    Result writeEfsFileResponse(const Info& info) override { return take(info, true); }

private:
    Result take(const Info& info, bool expected) {
        require(info.error == 0 && expected, "wrong answer");
        mAnswered(info.serial);
        return android::hardware::Void();
    }

    const std::function<void(int32_t)> mAnswered;
};
