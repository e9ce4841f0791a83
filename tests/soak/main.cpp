#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <deque>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>

#include "Client.h"
#include "DirectSession.h"
#include "Ledger.h"
#include "Processes.h"
#include "desk/modemctl/FakeModem.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct Options {
    uint64_t seed = 1;
    int seconds = 600;
    size_t clients = 6;
    int instance = 0;
    pid_t host = 0;  ///< 0: one of our own
    bool memory = true;
};

constexpr size_t MAX_CLIENTS = 40;
constexpr size_t MAX_THREADS = 100;
constexpr double MAX_MEMORY = 64;  ///< MB
/** The transport's writer, a thread and a descriptor, starts when a peer's socket is first full. */
constexpr size_t WRITER = 1;
constexpr double MARGIN = 8;  ///< MB by which the idle host may have grown since the start

/** Maps the counters of begun requests from a file, which the client processes map as well. */
Begun* mapBegun(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    constexpr size_t size = (MAX_CLIENTS + 1) * sizeof(Begun);
    void* memory = MAP_FAILED;
    if (file >= 0 && ftruncate(file, static_cast<off_t>(size)) == 0) {
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    }
    close(file);
    return memory != MAP_FAILED ? static_cast<Begun*>(memory)
                                : throw std::runtime_error("cannot map " + path);
}

/** A client process and what it has to do. */
struct Running {
    Running(const Job& what, std::vector<std::string> words)
        : job(what), process(std::move(words)) {}

    const Job job;
    int32_t killAfter = 0;  ///< requests; beyond the job's: it ends when all its answers came
    Child process;
    Clock::time_point done{};  ///< its last request was begun
};

class Soak {
public:
    explicit Soak(const Options& options);
    ~Soak() { fs::remove_all(mFolder); }
    Soak(const Soak&) = delete;
    Soak& operator=(const Soak&) = delete;

    /** True when everything held. */
    bool run();

private:
    void awaitStart();
    void wake();
    std::unique_ptr<Running> start(size_t place, bool owns);
    void tendClients();
    void replaceOwner();
    void provoke();
    void fake(const std::string& command);
    void sample();
    void showProgress();
    void settle();
    bool report();

    uint32_t draw(uint32_t limit) { return static_cast<uint32_t>(mRandom() % limit); }
    Begun& begun(size_t place) { return mBegun[place]; }

    const Options mOptions;
    const std::string mFolder;
    std::mt19937_64 mRandom;
    Begun* mBegun = nullptr;
    std::optional<Child> mHost;
    pid_t mHostId = 0;
    Ledger mLedger;  ///< outlives the connection, whose reader writes to it
    std::optional<DirectSession> mOwner;
    std::vector<std::unique_ptr<Running>> mClients;  ///< one for each place
    std::deque<std::string> mComing;                 ///< commands that follow a provocation
    const Clock::time_point mStart = Clock::now();
    Usage mBefore{}, mMost{}, mAfter{};
    size_t mKilled = 0, mLeft = 0, mReplaced = 0, mProvoked = 0, mRefused = 0, mRestarts = 0;
    std::string mBroken;  ///< why the host did not hold, besides the ledger
};

std::string newFolder() {
    std::string path = fs::temp_directory_path() / "ox-soak-XXXXXX";
    return mkdtemp(path.data()) != nullptr ? path : throw std::runtime_error("no folder");
}

Soak::Soak(const Options& options)
    : mOptions(options), mFolder(newFolder()), mRandom(options.seed) {
    mBegun = mapBegun(mFolder + "/begun");
    std::ofstream(mFolder + "/file") << std::string(5000, 'm');
    if (options.host == 0) {
        setenv("OX_RUNTIME_DIR", mFolder.c_str(), 1);
        setenv("ANDROID_LOG_TAGS", "*:S", 0);
        mHost.emplace(std::vector<std::string>{ownFolder() / "ox-modem-host", "--instance",
                                               std::to_string(options.instance)});
    }
    mHostId = mHost ? mHost->id() : options.host;
    mClients.resize(options.clients);
}

