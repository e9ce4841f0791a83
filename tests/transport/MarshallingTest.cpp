#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include <vendor/lyr/modem/1.0/transport.h>

using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Status;
using hal::Parcel;
using namespace vendor::lyr::modem::V1_0;

namespace {

/**
 * What was written comes back equal and whole; every shorter message, and one byte more, is
 * refused.
 */
template <class T>
void roundTrip(const T& value) {
    Parcel written;
    encode(written, value);
    for (size_t size = 0; size <= written.size() + 1; ++size) {
        std::vector<uint8_t> bytes(size);  // of its own, so that a read past the end is seen
        std::copy_n(written.data(), std::min(size, written.size()), bytes.begin());
        Parcel read(nullptr, bytes.data(), size);
        T back{};
        EXPECT_EQ(decode(read, back), size >= written.size()) << size << " bytes";
        EXPECT_TRUE(size != written.size() || (back == value && read.atEnd())) << size;
        EXPECT_FALSE(size > written.size() && read.atEnd()) << size;
    }
}

RadioInfo radioInfo() {
    RadioInfo info{};
    auto* bytes = reinterpret_cast<uint8_t*>(&info);
    std::iota(bytes, bytes + offsetof(RadioInfo, field10Entry1), 1);
    info.field10Entry1 = {1, 2, 3, 4};
    info.field10Entry4 = {UINT32_MAX};
    return info;
}

TEST(MarshallingTest, everyShapeComesBackAndNothingElseDecodes) {
    roundTrip(ResponseInfo{0, INT32_MIN, 2});
    roundTrip(MbnInfo{0, {0, 255, 10}});
    roundTrip(BandsInfo{{1}, {}, {3, UINT32_MAX}, {}, {5, 6, 7}});
    roundTrip(radioInfo());
    roundTrip(hidl_string());
    roundTrip(hidl_string("a\0b", 3));
    roundTrip(hidl_vec<hidl_string>{"", "one", std::string(300, 'x')});
    roundTrip(hidl_vec<uint8_t>(std::vector<uint8_t>(1000, 7)));  // beyond the room inside
}

TEST(MarshallingTest, countsThatCannotBeAreRefusedBeforeAllocation) {
    const auto isRefused = [](uint32_t count, auto elements) {
        Parcel written;
        written.write(count);
        written.write(uint64_t{0});
        Parcel read(nullptr, written.data(), written.size());
        return !decode(read, elements) && elements.size() == 0;
    };
    for (const uint32_t count : {3U, 0x40000001U, UINT32_MAX}) {
        EXPECT_TRUE(isRefused(count, hidl_vec<uint32_t>())) << count;
        EXPECT_TRUE(isRefused(count, hidl_vec<hidl_string>())) << count;
    }
}

TEST(ReturnTest, failureThatNobodyLooksAtStopsTheProcess) {
    using android::hardware::Return;
    const auto fail = [] { return Return<void>(Status::fromStatusT(android::DEAD_OBJECT)); };
    const char* const line = "status not checked: Status\\(EX_TRANSACTION_FAILED\\): 'DEAD_OBJECT";
    EXPECT_DEATH({ EXPECT_TRUE(fail().isDeadObject()); }, line);
    EXPECT_DEATH(
            {
                Return<void> status = fail();
                status = android::hardware::Void();
            },
            line);
    EXPECT_DEATH((void)int(Return<int>(Status::fromStatusT(android::DEAD_OBJECT))), line);
    Return<void> looked = fail();
    EXPECT_FALSE(looked.isOk());
    looked = fail();
    const Return<void> moved = std::move(looked);
    EXPECT_FALSE(moved.isOk());
    EXPECT_EQ(int(Return<int>(7)), 7);
}

}  // namespace
