#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/Bench.h"

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    std::string folder = std::filesystem::temp_directory_path() / "ox-modem-bench.XXXXXX";
    require(mkdtemp(folder.data()) != nullptr, "no runtime folder");
    setenv("OX_RUNTIME_DIR", folder.c_str(), 1);
    setenv("ANDROID_LOG_TAGS", "*:S", 1);  // the log's lines are discarded
    registerRoundTrips();
    registerRequests();
    registerLoading(folder);
    benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove_all(folder);
    return 0;
}