/** Connects as soon as there is a service, and takes what an idle host needs. */
void Soak::awaitStart() {
    for (const auto deadline = mStart + 30s; !mOwner;) {
        try {
            mOwner.emplace(mOptions.instance, [this](const Arrival& arrival) {
                if (arrival.kind == Arrival::ANSWER) {
                    const auto& info = arrival.arguments["info"];
                    mLedger.answer(info["serial"], arrival.method->name, info["error"]);
                }
            });
            mOwner->install();
            fake("state service");
        } catch (const std::exception&) {
            mOwner.reset();
            if (Clock::now() > deadline || (mHost && !mHost->isRunning())) {
                throw;
            }
            std::this_thread::sleep_for(20ms);
        }
    }
    fake("set restart-ms 50");
    wake();
    mMost = mBefore = usageOf(mHostId);
}

/** A host starts its threads when it first needs them: has it need all before it is measured. */
void Soak::wake() {
    Requests requests(mRandom(), mFolder + "/file");
    for (int i = 0; i < 500; ++i) {
        hal::Parcel arguments;
        const int32_t serial = mLedger.next();
        const hal::Method& request = requests.next(arguments, serial);
        mLedger.plan(request);
        mOwner->send(request, arguments);
    }
    const auto deadline = Clock::now() + 10s;
    while (mLedger.isDue(0, mLedger.next()) && Clock::now() < deadline) {
        std::this_thread::sleep_for(10ms);
    }
}

std::unique_ptr<Running> Soak::start(size_t place, bool owns) {
    const Job job{mRandom(), mLedger.next(), 50 + static_cast<int32_t>(draw(400)), 1U << draw(15),
                  owns};
    const std::string file = mFolder + "/file";
    Requests requests(job.seed, file);
    for (int32_t i = 0; i < job.requests; ++i) {
        hal::Parcel arguments;
        mLedger.plan(requests.next(arguments, job.serial + i));
    }
    begun(place) = 0;
    auto client = std::make_unique<Running>(
            job,
            std::vector<std::string>{ownFolder() / "ox-modem-soak", "--instance",
                                     std::to_string(mOptions.instance), "client", mFolder,
                                     std::to_string(place), std::to_string(job.seed),
                                     std::to_string(job.serial), std::to_string(job.requests),
                                     std::to_string(job.pause), std::to_string(job.owns ? 1 : 0)});
    client->killAfter = draw(2) != 0 ? static_cast<int32_t>(draw(400)) + 1 : INT32_MAX;
    return client;
}

/** Kills those whose time has come, lets go those who are done, and starts others for them. */
void Soak::tendClients() {
    for (size_t place = 0; place < mClients.size(); ++place) {
        auto& client = mClients[place];
        if (client != nullptr) {
            const int32_t end = client->job.serial + client->job.requests;
            const bool isKilled =
                    begun(place) >= std::min(client->killAfter, client->job.requests) &&
                    client->killAfter < client->job.requests;
            if (!client->process.isRunning()) {
                mBroken = "a client ended by itself";
            }
            if (begun(place) == client->job.requests && client->done == Clock::time_point()) {
                client->done = Clock::now();
            }
            const bool isDone =
                    client->done != Clock::time_point() &&
                    (!mLedger.isDue(client->job.serial, end) || Clock::now() > client->done + 10s);
            if (!isKilled && !isDone && client->process.isRunning()) {
                continue;
            }
            client->process.end(SIGKILL);
            if (isKilled) {
                mLedger.excuse(client->job.serial, end);
            }
            ++(isKilled ? mKilled : mLeft);
        }
        client = start(place, false);
    }
}

