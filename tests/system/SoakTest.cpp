// Clients with random requests, clients that are killed, and a modem that fails and restarts. A
// ledger knows what became of every request.

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <optional>
#include <random>

#include "desk/modemctl/Api.h"
#include "tests/system/System.h"

namespace {

using namespace std::chrono_literals;
using Clock = DirectSession::Clock;
using Ticks = Clock::rep;

/** A request as its client notes it before it sends it. A request's serial is its place. */
struct Sent {
    std::atomic<Ticks> time;  ///< 0: not sent so far
    uint32_t code;
};

constexpr int32_t MAX_REQUESTS = 1 << 24;
/** An answer comes within this time, unless somebody takes the callbacks in between. */
constexpr auto IN_FLIGHT = SANITIZED ? 5s : 1s;

Ticks ticks(Clock::time_point time) {
    return time.time_since_epoch().count();
}

/** The notes of all processes, in a file that each of them maps. */
Sent* mapNotes(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    constexpr size_t size = MAX_REQUESTS * sizeof(Sent);  // most of it stays a hole
    void* memory = MAP_FAILED;
    if (file >= 0 && ftruncate(file, static_cast<off_t>(size)) == 0) {
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    }
    close(file);
    return memory != MAP_FAILED ? static_cast<Sent*>(memory)
                                : throw std::runtime_error("cannot map " + path);
}

/** Requests of these serials, sent from one time to the other, may stay without an answer. */
struct Excuse {
    int32_t first, end;
    Ticks from, until;
};

/** What came for every request. Any thread may enter an answer; one thread does the rest. */
class Ledger {
public:
    struct Totals {
        size_t answered = 0, excused = 0, lost = 0, doubled = 0, misrouted = 0;
        std::string first;  ///< the first fault, for a person
    };

    explicit Ledger(const Sent* sent) : mSent(sent), mAnswers(MAX_REQUESTS) {}

    void answer(const hal::Method& method, int32_t serial) {
        const bool isKnown = serial >= 0 && serial < MAX_REQUESTS && mSent[serial].time != 0;
        if (!isKnown || &api::answerTo(requestOf(serial)) != &method) {
            ++mMisrouted;
        } else if (++mAnswers[static_cast<size_t>(serial)] > 1) {
            ++mDoubled;
        }
    }

    void excuse(const Excuse& excuse) { mExcuses.push_back(excuse); }

    /** What became of the requests from `first` to before `end`, and of stray answers. */
    Totals judge(int32_t first, int32_t end) const {
        Totals totals{0, 0, 0, mDoubled, mMisrouted, {}};
        for (int32_t serial = first; serial < end; ++serial) {
            const Ticks time = mSent[serial].time;
            if (time == 0) {
                continue;
            }
            const bool isAnswered = mAnswers[static_cast<size_t>(serial)] > 0;
            const bool isLost = !isAnswered && !isExcused(serial, time);
            ++(isAnswered ? totals.answered : isLost ? totals.lost : totals.excused);
            if (isLost && totals.first.empty()) {
                totals.first = std::string("no answer to ") + requestOf(serial).name + ", serial " +
                               std::to_string(serial);
            }
        }
        return totals;
    }

private:
    const hal::Method& requestOf(int32_t serial) const {
        return api::REQUESTS.methods[mSent[serial].code - 1];
    }

    bool isExcused(int32_t serial, Ticks time) const {
        // A refusal of this one is silent by definition.
        return requestOf(serial).name == std::string("getActiveMbnInfo") ||
               std::any_of(mExcuses.begin(), mExcuses.end(), [&](const Excuse& excuse) {
                   return serial >= excuse.first && serial < excuse.end && time >= excuse.from &&
                          time <= excuse.until;
               });
    }

    const Sent* const mSent;
    std::vector<std::atomic<uint8_t>> mAnswers;
    std::atomic<size_t> mDoubled{0}, mMisrouted{0};
    std::vector<Excuse> mExcuses;
};

/** Random numbers, the same ones for the same seed. */
class Dice {
public:
    explicit Dice(uint64_t seed) : mRandom(seed) {}
    uint32_t draw(uint32_t limit) { return static_cast<uint32_t>(mRandom() % limit); }
    template <class T>
    const T& oneOf(const std::vector<T>& items) {
        return items[draw(static_cast<uint32_t>(items.size()))];
    }

private:
    std::mt19937_64 mRandom;
};

/** The command line of a client process, which it reads again. */
struct Job {
    std::string folder;
    uint32_t seed;
    int32_t serial, requests;
    uint32_t pause;  ///< between two requests, up to so many microseconds
    bool owns;       ///< takes the callbacks, and drops the answers

