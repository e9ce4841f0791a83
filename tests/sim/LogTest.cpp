#include <fcntl.h>
#include <framework/Log.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>

namespace {

/** stderr is a pipe that holds 4096 bytes while this lives. */
struct PipedLog {
    PipedLog() {
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
        fcntl(ends[0], F_SETPIPE_SZ, 4096);
        fcntl(ends[1], F_SETFL, 0);  // as another process has it
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
    }
    ~PipedLog() {
        dup2(kept, STDERR_FILENO);
        close(kept);
        close(ends[0]);
    }
    std::string read() const {
        char bytes[4096];
        return {bytes, static_cast<size_t>(std::max<ssize_t>(::read(ends[0], bytes, 4096), 0))};
    }

    const int kept = dup(STDERR_FILENO);
    int ends[2];
};

void log(const std::string& text, int priority = LOG_PRIORITY_INFO) {
    Log::printAndroidLog(priority, "TEST", "%s", text.c_str());
}

}  // namespace

TEST(Log, TellsHowManyLinesItDroppedWhileNobodyRead) {
    const PipedLog pipe;
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
    EXPECT_THAT(pipe.read(), testing::EndsWith("y\n"));
}

TEST(Log, GoesOnWithoutItsReader) {
    signal(SIGPIPE, SIG_IGN);
    {
        PipedLog unread;
        close(std::exchange(unread.ends[0], -1));
        log("unheard");
    }
    const PipedLog pipe;
    log("heard");
    EXPECT_THAT(pipe.read(), testing::ContainsRegex("1 lines lost.*\n.*heard\n"));
}
