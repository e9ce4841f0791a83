// Arguments of every method of the three interfaces: what decodes is what encodes to the same
// bytes.

#include "tests/fuzz/Fuzz.h"

using namespace vendor::lyr::modem::V1_0;

namespace {

bool sIsCalled = false;
uint32_t sCode = 0;
std::vector<uint8_t> sBytes;  // of its own, so that a read past the end is seen

android::hardware::Return<void> takeEncoded(uint32_t code, hal::Parcel& args) {
    sIsCalled = true;
    require(code == sCode, "the method is the one that was called");
    require(sBytes == std::vector<uint8_t>(args.data(), args.data() + args.size()),
            "arguments encode to what they were decoded from");
    return android::hardware::Void();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const android::sp<hal::Stub> STUBS[] = {mirror<IModem>(takeEncoded),
                                                   mirror<IModemResponse>(takeEncoded),
                                                   mirror<IModemIndication>(takeEncoded)};
    Input input(data, size);
    const size_t interface = input.byte() % std::size(STUBS);
    sCode = input.byte();
    if (interface == 0 && sCode == 1) {
        return 0;  // setCallback takes interfaces, which need a connection: the frames show it
    }
    const std::string bytes = input.bytes(size);
    sBytes.assign(bytes.begin(), bytes.end());
    sBytes.shrink_to_fit();
    sIsCalled = false;
    hal::Parcel args(nullptr, sBytes.data(), sBytes.size()), reply;
    const bool isServed = STUBS[interface]->onTransact(sCode, args, reply);
    require(isServed == sIsCalled, "a call that decodes is made, and no other");
    return 0;
}