/** Another process takes the callbacks, asks, and is killed; then they are ours again. */
void Soak::replaceOwner() {
    const size_t place = mClients.size();
    const auto owner = start(place, true);
    const auto deadline = Clock::now() + 500ms;
    while (begun(place) < std::min(owner->killAfter, owner->job.requests) &&
           Clock::now() < deadline) {
        tendClients();
        std::this_thread::sleep_for(5ms);
    }
    owner->process.end(SIGKILL);
    mOwner->install();
    mLedger.excuse(owner->job.serial, owner->job.serial + owner->job.requests);
    for (size_t i = 0; i < mClients.size(); ++i) {
        const int32_t first = mClients[i]->job.serial;
        mLedger.excuse(first, first + begun(i));
    }
    ++mReplaced;
}

void Soak::fake(const std::string& command) {
    std::istringstream line(command);
    std::ostringstream reply;
    ++mProvoked;
    mRefused += runFakeModem(mOptions.instance, 30s, line, reply, false) != ANSWERED ? 1 : 0;
}

/** Does to the modem what the plan has next. */
void Soak::provoke() {
    if (!mComing.empty()) {
        fake(mComing.front());
        mComing.pop_front();
        return;
    }
    const char* const services[] = {"nas", "wds", "vs", "dms", "sar", "pdc", "at"};
    const char* const functions[] = {"modem_get_build_id",       "modem_get_build_time",
                                     "modem_get_bands_info",     "modem_api_get_modem_property",
                                     "modem_read_efs_for_subid", "modem_pdc_get_config_info"};
    const std::string service = services[draw(std::size(services))];
    const std::string function = functions[draw(std::size(functions))];
    switch (draw(8)) {
        case 0:
            ++mRestarts;
            return fake("restart 50");
        case 1:
            mComing = {"connect " + service};
            return fake("disconnect " + service);
        case 2:
            return fake("fail " + function + " 1 " + std::to_string(1 + draw(50)));
        case 3:
            mComing = {"ok " + function};
            return fake("patch " + function + " result 3");
        case 4:
            return fake("delay " + function + " 0-" + std::to_string(1 + draw(50)));
        case 5:
            return fake("rrc 1 2 3 " + std::to_string(draw(100)));
        case 6:
            return fake("power-save " + std::to_string(draw(8)));
        default:
            return fake("radio");
    }
}

void Soak::sample() {
    const Usage now = usageOf(mHostId);
    mMost = {std::max(mMost.threads, now.threads), std::max(mMost.descriptors, now.descriptors),
             std::max(mMost.memory, now.memory)};
}

void Soak::showProgress() {
    const auto totals = mLedger.totals();
    printf("\r%4lld s  %zu answered, %zu clients killed, %zu restarts; host: %zu threads, %.1f MB ",
           static_cast<long long>((Clock::now() - mStart) / 1s), totals.answered, mKilled,
           mRestarts, mMost.threads, mMost.memory);
    fflush(stdout);
}

/** Everybody leaves; answers and the host have a while to come to rest. */
void Soak::settle() {
    for (const auto& command : mComing) {
        fake(command);
    }
    fake("clear");
    for (size_t place = 0; place < mClients.size(); ++place) {
        const Job& job = mClients[place]->job;
        mClients[place]->process.end(SIGKILL);
        mLedger.excuse(job.serial, job.serial + job.requests);
    }
    const auto deadline = Clock::now() + 10s;
    const auto isAtRest = [this] {
        mAfter = usageOf(mHostId);
        return mAfter.threads <= mBefore.threads + WRITER &&
               mAfter.descriptors <= mBefore.descriptors + WRITER &&
               !mLedger.isDue(0, mLedger.next());
    };
    while (!isAtRest() && Clock::now() < deadline) {
        std::this_thread::sleep_for(50ms);
    }
}

bool Soak::run() {
    awaitStart();
    const auto end = mStart + std::chrono::seconds(mOptions.seconds);
    auto provocation = Clock::now(), replacement = provocation + 2s, progress = provocation;
    for (auto now = provocation; now < end && mBroken.empty(); now = Clock::now()) {
        tendClients();
        if (now >= provocation) {
            provoke();
            provocation = now + 40ms;
        }
        if (now >= replacement) {
            replaceOwner();
            replacement = now + 2s;
        }
        if (now >= progress) {
            sample();
            progress = now + 500ms;
            if (isatty(STDOUT_FILENO) != 0) {
                showProgress();
            }
        }
        std::this_thread::sleep_for(2ms);
    }
    settle();
    mOwner.reset();
    if (mHost && mHost->end(SIGTERM) != 0) {
        mBroken = "the host did not leave cleanly";
    }
    return report();
}