    std::vector<std::string> words() const {
        return {"/proc/self/exe",
                "client",
                folder,
                std::to_string(seed),
                std::to_string(serial),
                std::to_string(requests),
                std::to_string(pause),
                std::to_string(owns ? 1 : 0)};
    }
    static Job from(char** words) {
        const auto number = [words](int i) { return atoi(words[i]); };
        return {words[0],  static_cast<uint32_t>(number(1)), number(2),
                number(3), static_cast<uint32_t>(number(4)), number(5) != 0};
    }
};

void write(hal::Parcel& parcel, const hal::Field& argument, const std::string& file, Dice& dice) {
    static constexpr size_t WIDTHS[] = {1, 1, 2, 2, 4, 4, 8, 8};  // of INT8 to UINT64, in bytes
    if (argument.type->kind < hal::Type::Kind::STRING) {
        const uint64_t number = dice.draw(32);  // few places to write to: memory stays small
        parcel.writeBytes(&number, WIDTHS[static_cast<size_t>(argument.type->kind)]);
    } else {
        const std::vector<std::string> texts{"factory", "", std::string(dice.draw(80), 'x')};
        parcel.writeString(argument.name == std::string("path") ? file : dice.oneOf(texts));
    }
}

/** A client process: it sends its requests, and waits until it is killed. */
void runClient(const Job& job) {
    Sent* const notes = mapNotes(job.folder + "/notes");
    const auto methods = api::callable();
    Dice dice(job.seed);
    DirectSession session(0, [](const Arrival&) {});
    if (job.owns) {
        session.install();
    }
    for (int32_t serial = job.serial; serial < job.serial + job.requests; ++serial) {
        const hal::Method* method = dice.oneOf(methods);
        while (method->name == std::string("rebootModem") && dice.draw(50) != 0) {
            method = dice.oneOf(methods);  // each refuses all others for a while
        }
        hal::Parcel arguments;
        arguments.write(serial);
        for (size_t i = 1; i < method->argCount; ++i) {
            write(arguments, method->args[i], job.folder + "/file", dice);
        }
        notes[serial].code = method->code;
        notes[serial].time = ticks(Clock::now());
        session.send(*method, arguments);
        std::this_thread::sleep_for(std::chrono::microseconds(dice.draw(job.pause + 1)));
    }
    while (true) {
        pause();
    }
}

/** A client process as its parent sees it. */
struct Running {
    explicit Running(const Job& what) : job(what), process(what.words()) {}

    const Job job;
    Process process;
    int32_t killAfter = INT32_MAX;  ///< requests; beyond the job's: it ends after its answers
    Clock::time_point done{};       ///< when its last request was seen
};

/** A number from the environment. */
uint32_t setting(const char* name, uint32_t otherwise) {
    const char* value = getenv(name);
    return value != nullptr ? static_cast<uint32_t>(atoi(value)) : otherwise;
}

class Soak : public SystemTest {
protected:
    Soak() : mFolder(std::filesystem::path(file("file", std::string(5000, 'm'))).parent_path()) {
        owner.install();
    }

    std::unique_ptr<Running> start(bool owns) {
        const Job job{mFolder,
                      dice.draw(UINT32_MAX),
                      end,
                      50 + static_cast<int32_t>(dice.draw(400)),
                      1U << dice.draw(15),
                      owns};
        end += job.requests;
        auto client = std::make_unique<Running>(job);
        if (dice.draw(2) != 0) {
            client->killAfter = 1 + static_cast<int32_t>(dice.draw(400));
        }
        return client;
    }

    bool hasSent(const Job& job, int32_t requests) const {
        return notes[job.serial + std::min(requests, job.requests) - 1].time != 0;
    }

    void kill(Running& client) {
        const int32_t last = client.job.serial + client.job.requests;
        const Ticks from = ticks(Clock::now() - IN_FLIGHT);
        client.process.signal(SIGKILL);
        EXPECT_EQ(client.process.wait(), -SIGKILL) << client.process.output();
        if (ledger.judge(client.job.serial, last).lost > 0) {
            excuse({client.job.serial, last, from, INT64_MAX});
        }
    }

    /** Kills those whose time has come, lets go those who are done, and starts others for them. */
    void tendClients() {
        for (auto& client : clients) {
            if (client != nullptr) {
                const Job& job = client->job;
                const bool isKilled =
                        client->killAfter < job.requests && hasSent(job, client->killAfter);
                if (client->done == Clock::time_point() && hasSent(job, job.requests)) {
                    client->done = Clock::now();
                }
                const bool isDone = client->done != Clock::time_point() &&
                                    (Clock::now() > client->done + 10s ||
                                     ledger.judge(job.serial, job.serial + job.requests).lost == 0);
                if (!isKilled && !isDone) {
                    continue;
                }
                if (isKilled) {
                    kill(*client);
                    ++killed;
                }
            }
            client = start(false);
        }
    }

    /** Another process takes the callbacks, asks, and is killed; then they are ours again. */
    void replaceOwner() {
        const auto from = Clock::now() - IN_FLIGHT;
        const auto other = start(true);
        const auto deadline = Clock::now() + 300ms;
        while (!hasSent(other->job, other->killAfter) && Clock::now() < deadline) {
            tendClients();
            std::this_thread::sleep_for(2ms);
        }
        kill(*other);
        owner.install();
        excuse({0, INT32_MAX, ticks(from), ticks(Clock::now())});
    }

