#include "tests/system/System.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "desk/modemctl/Api.h"
#include "desk/modemctl/FakeModem.h"
#include "desk/modemctl/Values.h"

namespace {

size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

/** " name=value" of each, without serial and type. */
std::string shown(const hal::Field* fields, size_t count, const nlohmann::ordered_json& values) {
    std::string text;
    for (const hal::Field* field = fields; field != fields + count; ++field) {
        const std::string name = field->name;
        if (field->type->kind == hal::Type::Kind::STRUCT) {
            text += shown(field->type->fields, field->type->fieldCount, values[name]);
        } else if (name != "serial" && name != "type") {
            text += ' ' + name + '=' + values::text(*field->type, values[name]);
        }
    }
    return text;
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
    mCollector = std::thread(&Process::collect, this, ends[0]);
    if (error != 0) {
        mCollector.join();
        throw std::runtime_error("cannot start " + words[0]);
    }
}

Process::~Process() {
    if (mCollector.joinable()) {
        signal(SIGKILL);
        wait();
    }
}

void Process::collect(int pipe) {
    char bytes[4096];
    for (ssize_t count = 0; (count = read(pipe, bytes, sizeof(bytes))) > 0;) {
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
    std::unique_lock lock(mLock);
    if (!mChanged.wait_for(lock, PATIENCE, [this] { return mEnded; })) {
        ADD_FAILURE() << "does not end:\n" << mOutput;
        signal(SIGKILL);
    }
    lock.unlock();
    mCollector.join();
    int status = 0;
    waitpid(mId, &status, 0);
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

Host::Host(int instance, const std::string& log)
    : Host(instance,
           {"/bin/bash", "-c", "exec \"$0\" --instance \"$1\" " + (log.empty() ? "" : "2" + log),
            HOST, std::to_string(instance)}) {
    // The last steps of the services that connect last, at start and after a restart.
    if (!awaitSim("state service.wds", "bound") || !awaitSim("state indications", "on\n")) {
        throw std::runtime_error("services do not connect:\n" + output());
    }
}

Host::Host(int instance, std::vector<std::string> words)
    : Process(std::move(words)), mInstance(instance) {
    if (!prints("ready: ")) {
        throw std::runtime_error("host does not start:\n" + output());
    }
    mBaseline = usage();
}

Host::~Host() {
    if (!mStopped) {
        EXPECT_TRUE(comesBackTo(mBaseline, LATE));
        stop();
    }
}

Usage Host::usage() const {
    using Entries = std::filesystem::directory_iterator;
    const std::string folder = "/proc/" + std::to_string(id());
    size_t pages = 0;
    std::ifstream(folder + "/statm") >> pages >> pages;
    const auto count = [&folder](const char* name) {
        return static_cast<size_t>(std::distance(Entries(folder + name), Entries()));
    };
    return {count("/task"), count("/fd"),
            static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6};
}

void Host::startAllThreads() const {
    Client client(mInstance);
    for (const char* request :
         {"getNRNetworkMode", "getBuildId", "getActiveMbnInfo 0", "isImsProfileNormal",
          "setSarState 2", "getOperatingMode", "sendLogControlResp"}) {
        client.call(request);
    }
}

bool Host::comesBackTo(const Usage& baseline, const Usage& margin) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (Usage now = usage(); now.threads > baseline.threads + margin.threads ||
                              now.descriptors > baseline.descriptors + margin.descriptors ||
                              (!SANITIZED && now.memory > baseline.memory + margin.memory);
         now = usage()) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "threads " << baseline.threads << " -> " << now.threads
                          << ", descriptors " << baseline.descriptors << " -> " << now.descriptors
                          << ", MB " << baseline.memory << " -> " << now.memory;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

std::string Host::trySim(const std::string& command) const {
    std::istringstream line(command);
    std::ostringstream out;
    runFakeModem(mInstance, PATIENCE, line, out, false);
    return out.str();
}

std::string Host::fake(const std::string& command) const {
    const std::string reply = trySim(command);
    EXPECT_EQ(reply.rfind("ok\n"), reply.size() - 3) << command << ": " << reply;
    return reply;
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
    signal(SIGTERM);
    EXPECT_EQ(wait(), 0) << output();
    EXPECT_EQ(output().find("Sanitizer"), std::string::npos) << output();
}

void Client::install() {
    mSession.install();
    while (take({})) {
    }
}

int32_t Client::send(const std::string& request) {
    const int32_t serial = mSerial++;
    send(request, serial);
    return serial;
}

void Client::send(const std::string& request, int32_t serial) {
    std::istringstream words(request);
    const std::vector<std::string> list(std::istream_iterator<std::string>(words), {});
    const hal::Method& method = api::request(list[0]);
    hal::Parcel parcel;
    values::encode(parcel, method, serial, {list.begin() + 1, list.end()});
    mSession.send(method, parcel);
}

bool Client::take(std::chrono::milliseconds patience) {
    const auto arrival = mSession.next(DirectSession::Clock::now() + patience);
    if (const hal::Method* method = arrival ? arrival->method : nullptr; method != nullptr) {
        const auto& values = arrival->arguments;
        const bool isAnswer = arrival->kind == Arrival::ANSWER;
        (isAnswer ? mAnswers[values["info"]["serial"]] : mEvents)
                .push_back(method->name + shown(method->args, method->argCount, values));
    }
    return arrival.has_value();
}

void Client::mustTake() {
    if (!take(PATIENCE)) {
        throw std::runtime_error("nothing comes");
    }
}

std::string Client::answer(int32_t serial) {
    std::deque<std::string>& answers = mAnswers[serial];
    while (answers.empty()) {
        mustTake();
    }
    const std::string first = answers.front();
    answers.pop_front();
    return first;
}

std::string Client::call(const std::string& request) {
    const std::string text = answer(send(request));
    const std::string name = request.substr(0, request.find(' ')) + "Response ";
    return text.rfind(name, 0) == 0 ? text.substr(name.size()) : text;
}

std::string Client::event() {
    while (mEvents.empty()) {
        mustTake();
    }
    const std::string first = mEvents.front();
    mEvents.pop_front();
    return first;
}

std::map<int32_t, std::deque<std::string>> Client::drain() {
    try {
        while (true) {
            mustTake();
        }
    } catch (const Failure&) {  // the service has gone
        return mAnswers;
    }
}

SystemTest::SystemTest() : mFolder(newFolder()) {
    setenv("OX_RUNTIME_DIR", mFolder.c_str(), 1);
    setenv("ANDROID_LOG_TAGS", "*:W", 1);
}

SystemTest::~SystemTest() {
    std::filesystem::remove_all(mFolder);
}

std::string SystemTest::file(const std::string& name, const std::string& content) const {
    std::ofstream(mFolder + "/" + name, std::ios::binary) << content;
    return mFolder + "/" + name;
}
