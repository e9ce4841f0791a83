#include "tests/system/Desk.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tools/modemctl/Simulator.h"

namespace {

size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

std::string newFolder() {
    std::string path = std::filesystem::temp_directory_path() / "ox-system-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    return path;
}

}  // namespace

Process::Process(std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    int ends[2];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    const int error = posix_spawn(&mId, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0) {
        throw std::runtime_error("cannot start " + words[0]);
    }
    mCollector = std::thread(&Process::collect, this, ends[0]);
}

Process::~Process() {
    if (mRunning) {
        signal(SIGKILL);
        wait();
    }
}

void Process::collect(int pipe) {
    char bytes[4096];
    for (ssize_t count = 0; (count = read(pipe, bytes, sizeof bytes)) > 0;) {
        const std::lock_guard guard(mLock);
        mOutput.append(bytes, static_cast<size_t>(count));
        mChanged.notify_all();
    }
    close(pipe);
    const std::lock_guard guard(mLock);
    mEnded = true;
    mChanged.notify_all();
}

void Process::signal(int number) const {
    kill(mId, number);
}

int Process::wait() {
    {
        std::unique_lock lock(mLock);
        if (!mChanged.wait_for(lock, PATIENCE, [this] { return mEnded; })) {
            ADD_FAILURE() << "does not end:\n" << mOutput;
            signal(SIGKILL);
        }
    }
    mCollector.join();
    int status = 0;
    waitpid(mId, &status, 0);
    mRunning = false;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool Process::prints(const std::string& text, size_t times) {
    std::unique_lock lock(mLock);
    const auto isThere = [&] { return countOf(mOutput, text) >= times; };
    mChanged.wait_for(lock, PATIENCE, [&] { return mEnded || isThere(); });
    return isThere();
}

std::string Process::output() const {
    const std::lock_guard guard(mLock);
    return mOutput;
}

Host::Host(int instance) : Host(instance, {HOST, "--", "-i", std::to_string(instance)}) {
    // The last steps of the services that connect last, at start and after a restart.
    if (!awaitSim("state service.wds", "bound") || !awaitSim("state indications", "on\n")) {
        throw std::runtime_error("services do not connect:\n" + process.output());
    }
}

Host::Host(int instance, std::vector<std::string> words)
    : process(std::move(words)), mInstance(instance) {
    if (!process.prints("ready: ")) {
        throw std::runtime_error("host does not start:\n" + process.output());
    }
}

Host::~Host() {
    if (!mStopped) {
        stop();
    }
}

std::vector<std::string> Host::prepared(int instance, std::vector<std::string> commands) {
    commands.insert(commands.begin(), {PREPARED_HOST, std::to_string(instance)});
    return commands;
}

std::string Host::trySim(const std::string& command) const {
    std::istringstream line(command);
    std::ostringstream out;
    runSimulator(mInstance, PATIENCE, line, out);
    return out.str();
}

std::string Host::sim(const std::string& command) const {
    const std::string reply = trySim(command);
    EXPECT_EQ(reply.size() - 3, reply.rfind("ok\n")) << command << ": " << reply;
    return reply.substr(0, reply.size() - 3);
}

bool Host::awaitSim(const std::string& command, const std::string& text) const {
    return await([&] { return trySim(command).find(text) != std::string::npos; });
}

bool Host::awaitCalls(const std::string& function, int count) const {
    const std::string reply = std::to_string(count) + "\nok\n";
    return await([&] { return trySim("calls " + function) == reply; });
}

void Host::stop() {
    mStopped = true;
    process.signal(SIGTERM);
    EXPECT_EQ(0, process.wait()) << process.output();
    EXPECT_EQ(std::string::npos, process.output().find("Sanitizer")) << process.output();
}

SystemTest::SystemTest() : folder(newFolder()) {
    setenv("OX_RUNTIME_DIR", folder.c_str(), 1);
    setenv("ANDROID_LOG_TAGS", "*:W", 1);
}

SystemTest::~SystemTest() {
    std::filesystem::remove_all(folder);
}

std::string SystemTest::file(const std::string& name, const std::string& content) const {
    std::ofstream(folder + "/" + name, std::ios::binary) << content;
    return folder + "/" + name;
}
