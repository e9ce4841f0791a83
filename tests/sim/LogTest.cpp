#include <fcntl.h>
#include <framework/Log.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>

namespace {

constexpr int SMALLEST_PIPE = 4096;

/** stderr is a pipe of the smallest size while this lives. */
class PipedLog {
public:
    PipedLog() : mKept(dup(STDERR_FILENO)) {
        EXPECT_EQ(0, pipe2(mEnds, O_CLOEXEC | O_NONBLOCK));
        fcntl(mEnds[0], F_SETPIPE_SZ, SMALLEST_PIPE);
        fcntl(mEnds[1], F_SETFL, 0);  // as another process has it
        dup2(mEnds[1], STDERR_FILENO);
        close(mEnds[1]);
    }
    ~PipedLog() {
        dup2(mKept, STDERR_FILENO);
        close(mKept);
        closeReader();
    }

    std::string read() const {
        char bytes[SMALLEST_PIPE];
        const ssize_t count = ::read(mEnds[0], bytes, sizeof(bytes));
        return {bytes, static_cast<size_t>(std::max<ssize_t>(count, 0))};
    }
    void closeReader() { close(std::exchange(mEnds[0], -1)); }

private:
    const int mKept;
    int mEnds[2];
};

void log(const std::string& text, int priority = LOG_PRIORITY_INFO) {
    Log::printAndroidLog(priority, "TEST", "%s", text.c_str());
}

}  // namespace

TEST(Log, CountsTheLinesThatNobodyReadsAndTellsItWhenItGoesOn) {
    PipedLog pipe;
    const std::string line(900, 'x');
    for (int i = 0; i < 20; ++i) {
        log(line);
    }
    log(line, LOG_PRIORITY_FATAL);  // waits, but not for ever
    const std::string first = pipe.read();
    EXPECT_EQ(4, std::count(first.begin(), first.end(), '\n'));
    log("goes on");
    EXPECT_THAT(pipe.read(), testing::MatchesRegex(".* W FRAMEWORK: 17 lines lost, [a-z ]+\n"
                                                   ".* I TEST: goes on\n"));
    log(std::string(9000, 'y'));
    EXPECT_THAT(pipe.read(),
                testing::AllOf(testing::SizeIs(SMALLEST_PIPE - 5), testing::EndsWith("y\n")));
}

TEST(Log, GoesOnWithoutItsReader) {
    signal(SIGPIPE, SIG_IGN);
    PipedLog pipe;
    log("heard");
    EXPECT_THAT(pipe.read(), testing::HasSubstr("heard\n"));
    pipe.closeReader();
    log("unheard");
    PipedLog other;
    log("heard again");
    EXPECT_THAT(other.read(), testing::HasSubstr("1 lines lost"));
}
