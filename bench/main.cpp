// Measures times, with Google Benchmark's options; `--count NAME TIMES` does one thing a fixed
// number of times, for a tool that counts instructions, and prints its allocations.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "bench/Bench.h"
#include "tests/support/Allocations.h"

void require(bool holds, const char* otherwise) {
    if (!holds) {
        fprintf(stderr, "%s\n", otherwise);
        _Exit(1);
    }
}

/** The function that a tool collects. */
[[gnu::noinline]] void countedRuns(const Work& work, size_t times) {
    for (size_t i = 0; i < times; ++i) {
        work.run();
    }
}

namespace {

void count(const std::vector<Work>& works, std::string_view name, size_t times) {
    for (const Work& work : works) {
        if (work.name == name) {
            if (times > 1) {
                work.run();  // what only the first one does
            }
            allocations::start();
            countedRuns(work, times);
            printf("%zu\n", allocations::stop() / times);
            return;
        }
    }
    require(false, "no such name");
}

void measure(const std::vector<Work>& works) {
    for (const Work& work : works) {
        if (work.name != "onLoad") {
            benchmark::RegisterBenchmark(work.name.c_str(), [&work](benchmark::State& state) {
                for (auto _ : state) {
                    work.run();
                }
            });
        }
    }
    benchmark::RunSpecifiedBenchmarks();
}

}  // namespace

int main(int argc, char** argv) {
    const bool counts = argc == 4 && argv[1] == std::string_view("--count");
    if (!counts) {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            return 2;
        }
    }
    std::string folder = std::filesystem::temp_directory_path() / "ox-modem-bench.XXXXXX";
    require(mkdtemp(folder.data()) != nullptr, "no runtime folder");
    setenv("OX_RUNTIME_DIR", folder.c_str(), 1);
    setenv("ANDROID_LOG_TAGS", "*:S", 1);  // the log's lines are discarded
    const std::vector<Work> works = makeWorks(folder);
    if (counts) {
        count(works, argv[2], strtoul(argv[3], nullptr, 10));
    } else {
        measure(works);
    }
    std::filesystem::remove_all(folder);
    return 0;
}
