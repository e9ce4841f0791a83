// Generated schedules: whatever the modem, the clients and the order of things do, every request is
// answered once and rightly. A seed makes one run of some hundred actions, always the same.

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <framework/Desk.h>

#include "tests/schedules/Model.h"

namespace {

constexpr uint64_t LONG_RUN = 100000;  ///< seeds from which on every fault has to have struck
constexpr uint64_t STRIKES_AT_LEAST = 1000;

const char* const NAMES[] = {"modem refuses",
                             "bind fails",
                             "bind given up",
                             "answer inside the call",
                             "answer out of order",
                             "answer after disconnection",
                             "answer with a bad record",
                             "answer with a bad result",
                             "payload beyond its bounds",
                             "event too short",
                             "event of no known kind",
                             "token of no request",
                             "service disconnected",
                             "service connected again",
                             "request while not connected",
                             "client absent",
                             "no response callback",
                             "no indication callback",
                             "setCallback inside a callback",
                             "request inside a callback",
                             "callback fails",
                             "event kept",
                             "event replayed",
                             "event put back",
                             "queue full",
                             "no memory for a request",
                             "no memory for a step",
                             "no memory for an answer",
                             "no memory for an event",
                             "property not written",
                             "AT command refused",
                             "AT command not confirmed"};
static_assert(std::size(NAMES) == static_cast<size_t>(Fault::COUNT));

uint64_t sSeed = 0;

/** What was done, and what came of it, for a seed that is run alone. */
void tell(const Action& action, const std::vector<Deed>& deeds) {
    static const char* const KINDS[] = {"request", "step",        "answer",   "event",
                                        "install", "queue limit", "transport"};
    printf("%s %s serial %d number %d callbacks %d %d failing %zd\n", KINDS[action.kind],
           action.request != nullptr ? action.request->name : "", action.serial,
           static_cast<int>(action.number), action.response, action.indication,
           static_cast<ssize_t>(action.failing));
    for (const Deed& deed : deeds) {
        const std::string text =
                deed.kind == Deed::CALL ? deed.text : toHex(deed.text.data(), deed.text.size());
        printf("    %s %u of client %d: %s = %d\n", deed.kind == Deed::CALL ? "call" : "callback",
               deed.code, deed.client, text.c_str(), deed.result);
    }
}

class Run {
public:
    Run(uint64_t seed, bool tells) : mTells(tells), mWorld(seed, mDeeds), mModel(mWorld, mDeeds) {}

    /** Throws with what went wrong. */
    void all() {
        install();
        for (const int service : {WDS, DMS, NAS, AT, SAR, PDC, VS}) {
            act({Action::EVENT, nullptr, 0, {}, 0, {false, bytesOf(service)}});
        }
        for (uint64_t left = 20 + mWorld.below(100); left > 0; --left) {
            act(mWorld.draw());
        }
        finish();
        mModel.checkEnd();
    }

private:
    template <class T>
    static std::string bytesOf(const T& value) {
        return {reinterpret_cast<const char*>(&value), sizeof(value)};
    }

    void install() { act({Action::INSTALL, nullptr, 0, {}, 0, {}, {}, 0, 0}); }

    void act(const Action& action) {
        mDeeds.clear();
        mWorld.perform(action);
        if (mTells) {
            tell(action, mDeeds);
        }
        mModel.follow(action);
        mWorld.checkCookies();
    }

    /** Everything that is under way comes to its end, and nothing stays in the cache. */
    void finish() {
        mWorld.calm();
        act({Action::QUEUE_LIMIT, nullptr, 0, {}, 1024});
        for (const uint64_t works : {1, 3}) {
            act({Action::TRANSPORT, nullptr, 0, {}, works});
        }
        install();
        while (desk::pendingMessages() != 0) {
            act({Action::STEP, nullptr, 0, {}, mWorld.below(9)});
        }
        while (mWorld.pendingAnswers() != 0) {
            act({Action::ANSWER, nullptr, 0, {}, 0, {false, bytesOf(modem_async_response{})}});
        }
        for (size_t kind = 0; kind < std::size(TOKEN_EVENTS); ++kind) {
            while (!mWorld.tokens[kind].empty()) {
                modem_pdc_meta_info_event event{0, 0, mWorld.tokens[kind].front(), {}, 0};
                act({Action::EVENT,
                     nullptr,
                     0,
                     {},
                     static_cast<uint64_t>(TOKEN_EVENTS[kind]),
                     {false, bytesOf(event)}});
            }
        }
        install();
    }

    const bool mTells;
    std::vector<Deed> mDeeds;
    World mWorld;
    Model mModel;
};

void tellSeed(int signal) {
    fprintf(stderr, "seed %llu ended with signal %d\n", static_cast<unsigned long long>(sSeed),
            signal);
    _exit(1);
}

/** The files that load requests name, in a folder of its own. */
std::string makeFolder() {
    std::string folder = std::filesystem::temp_directory_path() / "ox-schedules-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr || chdir(folder.c_str()) != 0) {
        throw std::runtime_error("no folder for the files to load: " + folder);
    }
    const std::pair<const char*, size_t> files[] = {
            {"empty", 0}, {"one", 1}, {"full", 1800}, {"long", 2000}};
    for (const auto& [name, size] : files) {
        std::string content(size, name[0]);
        std::ofstream(name) << content.replace(0, std::min<size_t>(size, 9), "beginning",
                                               size < 9 ? size : 9);
    }
    return folder;
}

/** Prints how often each fault struck; false when one of them did too seldom for a long run. */
bool tellFaults(uint64_t seeds) {
    bool isEnough = true;
    for (size_t i = 0; i < std::size(NAMES); ++i) {
        const bool isSeldom = seeds >= LONG_RUN && faults[i] < STRIKES_AT_LEAST;
        printf("%12llu  %s%s\n", static_cast<unsigned long long>(faults[i]), NAMES[i],
               isSeldom ? "  TOO SELDOM" : "");
        isEnough = isEnough && !isSeldom;
    }
    return isEnough;
}

}  // namespace

int main(int argc, char** argv) {
    uint64_t from = 1, count = 20000, seconds = UINT32_MAX;
    bool isOne = false;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        const uint64_t value = strtoull(argv[i + 1], nullptr, 10);
        isOne = isOne || option == "--seed";
        (option == "--count" ? count : option == "--seconds" ? seconds : from) = value;
    }
    if (argc % 2 == 0) {
        fprintf(stderr, "usage: schedule-tests [--seed N | --from A --count N] [--seconds S]\n");
        return 2;
    }
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    signal(SIGABRT, tellSeed);
    signal(SIGSEGV, tellSeed);
    const std::string folder = makeFolder();
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::seconds(seconds);
    uint64_t failed = 0, done = 0;
    for (; done < (isOne ? 1 : count) && std::chrono::steady_clock::now() < end; ++done) {
        sSeed = from + done;
        try {
            Run(sSeed, isOne).all();
        } catch (const std::exception& error) {
            printf("seed %llu: %s\n", static_cast<unsigned long long>(sSeed), error.what());
            if (++failed == 10) {
                break;
            }
        }
    }
    std::filesystem::remove_all(folder);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    const bool isEnough = tellFaults(done);
    printf("%llu seeds in %.1f s, %llu failed\n", static_cast<unsigned long long>(done),
           taken.count(), static_cast<unsigned long long>(failed));
    return failed == 0 && isEnough ? 0 : 1;
}
