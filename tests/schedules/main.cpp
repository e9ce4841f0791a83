// Generated schedules: whatever the modem, the clients and the order of things do, every request is
// answered once and rightly. A seed makes one run of some hundred actions, always the same.

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tests/schedules/Model.h"

// The plug-in's properties go to the modem's double, in place of the library's files.
int property_set(const char* key, const char* value) {
    const allocations::Pause pause;
    return ScriptedModem::instance().enter(
            {"property_set", std::string(key) + ", " + value, nullptr});
}

int property_get(const char*, char* value, const char*) {
    *value = '\0';
    return 0;
}

namespace {

constexpr uint64_t LONG_RUN = 100000;  ///< seeds from which on every fault has to have struck
constexpr uint64_t STRIKES_AT_LEAST = 1000;

uint64_t sSeed = 0;

class Run {
public:
    Run(uint64_t seed, bool tells) : mTells(tells), mWorld(seed, mDeeds), mModel(mWorld, mDeeds) {}

    /** Throws with what went wrong. */
    void all() {
        install();
        for (const int service : {WDS, DMS, NAS, AT, SAR, PDC, VS}) {
            act({Action::EVENT, 0, recordOf(service)});
        }
        for (uint64_t left = 20 + mWorld.below(100); left > 0; --left) {
            act(mWorld.draw());
        }
        mWorld.calm();
        finish();
        mModel.checkEnd();
    }

private:
    template <class T>
    static Record recordOf(const T& value) {
        return {false, {reinterpret_cast<const char*>(&value), sizeof(value)}};
    }

    void install() { act({Action::INSTALL, 0, {}, nullptr, 0, {}, {}, 0, 0}); }

    void act(const Action& action) {
        mDeeds.clear();
        mWorld.perform(action);
        if (mTells) {
            tell(action);
        }
        mModel.follow(action);
        mWorld.checkCookies();
    }

    void tell(const Action& action) const {
        printf("action %d %s serial %d number %llu callbacks %d %d failing %zd\n", action.kind,
               action.request != nullptr ? action.request->name : "", action.serial,
               static_cast<unsigned long long>(action.number), action.response, action.indication,
               static_cast<ssize_t>(action.failing));
        for (const Deed& deed : mDeeds) {
            printf("    deed %d code %u client %d result %d %s\n", deed.kind, deed.code,
                   deed.client, deed.result,
                   deed.kind == Deed::CALL ? deed.text.c_str()
                                           : toHex(deed.text.data(), deed.text.size()).c_str());
        }
    }

    /** Everything that is under way comes to its end, and nothing stays in the cache. */
    void finish() {
        act({Action::QUEUE_LIMIT, 1024});
        for (const uint64_t works : {1, 3}) {
            act({Action::TRANSPORT, works});
        }
        install();
        while (desk::pendingMessages() != 0) {
            act({Action::STEP, mWorld.below(9)});
        }
        while (mWorld.pendingAnswers() != 0) {
            act({Action::ANSWER, 0, recordOf(modem_async_response{})});
        }
        for (size_t kind = 0; kind < std::size(TOKEN_EVENTS); ++kind) {
            while (!mWorld.tokens[kind].empty()) {
                const modem_pdc_meta_info_event event{0, 0, mWorld.tokens[kind][0], {}, 0};
                act({Action::EVENT, static_cast<uint64_t>(TOKEN_EVENTS[kind]), recordOf(event)});
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
    fprintf(stderr, "seed %llu: signal %d\n", static_cast<unsigned long long>(sSeed), signal);
    _exit(1);
}

/** The files that load requests name, in a folder of their own, which becomes the current one. */
std::string makeFolder() {
    std::string folder = std::filesystem::temp_directory_path() / "ox-schedules-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr || chdir(folder.c_str()) != 0) {
        throw std::runtime_error("no folder for the files to load: " + folder);
    }
    for (const auto& [name, size] :
         {std::pair("empty", 0), {"one", 1}, {"full", 1800}, {"long", 2000}}) {
        std::ofstream file(name);
        for (int i = 0; i < size; ++i) {
            file.put(static_cast<char>(i % 251));
        }
    }
    return folder;
}

/** Prints how often each fault struck; false when one of them did too seldom for a long run. */
bool tellFaults(uint64_t seeds) {
#define NAME_AS_TEXT(name) #name,
    static const char* const NAMES[] = {FAULTS(NAME_AS_TEXT)};
    bool isEnough = true;
    for (size_t i = 0; i < std::size(NAMES); ++i) {
        const bool isSeldom = seeds >= LONG_RUN && faults[i] < STRIKES_AT_LEAST;
        printf("%12llu  %s%s\n", static_cast<unsigned long long>(faults[i]), NAMES[i],
               isSeldom ? ": too seldom" : "");
        isEnough = isEnough && !isSeldom;
    }
    return isEnough;
}

}  // namespace

int main(int argc, char** argv) {
    uint64_t from = 1, count = 20000, seconds = UINT32_MAX;
    bool isOne = false;
    if (argc % 2 == 0) {
        fprintf(stderr, "usage: schedule-tests [--seed N | --from A --count N] [--seconds S]\n");
        return 2;
    }
    for (int i = 1; i < argc; i += 2) {
        const std::string option = argv[i];
        isOne = isOne || option == "--seed";
        (option == "--count"     ? count
         : option == "--seconds" ? seconds
                                 : from) = strtoull(argv[i + 1], nullptr, 10);
    }
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    signal(SIGABRT, tellSeed);
    signal(SIGSEGV, tellSeed);
    const std::string folder = makeFolder();
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::seconds(seconds);
    uint64_t failed = 0, done = 0;
    for (; failed < 10 && done < (isOne ? 1 : count) && std::chrono::steady_clock::now() < end;
         ++done) {
        sSeed = from + done;
        try {
            Run(sSeed, isOne).all();
        } catch (const std::exception& error) {
            ++failed;
            printf("seed %llu: %s\n", static_cast<unsigned long long>(sSeed), error.what());
        }
    }
    std::filesystem::remove_all(folder);
    const bool isEnough = tellFaults(done);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    printf("%llu seeds in %.1f s, %llu failed\n", static_cast<unsigned long long>(done),
           taken.count(), static_cast<unsigned long long>(failed));
    return failed == 0 && isEnough ? 0 : 1;
}
