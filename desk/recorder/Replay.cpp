#include "Replay.h"

#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iostream>
#include <thread>

namespace replay {

namespace {

using recording::Kind;
using Clock = std::chrono::steady_clock;

constexpr char PATTERN = 'Z';

std::atomic<modem_api_event_callback> eventCallback;

uint64_t now() {
    return static_cast<uint64_t>(Clock::now().time_since_epoch().count());
}

/** The bytes of a text, in which a character is a byte, or of hexadecimal digits. */
std::string contents(const Json& value, bool isText) {
    if (value.is_object()) {
        return std::string(value.value("length", size_t{0}), PATTERN);
    }
    const std::string text = value.is_string() ? value.get<std::string>() : "";
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (!isText) {
            bytes += static_cast<char>(strtoul(text.substr(i++, 2).c_str(), nullptr, 16));
        } else if ((text[i] & 0x80) != 0 && i + 1 < text.size()) {
            bytes += static_cast<char>((text[i] & 3) << 6 | (text[i + 1] & 0x3f));
            ++i;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

void fill(const recording::Record& record, const Json& members, char* data) {
    for (const recording::Field& field : record.fields) {
        const Json value = members.value(field.name, Json());
        char* to = data + field.offset;
        if (field.kind == Kind::TOKENS) {
            for (size_t i = 0; i < std::min(value.size(), field.count); ++i, to += field.size) {
                // The receiver frees it.
                char* token =
                        value[i].is_null() ? nullptr : strdup(contents(value[i], true).c_str());
                memcpy(to, &token, sizeof(token));
            }
        } else if (field.kind == Kind::TEXT || field.kind == Kind::BYTES) {
            const std::string bytes = contents(value, field.kind == Kind::TEXT);
            std::copy_n(bytes.data(), std::min(bytes.size(), field.count), to);
        } else {
            for (size_t i = 0; i < (value.is_array() ? value.size() : 1) && i < field.count; ++i) {
                const Json& element = value.is_array() ? value[i] : value;
                const auto number = element.is_number() ? element.get<int64_t>() : 0;
                memcpy(to + i * field.size, &number, field.size);
            }
        }
    }
}

/** The data of an event or answer; empty for a null pointer. */
std::string dataOf(const recording::Record* record, const Json& line) {
    const Json data = line.value("data", Json());
    const auto length = line.value("length", size_t{0});
    if (data.is_null() || record == nullptr || record->size != length) {
        return contents(data, false);
    }
    std::string bytes(length, '\0');
    fill(*record, data, bytes.data());
    return bytes;
}

void dropSums(Json& value) {
    if (value.is_object()) {
        value.erase("sum");
    }
    if (value.is_structured()) {
        std::for_each(value.begin(), value.end(), dropSums);
    }
}

}  // namespace

void Reader::bytes(const char* name, void* data, size_t room, bool /*isPrivate*/) {
    const std::string bytes = contents(mMembers.value(name, Json()), false);
    if (data != nullptr) {
        memcpy(data, bytes.data(), std::min(bytes.size(), room));
    }
}

void Reader::record(const char* name, const recording::Record& record, void* data) {
    if (data != nullptr) {
        fill(record, mMembers.value(name, Json::object()), static_cast<char*>(data));
    }
}

Recording& Recording::get() {
    static Recording& recording = *new Recording;
    return recording;
}

/** Reads up to the first line that is none. */
Recording::Recording() : mIsFast(getenv("OX_MODEM_REPLAY_FAST") != nullptr) {
    const char* path = getenv("OX_MODEM_REPLAY");
    mPath = path == nullptr ? "" : path;
    mPrivacy.isReplay = true;
    std::ifstream file(mPath);
    size_t number = 0;
    for (std::string text; std::getline(file, text);) {
        const Json line = Json::parse(text, nullptr, false);
        if (!line.is_object()) {
            break;
        }
        add(line, ++number);
    }
    std::cerr << "replay: " << mPath << ", good up to line " << number << std::endl;
    std::thread([this] { run(); }).detach();
}

void Recording::add(const Json& line, size_t number) {
    const auto is = line.value("is", "");
    const auto time = line.value("t", uint64_t{0});
    if (line.contains("recording")) {
        mPrivacy.takesAll = line.value("left_out", "").empty();
    }
    if (is == "call") {
        Recorded& call = mCalls.emplace_back(Recorded{number, time});
        mByNumber[line.value("n", uint64_t{0})] = &call;
        Json arguments = line.value("args", Json::object());
        if (line.contains("token")) {
            mByToken[line["token"].get<int64_t>()] = &call;
        }
        const auto function = line.value("f", "");
        if (function == "modem_api_init_qmi_connection") {
            mOpened[arguments.value("service", 0)] = &call;
        }
        dropSums(arguments);
        mSeries[function + " " + arguments.dump()].calls.push_back(&call);
    }
    const auto found = mByNumber.find(line.value("n", uint64_t{0}));
    Recorded* call = is == "event"              ? causeOf(line)
                     : found == mByNumber.end() ? nullptr
                                                : found->second;
    if (call == nullptr || is == "call") {
        return;
    }
    if (is == "return") {
        call->result = line.value("result", 1);
        call->out = line.value("out", Json::object());
        call->duration = time - call->time;
    } else {
        call->happenings.push_back({time - call->time, is == "answer",
                                    is == "answer" && !call->result.has_value(), line});
    }
}

/** The call that an event answers; or, for what the modem tells by itself, the one before it. */
Recorded* Recording::causeOf(const Json& event) {
    const Json data = event.value("data", Json());
    if (data.is_object() && data.contains("token")) {
        const auto asked = mByToken.find(data["token"].get<int64_t>());
        if (asked != mByToken.end()) {
            return asked->second;
        }
    }
    if (event.value("event", -1) == MODEM_API_EVENT_SERVICE_CONNECTED && data.is_object()) {
        const auto opened = mOpened.find(data.value("value", 0));
        if (opened != mOpened.end()) {
            return mOpened.extract(opened).mapped();
        }
    }
    return mCalls.empty() ? nullptr : &mCalls.back();
}

const Recorded* Recording::next(const std::string& function, Json arguments, bool& isFirst) {
    const std::string key = function + " " + arguments.dump();
    std::lock_guard lock(mMutex);
    const auto found = mSeries.find(key);
    if (found != mSeries.end()) {
        Series& series = found->second;
        isFirst = series.next < series.calls.size();
        const Recorded* call = series.calls[isFirst ? series.next++ : series.next - 1];
        mLine = call->line;
        if (call->result.has_value()) {
            return call;
        }
    }
    std::cerr << "replay: " + mPath + ", after line " + std::to_string(mLine) + ": " + key +
                         (found == mSeries.end() ? " is not there" : " has no end there") +
                         ", and is refused\n";
    return nullptr;
}

void Recording::schedule(uint64_t time, std::function<void()> work) {
    std::lock_guard lock(mMutex);
    mDue.emplace(time, std::move(work));
    mChanged.notify_one();
}

void Recording::run() {
    std::unique_lock lock(mMutex);
    while (true) {
        if (mDue.empty()) {
            mChanged.wait(lock);
        } else if (const uint64_t due = mDue.begin()->first; due > now()) {
            mChanged.wait_for(lock, std::chrono::nanoseconds(due - now()));
        } else {
            const auto work = mDue.extract(mDue.begin()).mapped();
            lock.unlock();
            work();
            lock.lock();
        }
    }
}

void Call::events(modem_api_event_callback callback) {
    eventCallback = callback;
}

void Call::answers(const recording::Record& record, void* cookie,
                   modem_api_async_callback callback) {
    mAnswer = &record;
    mCookie = cookie;
    mCallback = callback;
}

void Call::happen(const Happening& happening) {
    Json line = happening.line;
    std::function<void()> work;
    if (happening.isAnswer) {
        if (mCallback == nullptr) {
            return;
        }
        work = [line, record = mAnswer, cookie = mCookie, callback = mCallback] {
            const std::string data = dataOf(record, line);
            callback(data.empty() ? nullptr : data.data(), line.value("length", size_t{0}), cookie,
                     line.value("result", uint32_t{1}));
        };
    } else {
        const bool isAsked = mToken.has_value() && line["data"].contains("token");
        if (!isAsked && !mIsFirst) {
            return;  // what the modem told by itself, it tells once
        }
        if (isAsked) {
            line["data"]["token"] = *mToken;
        }
        work = [line] {
            const auto event = line.value("event", -1);
            std::string data = dataOf(recording::recordOfEvent(event), line);
            if (const auto callback = eventCallback.load(); callback != nullptr) {
                callback(event, data.empty() ? nullptr : data.data(),
                         line.value("length", size_t{0}));
            }
        };
    }
    if (happening.isEarly) {
        work();
    } else {
        Recording& recording = Recording::get();
        recording.schedule(recording.isFast() ? now() : mStart + happening.after, std::move(work));
    }
}

void Call::begin() {
    mStart = now();
    mRecorded = Recording::get().next(mFunction, Json::parse(arguments.object()), mIsFirst);
    if (mRecorded == nullptr) {
        return;
    }
    results = Reader(mRecorded->out);
    for (const Happening& happening : mRecorded->happenings) {
        happen(happening);
    }
    if (!Recording::get().isFast()) {
        const uint64_t spent = now() - mStart;
        std::this_thread::sleep_for(std::chrono::nanoseconds(
                mRecorded->duration > spent ? mRecorded->duration - spent : 0));
    }
}

int Call::end() {
    return mRecorded == nullptr ? static_cast<int>(MODEM_API_RESULT_FAILURE) : *mRecorded->result;
}

}  // namespace replay
