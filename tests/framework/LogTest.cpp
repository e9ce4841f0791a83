#include <fcntl.h>
#include <framework/Log.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

/** Makes stderr a pipe that holds 4096 bytes; the end to read from. */
int pipeStderr() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    fcntl(ends[0], F_SETPIPE_SZ, 4096);
    fcntl(ends[1], F_SETFL, 0);  // as another process has it
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    return ends[0];
}

std::string readFrom(int fd) {
    char bytes[4096];
    return {bytes, static_cast<size_t>(std::max<ssize_t>(read(fd, bytes, sizeof(bytes)), 0))};
}

void log(const std::string& text, int priority = LOG_PRIORITY_INFO) {
    Log::printAndroidLog(priority, "TEST", "%s", text.c_str());
}

}  // namespace

TEST(Log, WaitsForNobodyAndTellsHowManyLinesWereDroppedAndWhere) {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    const std::string file = testing::TempDir() + "fake-modem-tests." + std::to_string(getpid());
    setenv("OX_LOG_FILE", file.c_str(), 1);
    const int kept = dup(STDERR_FILENO);
    const int slow = pipeStderr();
    const std::string line(900, 'x');
    for (int i = 0; i < 20; ++i) {
        log(line);
    }
    log(line, LOG_PRIORITY_FATAL);  // waits, but not for ever
    std::string taken;
    std::thread reader([&] {
        poll(nullptr, 0, 100);
        taken = readFrom(slow);
    });
    log("goes on" + line, LOG_PRIORITY_FATAL);  // as there is room in time
    reader.join();
    taken += readFrom(slow);
    EXPECT_EQ(std::count(taken.begin(), taken.end(), '\n'), 4 + 2);
    EXPECT_THAT(taken, testing::ContainsRegex("W FRAMEWORK: 17 lines lost.*\n.*goes on"));
    log(std::string(9000, 'y'));
    EXPECT_THAT(readFrom(slow), testing::EndsWith("y\n"));
    close(slow);
    log("nobody reads");
    const int next = pipeStderr();
    log("heard");
    EXPECT_THAT(readFrom(next), testing::ContainsRegex("1 lines lost.*\n.*heard\n"));
    rlimit disk{};
    getrlimit(RLIMIT_FSIZE, &disk);
    const rlimit full{std::filesystem::file_size(file) + 9, disk.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    log("torn");
    log("lost");
    setrlimit(RLIMIT_FSIZE, &disk);
    log("kept");
    std::ifstream opened(file);
    const std::string lines(std::istreambuf_iterator<char>(opened), {});
    EXPECT_THAT(lines, testing::ContainsRegex("^[^W]*heard\n.{9}\n.* W .*: 2 lines lost.*kept\n$"));
    std::filesystem::remove(file);
    dup2(kept, STDERR_FILENO);
    close(kept);
    close(next);
}
