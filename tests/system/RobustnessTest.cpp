#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cmath>

#include "desk/modemctl/Api.h"
#include "desk/modemctl/Failure.h"
#include "desk/runtime/RuntimeDir.h"
#include "desk/runtime/UnixSocket.h"
#include "tests/system/System.h"

namespace {

using Robustness = SystemTest;
using namespace std::chrono_literals;
using Clock = DirectSession::Clock;

std::string bytesOf(const std::vector<uint32_t>& fields) {
    return {reinterpret_cast<const char*>(fields.data()), fields.size() * sizeof(uint32_t)};
}

/** A call of the service with 4-byte arguments as it stands on the socket; setCallback has code 1.
 */
std::string message(uint32_t code, uint32_t call, const std::vector<uint32_t>& arguments) {
    const auto size = static_cast<uint32_t>(12 + 4 * arguments.size());
    return bytesOf({size, hal::SERVICE_TARGET, code, call}) + bytesOf(arguments);
}

/** Somebody at a socket who never reads; comes back when the service has cut him. */
class Peer {
public:
    explicit Peer(std::string path) : mPath(std::move(path)) {}

    /** Gives what the socket takes of it. */
    void write(const std::string& bytes) {
        try {
            mSocket = mSocket.get() < 0 ? runtime::connectTo(mPath, 1000ms) : std::move(mSocket);
        } catch (const std::system_error&) {
            return;  // no place at this moment
        }
        const ssize_t sent =
                send(mSocket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EAGAIN) {
            std::this_thread::sleep_for(1ms);
        } else if (sent != static_cast<ssize_t>(bytes.size())) {
            leave();
        }
    }
    void leave() { mSocket = runtime::UniqueFd(); }

private:
    const std::string mPath;
    runtime::UniqueFd mSocket;
};

std::string servicePath() {
    return hal::servicePath(api::REQUESTS.descriptor, "instance0");
}

using Attack = void (*)(const std::atomic<bool>& isOver);

void installWithoutReading(const std::atomic<bool>& isOver) {
    Peer peer(servicePath());
    for (uint32_t object = 1; !isOver; object += 2) {
        peer.write(message(1, object, {object, object + 1}));
    }
}

void askWithoutReading(const std::atomic<bool>& isOver) {
    Peer peer(servicePath());
    const uint32_t code = api::request("getBandsInfo").code;
    for (uint32_t i = 0; !isOver; ++i) {
        peer.write(i % 1000 == 0 ? message(1, i + 1, {i + 1, i + 2}) : message(code, 0, {7}));
    }
}

void ask(DirectSession& session, const char* request) {
    hal::Parcel parcel;
    parcel.write(int32_t{7});
    session.send(api::request(request), parcel);
}

/** What a client does again as long as the attack lasts, also when it was cut. */
template <class Turn>
void again(const std::atomic<bool>& isOver, bool installs, Turn turn) {
    while (!isOver) {
        try {
            DirectSession session(0);
            if (installs) {
                session.install();
            }
            while (!isOver) {
                turn(session);
            }
        } catch (const Failure&) {  // cut: comes back
        }
    }
}

/** 3,000 requests on the way, and one more for each answer. */
void askFromCallbacks(const std::atomic<bool>& isOver) {
    int asked = 0;
    again(isOver, true, [&asked](DirectSession& session) {
        for (; asked < 3000; ++asked) {
            ask(session, "getBuildId");
        }
        const auto arrival = session.next(Clock::now() + 10ms);
        asked -= arrival && arrival->kind == Arrival::ANSWER ? 1 : 0;
        if (arrival && arrival->kind == Arrival::DISPLACED) {
            session.install();
        }
    });
}

/** A request of the handler that the good client asks, and one that the modem answers late. */
void askTwice(DirectSession& session) {
    ask(session, "getOperatingMode");
    ask(session, "getBuildId");
}

void askAndRead(const std::atomic<bool>& isOver) {
    again(isOver, true, [](DirectSession& session) {
        askTwice(session);
        while (const auto arrival = session.next(Clock::now())) {
            if (arrival->kind == Arrival::DISPLACED) {
                session.install();
            }
        }
    });
}

void askForTheGoodClient(const std::atomic<bool>& isOver) {
    again(isOver, false, askTwice);
}

/** No attack: what two threads cost that only compute, for comparison. */
void compute(const std::atomic<bool>& isOver) {
    std::thread other([&isOver] {
        while (!isOver) {
        }
    });
    while (!isOver) {
    }
    other.join();
}

/** What the good client asks for itself makes lines enough. */
void logAlone(const std::atomic<bool>& isOver) {
    while (!isOver) {
        std::this_thread::sleep_for(10ms);
    }
}

/** All places, silent or with a byte now and then. */
void occupy(const std::atomic<bool>& isOver) {
    std::deque<Peer> peers;
    for (int i = 0; i < hal::MAX_CLIENTS; ++i) {
        peers.emplace_back(servicePath()).write("");
    }
    while (!isOver) {
        std::this_thread::sleep_for(100ms);
        for (size_t i = 0; i < peers.size(); i += 2) {
            peers[i].write("x");
        }
    }
}

void knockAtTheTextPort(const std::atomic<bool>& isOver) {
    Peer peer(runtime::fakeModemPort("0"));
    while (!isOver) {
        peer.write("state");
        peer.leave();
    }
}

/** Installs its callbacks and asks, over and over. */
class GoodClient {
public:
    void round() {
        const auto start = Clock::now();
        mSession.install();
        hal::Parcel parcel;
        parcel.write(++mSerial);
        mSession.send(api::request("getOperatingMode"), parcel);
        bool isDisplaced = false;
        while (!isDisplaced) {  // then the answer may go to whoever has the callbacks
            const auto arrival = mSession.next(start + PATIENCE);
            ASSERT_TRUE(arrival) << "request " << mSerial << " is not answered";
            isDisplaced = arrival->kind == Arrival::DISPLACED;
            if (arrival->kind == Arrival::ANSWER &&
                arrival->arguments["info"]["serial"] == mSerial) {
                ASSERT_EQ(arrival->arguments["info"]["error"], 0) << "request " << mSerial;
                mTimes.push_back(
                        std::chrono::duration<double, std::milli>(Clock::now() - start).count());
                return;
            }
        }
    }

