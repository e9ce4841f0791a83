// Generated schedules: whatever the modem, the clients and the order of things do, every request is
// answered once and rightly. A seed makes one run of some hundred actions, always the same.

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>

#include "tests/schedules/Run.h"

namespace {

constexpr unsigned HANGS_AFTER = 20;  ///< seconds that one seed never takes

uint64_t sSeed = 0;

void tellSeed(int signal) {
    fprintf(stderr, "seed %llu: %s\n", static_cast<unsigned long long>(sSeed),
            signal == SIGALRM ? "it hangs" : strsignal(signal));
    _Exit(1);
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
    signal(SIGALRM, tellSeed);
    const std::string folder = makeFolder();
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::seconds(seconds);
    uint64_t failed = 0, done = 0;
    for (; failed < 10 && done < (isOne ? 1 : count) && std::chrono::steady_clock::now() < end;
         ++done) {
        sSeed = from + done;
        alarm(HANGS_AFTER);
        try {
            runSchedule(std::mt19937_64(sSeed), isOne);
        } catch (const std::exception& error) {
            ++failed;
            printf("seed %llu: %s\n", static_cast<unsigned long long>(sSeed), error.what());
        }
    }
    std::filesystem::remove_all(folder);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    printf("%llu seeds in %.1f s, %llu failed\n", static_cast<unsigned long long>(done),
           taken.count(), static_cast<unsigned long long>(failed));
    return failed == 0 ? 0 : 1;
}