    /** Does to the modem what goes wrong in the field. */
    void provoke() {
        const std::string service =
                dice.oneOf<std::string>({"nas", "wds", "vs", "dms", "sar", "pdc", "at"});
        const std::string function = dice.oneOf<std::string>(
                {"get_build_id", "get_build_time", "get_bands_info", "api_get_modem_property"});
        const std::string number = std::to_string(dice.draw(50));
        const std::vector<std::string> commands{"restart 50",
                                                "disconnect " + service,
                                                "connect " + service,
                                                "connect all",
                                                "fail modem_" + function + " 1 1" + number,
                                                "patch modem_" + function + " result 3",
                                                "delay modem_" + function + " 0-1" + number,
                                                "ok modem_" + function,
                                                "rrc 1 2 3 " + number,
                                                "power-save " + number,
                                                "radio"};
        std::ignore =
                host.trySim(dice.oneOf(commands));  // events are refused while nobody wants any
    }

    void excuse(const Excuse& excuse) {
        ledger.excuse(excuse);
        planted.excuse(excuse);
    }

    /** Takes an answer; the second ledger gets it with one fault of each kind in 1,000. */
    void take(const Arrival& arrival) {
        if (arrival.kind != Arrival::ANSWER) {
            return;
        }
        const int32_t serial = arrival.arguments["info"]["serial"];
        ledger.answer(*arrival.method, serial);
        const size_t place = ++mTaken % 1000;
        if (place != 1) {
            planted.answer(*arrival.method, serial);
        }
        if (place == 2) {
            planted.answer(*arrival.method, serial);
        } else if (place == 3) {
            const bool isFirst = arrival.method == &api::ANSWERS.methods[0];
            planted.answer(api::ANSWERS.methods[isFirst ? 1 : 0], serial);
        }
    }

    const std::string mFolder;
    const uint32_t seed = setting("OX_SOAK_SEED", 1);
    Dice dice{seed};
    Sent* const notes = mapNotes(mFolder + "/notes");
    Ledger ledger{notes}, planted{notes};
    std::atomic<size_t> mTaken{0};
    Host host;
    DirectSession owner{0, [this](const Arrival& arrival) { take(arrival); }};
    int32_t end = 1;  ///< the serial of the next request
    std::unique_ptr<Running> clients[6];
    size_t killed = 0;
};

}  // namespace

TEST_F(Soak, LosesDoublesAndMisroutesNoAnswer) {
    host.startAllThreads();
    owner.install();
    host.fake("set restart-ms 50");
    const Usage before = host.usage();
    Usage most = before;
    auto now = Clock::now(), provocation = now, replacement = now + 2s;
    const auto over = now + std::chrono::seconds(setting("OX_SOAK_SECONDS", 10));
    for (; now < over && end < MAX_REQUESTS - 1000 && !HasFailure(); now = Clock::now()) {
        tendClients();
        if (now >= provocation) {
            provoke();
            most = most.orMore(host.usage());
            provocation = now + 40ms;
        }
        if (now >= replacement) {
            replaceOwner();
            replacement = Clock::now() + 2 * IN_FLIGHT;
        }
        std::this_thread::sleep_for(2ms);
    }
    host.fake("clear");
    for (auto& client : clients) {
        kill(*client);
    }
    for (const auto deadline = Clock::now() + 10s;
         Clock::now() < deadline && ledger.judge(0, end).lost > 0;) {
        std::this_thread::sleep_for(50ms);
    }
    const auto totals = ledger.judge(0, end);
    const auto seen = planted.judge(0, end);
    printf("%zu answered, %zu excused, %zu clients killed; %zu threads, %.1f MB, before %.1f MB\n"
           "planted and seen: %zu lost, %zu doubled, %zu misrouted\n",
           totals.answered, totals.excused, killed, most.threads, most.memory, before.memory,
           seen.lost, seen.doubled, seen.misrouted);
    SCOPED_TRACE("seed " + std::to_string(seed));
    EXPECT_EQ(totals.lost, 0U) << totals.first;
    EXPECT_EQ(totals.doubled, 0U);
    EXPECT_EQ(totals.misrouted, 0U);
    EXPECT_GT(totals.answered, 2000U);
    EXPECT_GT(seen.lost, 0U);
    EXPECT_EQ(seen.doubled, mTaken / 1000 + (mTaken % 1000 >= 2 ? 1 : 0));
    EXPECT_EQ(seen.misrouted, mTaken / 1000 + (mTaken % 1000 >= 3 ? 1 : 0));
    EXPECT_LT(most.threads, MAX_THREADS);
    EXPECT_LT(most.memory, MAX_MEMORY);
    EXPECT_TRUE(host.comesBackTo(before, {1, 2, 8}));
    host.stop();
}

int main(int argc, char** argv) {
    if (argc == 8 && argv[1] == std::string("client")) {
        runClient(Job::from(argv + 2));
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
