#include <gtest/gtest.h>

#include <iostream>
#include <string_view>

#include "tests/system/Client.h"

namespace {

/** A client process that always has calls under way, until it is killed. */
[[noreturn]] void flood() {
    constexpr int32_t UNDER_WAY = 32;
    Client client;
    for (int32_t serial = 0;; ++serial) {
        client.send(serial % 2 == 0 ? "getBuildId" : "getOperatingMode", serial);
        if (serial >= UNDER_WAY) {
            client.answer(serial - UNDER_WAY);
        }
        if (serial == 10 * UNDER_WAY) {
            std::cout << "under way" << std::endl;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && argv[1] == std::string_view("--flood")) {
        flood();
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