    /** How long 99 of 100 answers took at most, in ms, since the last time. */
    double slowest() {
        std::sort(mTimes.begin(), mTimes.end());
        const double time = mTimes.empty() ? INFINITY : mTimes[mTimes.size() * 99 / 100];
        mTimes.clear();
        return time;
    }
    size_t answered() const { return mTimes.size(); }

private:
    DirectSession mSession{0};
    int32_t mSerial = 1000;
    std::vector<double> mTimes;
};

}  // namespace

/** What a neighbour does costs a good client no answer, and the host nothing that lasts. */
TEST_F(Robustness, AttacksHurtNobodyElse) {
    struct Row {
        const char* name;
        Attack attack;
        const char* log = "";
    };
    const Row rows[] = {
            {"none, but two threads that compute", compute},
            {"setCallback again and again, nothing read", installWithoutReading},
            {"requests, nothing read", askWithoutReading},
            {"a request for each answer, 3,000 on the way", askFromCallbacks},
            {"as many requests as it can, all answers read", askAndRead},
            {"as many requests as it can, answered to the good client", askForTheGoodClient},
            {"all places taken in silence", occupy},
            {"connections to the text port", knockAtTheTextPort},
            {"a log whose reader is gone", logAlone, "> >(exec true)"},
            {"a log that nobody reads", logAlone, "> >(exec tail --pid=$$ -f /dev/null >&- 2>&-)"},
    };
    double busy = 0;  // p99 of the first row, in ms: attacks may cost about what computing does
    for (const auto& [name, attack, log] : rows) {
        SCOPED_TRACE(name);
        setenv("ANDROID_LOG_TAGS", *log == '\0' ? "*:W" : "*:V", 1);
        Host host(0, log);
        host.startAllThreads();
        GoodClient client;
        for (int i = 0; i < 300; ++i) {
            client.round();
        }
        const double before = client.slowest();
        const Usage baseline = host.usage();
        Usage most = baseline;
        std::atomic<bool> isOver{false};
        std::thread attacker(attack, std::cref(isOver));
        try {
            for (const auto end = Clock::now() + 1s; Clock::now() < end && !HasFatalFailure();) {
                client.round();
                most = most.orMore(host.usage());
            }
        } catch (const std::exception& error) {  // the attacker has to be joined all the same
            ADD_FAILURE() << "the good client: " << error.what();
        }
        isOver = true;
        attacker.join();
        const size_t answered = client.answered();
        const double during = client.slowest();
        busy = busy == 0 ? during : busy;
        printf("%s: %zu answered, p99 %.1f ms, before %.1f ms; %zu threads, %.0f MB\n", name,
               answered, during, before, most.threads, most.memory);
        EXPECT_GE(answered, 3U);
        EXPECT_LE(during, SANITIZED ? 10000 : std::max({3 * before, 3 * busy, 30.0}))
                << "before: " << before;
        EXPECT_LT(most.threads, MAX_THREADS);
        EXPECT_LT(most.memory, MAX_MEMORY);
        if (HasFailure()) {
            return;
        }
        client.round();  // the service lets go of the attacker's callbacks, unless it installs late
        EXPECT_TRUE(host.comesBackTo(baseline, {1, 2, 12})) << "more than a writer and callbacks";
    }
}

TEST_F(Robustness, AHostLeavesCleanlyUnderLoad) {
    for (int round = 0; round < (SANITIZED ? 5 : 20); ++round) {
        Host host;
        host.fake("delay modem_get_build_id 0-5");
        host.fake("delay modem_get_bands_info 0-5");
        std::atomic<int> turns{0};
        const auto load = [&turns] {
            try {
                for (Client client;; client.install(), ++turns) {
                    for (const char* request : {"getBuildId", "getBandsInfo", "readPrl 0",
                                                "getNRNetworkMode", "getOperatingMode"}) {
                        client.send(request);
                    }
                }
            } catch (const Failure&) {  // the service has gone
            }
        };
        std::vector<std::thread> clients;
        for (int i = 0; i < 8; ++i) {
            clients.emplace_back(load);
        }
        EXPECT_TRUE(await([&] { return turns >= 100; }));
        host.stop();
        for (std::thread& client : clients) {
            client.join();
        }
    }
}