bool Soak::report() {
    const auto totals = mLedger.totals();
    const bool grew = mAfter.threads > mBefore.threads + WRITER ||
                      mAfter.descriptors > mBefore.descriptors + WRITER ||
                      mMost.threads > MAX_THREADS ||
                      (mOptions.memory &&
                       (mAfter.memory > mBefore.memory + MARGIN || mMost.memory > MAX_MEMORY));
    printf("%s| requests | |\n|---|---:|\n", isatty(STDOUT_FILENO) != 0 ? "\n" : "");
    const std::pair<const char*, size_t> rows[] = {
            {"answered once", totals.answered},
            {"of these with an error", totals.errors},
            {"not owed: never sent, or their client or the callbacks' owner was killed",
             totals.excused},
            {"lost", totals.lost},
            {"doubled", totals.doubled},
            {"misrouted", totals.misrouted},
            {"clients killed", mKilled},
            {"clients that left", mLeft},
            {"owners of the callbacks killed", mReplaced},
            {"provocations of the modem", mProvoked},
            {"of these refused by it", mRefused},
            {"of these restarts", mRestarts}};
    for (const auto& [name, value] : rows) {
        printf("| %s | %zu |\n", name, value);
    }
    printf("\n| host | before | most | after |\n|---|---:|---:|---:|\n"
           "| threads | %zu | %zu | %zu |\n| descriptors | %zu | %zu | %zu |\n"
           "| resident MB | %.1f | %.1f | %.1f |\n",
           mBefore.threads, mMost.threads, mAfter.threads, mBefore.descriptors, mMost.descriptors,
           mAfter.descriptors, mBefore.memory, mMost.memory, mAfter.memory);
    if (!totals.first.empty() || !mBroken.empty() || grew) {
        printf("\nseed %llu: %s%s%s\n", static_cast<unsigned long long>(mOptions.seed),
               totals.first.c_str(), mBroken.c_str(), grew ? " the host grew" : "");
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
            "Clients with random requests, killed clients and a modem that fails and restarts, "
            "and a ledger of every request.");
    Options options;
    app.add_option("--seconds", options.seconds, "How long")->capture_default_str();
    app.add_option("--seed", options.seed, "The same seed makes the same plan")
            ->capture_default_str();
    app.add_option("--clients", options.clients, "Clients at a time")
            ->check(CLI::Range(size_t{1}, MAX_CLIENTS))
            ->capture_default_str();
    app.add_option("--instance", options.instance, "0 or 1")->capture_default_str();
    app.add_option("--host", options.host, "Process id of a running host (default: starts one)");
    app.add_flag("!--any-memory", options.memory, "Does not judge the host's memory");
    app.footer(
            "Exit: 0 when everything held; 1 when a request was lost, doubled or misrouted, or "
            "the host grew or ended; 2 wrong usage.");
    std::string folder;
    size_t place = 0;
    Job job;
    CLI::App* client = app.add_subcommand("client", "One of its clients")->group("");
    client->add_option("folder", folder)->required();
    client->add_option("place", place)->required();
    client->add_option("seed", job.seed)->required();
    client->add_option("serial", job.serial)->required();
    client->add_option("requests", job.requests)->required();
    client->add_option("pause", job.pause)->required();
    client->add_option("owns", job.owns)->required();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        if (*client) {
            runClient(options.instance, folder + "/file", job, mapBegun(folder + "/begun")[place]);
            return 0;
        }
        return Soak(options).run() ? 0 : 1;
    } catch (const std::exception& error) {
        fprintf(stderr, "ox-modem-soak: %s\n", error.what());
        return 1;
    }
}
