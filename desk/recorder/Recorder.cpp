#include "Recorder.h"

#include <cutils/properties.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace recorder {

namespace {

constexpr size_t ROOM = 4 << 20;    // bytes in the buffer
constexpr size_t PIECE = 64 << 10;  // bytes written at once

/** OX_MODEM_<name> of the environment, or the property of that name. */
std::string setting(const std::string& name, const char* otherwise) {
    std::string variable = "OX_MODEM_" + name;
    std::transform(variable.begin(), variable.end(), variable.begin(), ::toupper);
    if (const char* value = getenv(variable.c_str()); value != nullptr) {
        return value;
    }
    char value[PROPERTY_VALUE_MAX];
    property_get(("persist.vendor.ox_modem." + name).c_str(), value, otherwise);
    return value;
}

uint64_t count(const std::string& name, const char* otherwise) {
    return std::max<uint64_t>(1, strtoull(setting(name, otherwise).c_str(), nullptr, 10));
}

uint64_t nanoseconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

std::atomic<modem_api_event_callback> eventCallback;

void onEvent(modem_api_event_type event, void* data, size_t length) {
    recording::Writer record(Recorder::get().privacy());
    record.number("event", event);
    record.number("length", length);
    record.record("data", recording::recordOfEvent(event), data, length);
    Recorder::get().write("event", 0, record.object());
    eventCallback.load()(event, data, length);
}

void onAnswer(const void* data, size_t length, void* cookie, modem_api_result_type result) {
    const auto number = reinterpret_cast<uintptr_t>(cookie);
    Waiting waiting{};
    const bool isAwaited = Recorder::get().take(number, waiting);
    recording::Writer record(Recorder::get().privacy());
    record.number("result", result);
    record.number("length", length);
    record.record("data", waiting.record, data, length);
    Recorder::get().write(isAwaited ? "answer" : "stray answer", number, record.object());
    if (isAwaited) {
        waiting.callback(data, length, waiting.cookie, result);
    }
}

}  // namespace

Recorder& Recorder::get() {
    static Recorder& recorder = *new Recorder;
    return recorder;
}

Recorder::Recorder()
    : mPath(setting("recording", "/data/vendor/ox_modem/recording")),
      mFileSize(count("recording_mib", "16") << 20),
      mFiles(count("recording_files", "4")) {
    mPrivacy.takesAll = setting("recording_all", "0") == "1";
    if (getrandom(mPrivacy.key, sizeof(mPrivacy.key), 0) < 0) {
        mTrouble = "no key for the checksums; ";
    }
    const std::string real = setting("real_api", "/vendor/lib64/libmodemapi_vendor.real.so");
    mReal = dlopen(real.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (mReal == nullptr) {
        mTrouble += dlerror();
        fprintf(stderr, "recorder: %s\n", mTrouble.c_str());
    }
    sigset_t all;
    sigset_t old;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &old);
    mThread = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

void* Recorder::find(const char* function) {
    return mReal == nullptr ? nullptr : dlsym(mReal, function);
}

uint64_t Recorder::await(const Waiting& waiting) {
    std::lock_guard lock(mMutex);
    ++mLastNumber;
    if (waiting.callback != nullptr) {
        mWaiting.emplace(mLastNumber, waiting);
    }
    return mLastNumber;
}

bool Recorder::take(uint64_t number, Waiting& waiting) {
    std::lock_guard lock(mMutex);
    const auto found = mWaiting.find(number);
    if (found == mWaiting.end()) {
        return false;
    }
    waiting = found->second;
    mWaiting.erase(found);
    return true;
}

void Recorder::write(const char* kind, uint64_t number, const std::string& members) {
    thread_local const long thread = syscall(SYS_gettid);
    std::string line = "{\"t\":" + std::to_string(nanoseconds(CLOCK_MONOTONIC));
    line.append(",\"thread\":").append(std::to_string(thread));
    line.append(",\"is\":\"").append(kind).append("\",\"n\":").append(std::to_string(number));
    line.append(",").append(members, 1).append("\n");
    std::lock_guard lock(mMutex);
    if (mStopped || mBuffer.size() + line.size() > ROOM) {
        ++mDropped;
        return;
    }
    mBuffer += line;
    mChanged.notify_one();
}

void Recorder::stop() {
    {
        std::lock_guard lock(mMutex);
        mStopped = true;
        mChanged.notify_one();
    }
    mThread.join();
}

void Recorder::run() {
    std::unique_lock lock(mMutex);
    while (true) {
        mChanged.wait(lock, [this] { return !mBuffer.empty() || mStopped; });
        const bool isLast = mStopped;
        std::string lines;
        lines.swap(mBuffer);
        lock.unlock();
        const uint64_t failed = writeOut(lines);
        lock.lock();
        mDropped += failed;
        const uint64_t dropped = mDropped;
        lock.unlock();
        if (dropped != mTold && writeOut("{\"dropped\":" + std::to_string(dropped) + "}\n") == 0) {
            mTold = dropped;
        }
        lock.lock();
        if (isLast) {
            return;
        }
    }
}

/** Writes whole lines, and tells how many of them found no room on the disk. */
uint64_t Recorder::writeOut(const std::string& lines) {
    int64_t failed = 0;
    for (size_t at = 0; at < lines.size();) {
        size_t end = lines.rfind('\n', at + PIECE);
        end = (end == std::string::npos || end < at ? lines.find('\n', at) : end) + 1;
        if (mFile < 0 || mWritten >= mFileSize) {
            openNext();
        }
        if (!append(&lines[at], end - at)) {
            failed += std::count(&lines[at], &lines[end - 1] + 1, '\n');
        }
        at = end;
    }
    return static_cast<uint64_t>(failed);
}

/** Adds to the file, or leaves it as it was. */
bool Recorder::append(const char* data, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t some = mFile < 0 ? -1 : ::write(mFile, data + done, size - done);
        if (some <= 0) {
            if (mFile >= 0 && ftruncate(mFile, static_cast<off_t>(mWritten)) != 0) {
                close(mFile);
                mFile = -1;
            }
            return false;
        }
        done += static_cast<size_t>(some);
    }
    mWritten += size;
    return true;
}

