// Bytes into a served connection: it serves what is well formed, ends otherwise, and leaves
// nothing.

#include <sys/socket.h>
#include <unistd.h>

#include <future>

#include "tests/fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
    std::promise<void> ended;
    const auto connection = std::make_shared<hal::Connection>(ends[0]);
    connection->exportObject(mirror<vendor::lyr::modem::V1_0::IModem>(
            [](uint32_t, hal::Parcel&) { return android::hardware::Void(); }));
    connection->start([&ended] { ended.set_value(); });
    // The peer reads nothing; an input is shorter than the socket's room in either direction.
    (void)!send(ends[1], data, size, MSG_NOSIGNAL);
    shutdown(ends[1], SHUT_WR);
    require(ended.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready,
            "a connection ends with its peer");
    close(ends[1]);
    return 0;
}
