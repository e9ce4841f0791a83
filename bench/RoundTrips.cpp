// Requests from process to process, and the same traffic with a bare echo over a socket.

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/Bench.h"
#include "service/ModemImpl.h"

using vendor::lyr::modem::V1_0::IModem;

namespace {

// The echo's messages, as long as those of getOperatingMode on the wire.
struct EchoRequest {
    int32_t serial;
    uint8_t rest[16];
};
struct EchoReply {
    int32_t serial;
    uint8_t rest[28];
};

/** Hands over the serial of each message that comes on a socket, until the peer is gone. */
template <class Message, class Take>
void receiveAll(int fd, Take take) {
    std::vector<uint8_t> buffer(65536);
    size_t filled = 0;
    for (ssize_t got; (got = recv(fd, buffer.data() + filled, buffer.size() - filled, 0)) > 0;) {
        filled += static_cast<size_t>(got);
        size_t begin = 0;
        for (Message message; filled - begin >= sizeof(message); begin += sizeof(message)) {
            memcpy(&message, buffer.data() + begin, sizeof(message));
            take(message.serial);
        }
        filled -= begin;
        memmove(buffer.data(), buffer.data() + begin, filled);
    }
}

/** Answers each request; one thread reads, another one writes. */
void serveEcho(int fd) {
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<int32_t> waiting;
    std::thread worker([&] {
        for (;;) {
            std::unique_lock lock(mutex);
            arrived.wait(lock, [&] { return !waiting.empty(); });
            const EchoReply reply{waiting.front(), {}};
            waiting.pop_front();
            lock.unlock();
            send(fd, &reply, sizeof(reply), MSG_NOSIGNAL);
        }
    });
    receiveAll<EchoRequest>(fd, [&](int32_t serial) {
        {
            std::lock_guard lock(mutex);
            waiting.push_back(serial);
        }
        arrived.notify_one();
    });
    _exit(0);  // the worker waits on
}

void serveModem(int ready) {
    const std::shared_ptr<ModemImpl> service = ModemImpl::create(0);
    require(service->setup() == 0, "the service cannot be set up");
    require(send(ready, "", 1, MSG_NOSIGNAL) == 1, "the benchmark is gone");
    char byte = 0;
    recv(ready, &byte, 1, 0);  // until the benchmark is gone
}

/** Starts a process that ends with this one, and gives the socket whose other end it serves. */
int startServer(void (*serve)(int fd)) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "no socket");
    const pid_t child = fork();
    require(child >= 0, "no process");
    if (child == 0) {
        close(ends[0]);
        serve(ends[1]);
        _exit(0);
    }
    close(ends[1]);
    return ends[0];
}

/** Batches of requests, some of them under way at a time: who takes an answer sends the next. */
class Traffic {
public:
    /** @param send sends the request of a serial from 0 to BATCH - 1, on any thread */
    explicit Traffic(std::function<void(int32_t serial)> send)
        : mSend(std::move(send)), mSentAt(BATCH) {}

    void runBatch(int32_t underWay) {
        mAnswered = 0;
        mNext = underWay;
        const int64_t begin = now();
        for (int32_t serial = 0; serial < underWay; ++serial) {
            sendNow(serial);
        }
        std::unique_lock lock(mMutex);
        mAllAnswered.wait(lock, [&] { return mAnswered == BATCH; });
        mBatches.push_back(now() - begin);
    }

    /** Takes an answer, always on the same thread. */
    void answered(int32_t serial) {
        mTrips.push_back(now() - mSentAt[serial]);
        if (const int32_t next = mNext++; next < BATCH) {
            sendNow(next);
        }
        if (++mAnswered == BATCH) {
            std::lock_guard lock(mMutex);
            mAllAnswered.notify_one();
        }
    }

    void forget() {
        mTrips.clear();
        mBatches.clear();
    }

    double tripMicroseconds(double quantile) { return at(quantile, mTrips) / 1e3; }
    double perSecond() { return BATCH * 1e9 / at(0.5, mBatches); }

private:
    static constexpr int32_t BATCH = 1000;

    static int64_t now() {
        return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
    }

    static double at(double quantile, std::vector<int64_t>& values) {
        const auto place = values.begin() + static_cast<ptrdiff_t>(quantile * values.size());
        std::nth_element(values.begin(), place, values.end());
        return static_cast<double>(*place);
    }

    void sendNow(int32_t serial) {
        mSentAt[serial] = now();
        mSend(serial);
    }

    const std::function<void(int32_t)> mSend;
    std::vector<std::atomic<int64_t>> mSentAt;
    std::atomic<int32_t> mNext{0};
    std::atomic<int32_t> mAnswered{0};
    std::vector<int64_t> mTrips;    ///< from send to answer, in nanoseconds
    std::vector<int64_t> mBatches;  ///< in nanoseconds
    std::mutex mMutex;
    std::condition_variable mAllAnswered;
};

/** Never ends, like the thread that takes its answers. */
Traffic& connectToEcho(int fd) {
    Traffic& traffic = *new Traffic([fd](int32_t serial) {
        const EchoRequest request{serial, {}};
        require(send(fd, &request, sizeof(request), MSG_NOSIGNAL) == sizeof(request),
                "the echo is gone");
    });
    std::thread([fd, &traffic] {
        receiveAll<EchoReply>(fd, [&](int32_t serial) { traffic.answered(serial); });
    }).detach();
    return traffic;
}

Traffic& connectToService(int ready) {
    char byte = 0;
    require(recv(ready, &byte, 1, 0) == 1, "the service does not start");
    const android::sp<IModem> modem = IModem::getService("instance0");
    require(modem != nullptr, "no service");
    Traffic& traffic = *new Traffic([modem](int32_t serial) {
        require(modem->getOperatingMode(serial).isOk(), "the service is gone");
    });
    const auto take = [&traffic](int32_t serial) { traffic.answered(serial); };
    require(modem->setCallback(new Responses(take), nullptr).isOk(), "no callback");
    return traffic;
}

/** Batches of both in turn, so that a disturbance meets both. */
void roundTrips(benchmark::State& state, int32_t underWay, Traffic& service, Traffic& echo) {
    service.forget();
    echo.forget();
    for (auto _ : state) {
        echo.runBatch(underWay);
        service.runBatch(underWay);
    }
    const auto report = [&](const std::string& figure, double measured, double baseline) {
        state.counters[figure] = measured;
        state.counters["echo_" + figure] = baseline;
        state.counters["ratio_" + figure] = measured / baseline;
    };
    report("p50_us", service.tripMicroseconds(0.5), echo.tripMicroseconds(0.5));
    report("p99_us", service.tripMicroseconds(0.99), echo.tripMicroseconds(0.99));
    report("per_second", service.perSecond(), echo.perSecond());
}

}  // namespace

void registerRoundTrips() {
    const int serviceStarts = startServer(serveModem);
    const int echoEnd = startServer(serveEcho);
    Traffic& service = connectToService(serviceStarts);
    Traffic& echo = connectToEcho(echoEnd);
    for (const int32_t underWay : {1, 64}) {
        const std::string name = "roundTrips/" + std::to_string(underWay);
        benchmark::RegisterBenchmark(name.c_str(), [&, underWay](benchmark::State& state) {
            roundTrips(state, underWay, service, echo);
        })->UseRealTime();
    }
}