/** Closes the file, makes it the older one, and begins the next. */
void Recorder::openNext() {
    if (mFile >= 0) {
        close(mFile);
    }
    const auto name = [this](uint64_t age) {
        return age == 0 ? mPath : mPath + "." + std::to_string(age);
    };
    // A file that took nothing has its name used again.
    struct stat file {};
    const bool isKept = stat(mPath.c_str(), &file) == 0 && file.st_size > 0;
    for (uint64_t age = isKept ? mFiles - 1 : 0; age > 0; --age) {
        rename(name(age - 1).c_str(), name(age).c_str());
    }
    mFile = open(mPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    mWritten = 0;
    const std::string line = firstLine();
    if (!append(line.data(), line.size()) && mFile >= 0) {
        close(mFile);
        mFile = -1;
    }
}

std::string Recorder::firstLine() const {
    recording::Writer line(mPrivacy);
    line.number("recording", 1);
    line.number("pid", getpid());
    line.number("t", nanoseconds(CLOCK_MONOTONIC));
    line.number("wall", nanoseconds(CLOCK_REALTIME));
    line.number("dropped", mTold);
    line.text("trouble", mTrouble.c_str(), false);
    line.text("left_out",
              mPrivacy.takesAll ? ""
                                : "property names and values, NV, EFS and PRL contents, names and "
                                  "contents of configurations, bytes of unknown records",
              false);
    return line.object() + "\n";
}

modem_api_event_callback Call::events(modem_api_event_callback callback) {
    if (callback == nullptr) {
        return nullptr;
    }
    eventCallback = callback;
    return onEvent;
}

void Call::answers(const recording::Record& record, void*& cookie,
                   modem_api_async_callback& callback) {
    mNumber = Recorder::get().await({&record, cookie, callback});
    if (callback != nullptr) {
        mIsAnswered = true;
        cookie = reinterpret_cast<void*>(mNumber);
        callback = onAnswer;
    }
}

void Call::begin() {
    if (mNumber == 0) {
        mNumber = Recorder::get().await({});
    }
    const std::string function = std::string("{\"f\":\"") + mFunction + '"';
    Recorder::get().write("call", mNumber,
                          function + mExtra + ",\"args\":" + arguments.object() + "}");
}

int Call::end(int result) {
    Waiting refused;
    if (mIsAnswered && result != 0) {
        Recorder::get().take(mNumber, refused);
    }
    Recorder::get().write(
            "return", mNumber,
            "{\"result\":" + std::to_string(result) + ",\"out\":" + results.object() + "}");
    return result;
}

__attribute__((destructor)) static void stopRecorder() {
    Recorder::get().stop();
}

}  // namespace recorder
