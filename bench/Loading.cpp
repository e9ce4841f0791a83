// Loading of a modem configuration, beside a loop that does no more than read its chunks.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "bench/Bench.h"
#include "clients/MbnConfigLoader.h"

namespace {

constexpr size_t FILE_SIZE = 16 << 20;
constexpr size_t CHUNK_SIZE = 900;

[[gnu::noinline]] void takeNothing(const uint8_t* chunk, ssize_t size) {
    benchmark::DoNotOptimize(chunk);
    benchmark::DoNotOptimize(size);
}

void loadBare(benchmark::State& state, const std::string& path) {
    for (auto _ : state) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        uint8_t chunk[CHUNK_SIZE];
        for (ssize_t count = 0; (count = read(fd, chunk, sizeof(chunk))) > 0;) {
            takeNothing(chunk, count);
        }
        close(fd);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * FILE_SIZE));
}

void load(benchmark::State& state, const std::string& path) {
    const std::vector<uint8_t> name(path.begin(), path.end());
    for (auto _ : state) {
        require(loadMbnConfigFile(__func__, name) == ERRNO_SUCCESS, "loading failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * FILE_SIZE));
}

}  // namespace

void registerLoading(const std::string& folder) {
    const std::string path = folder + "/config.mbn";
    std::ofstream file(path, std::ios::binary);
    file << std::string(FILE_SIZE, '\x5a');
    require(file.flush().good(), "no room for the file to load");
    benchmark::RegisterBenchmark("loadBare", loadBare, path)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("load", load, path)->Unit(benchmark::kMillisecond);
}
