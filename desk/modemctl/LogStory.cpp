#include "LogStory.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace logs {

namespace {

constexpr size_t WRONG_LINES = 8;
constexpr size_t WRONG_BYTES = 300;
constexpr int ORDER_MAX = 999;
constexpr Moment DAY = Moment(86400) * 1000000;

/** Stand for threads in a log without thread numbers; each handler thread has one of its own. */
enum Role : int32_t { CLIENT_ROLE = 1, EVENT_ROLE, CALLBACK_ROLE, HANDLER_ROLE };

}  // namespace

const char* Happening::name(Kind kind) {
    constexpr const char* NAMES[] = {"process", "client", "service", "bind",
                                     "event",   "at",     "error"};
    return NAMES[kind];
}

size_t Story::KeyHash::operator()(const Key& key) const {
    const auto& [process, method, serial] = key;
    return std::hash<uint64_t>()((uint64_t{process} << 40U) ^ (uint64_t(method) << 32U) ^
                                 static_cast<uint32_t>(serial));
}

double Story::between(Moment begin, Moment end) const {
    if (begin == NEVER || end == NEVER) {
        return -1;
    }
    constexpr Moment MILLISECOND = 1000;
    const Moment passed =
            mFine ? end - begin : (end / MILLISECOND - begin / MILLISECOND) * MILLISECOND;
    return static_cast<double>(std::max<Moment>(passed, 0)) / MILLISECOND;
}

void Story::take(std::string_view rawLine) {
    ++lines;
    Line line;
    if (!parseLine(rawLine, line)) {
        return;
    }
    if (line.tag != PLUGIN_TAG) {
        lost += lostLines(line.tag, line.text);
        return;
    }
    ++pluginLines;
    const Sign sign = readText(line.text);
    mNow = clock(line);
    first = first == NEVER ? mNow : first;
    last = std::max(last, mNow);
    mProcess = processOf(line, sign);
    mThread = threadOf(line.thread != 0 ? line.thread : roleOf(sign));
    follow(sign);
    fault(line, sign);
    if (Context& now = context(); now.stage != nullptr) {
        (requests[now.request].*now.stage).end = mNow;
    }
}

/**
 * The moment of a line. The log has no year: time that jumps back by half a year begins a new one.
 * Lines of the same millisecond stand a microsecond apart, so that they keep their order.
 */
Moment Story::clock(const Line& line) {
    mFine = mFine || line.fine;
    mYears += line.time + mYears < mRaw - 180 * DAY ? 366 * DAY : 0;
    const Moment time = line.time + mYears;
    mOrder = time == mRaw && !mFine ? std::min(mOrder + 1, ORDER_MAX) : 0;
    mRaw = time;
    return time + mOrder;
}

Index Story::processOf(const Line& line, const Sign& sign) {
    const auto found = mProcessByPid.find(line.pid);
    const bool known = found != mProcessByPid.end();
    if (known && sign.kind != Kind::LOADED) {
        Process& process = processes[found->second];
        process.instance = std::max(process.instance, sign.instance);
        return found->second;
    }
    if (known) {
        processes[found->second].ended = true;
    }
    const auto index = static_cast<Index>(processes.size());
    processes.push_back({line.pid, sign.instance});
    mStates.emplace_back();
    mProcessByPid[line.pid] = index;
    return index;
}

Index Story::threadOf(int32_t number) {
    const auto [entry, isNew] =
            mThreadByNumber.try_emplace({mProcess, number}, static_cast<Index>(threads.size()));
    if (isNew) {
        threads.push_back({mProcess, number, ""});
        mContexts.emplace_back();
    }
    return entry->second;
}

/** Guesses the thread from what the line says; if it says nothing, it is the last line's. */
int32_t Story::roleOf(const Sign& sign) {
    State& process = state();
    const auto served = process.roles.find(sign.method);
    int32_t role = process.role;
    if (sign.kind == Kind::ENTERED || sign.kind == Kind::INSTALLED) {
        role = CLIENT_ROLE;
    } else if (sign.kind == Kind::EVENT_RECEIVED) {
        role = EVENT_ROLE;
    } else if (sign.kind == Kind::CALLED_BACK) {
        role = CALLBACK_ROLE;
    } else if (sign.kind == Kind::HANDLING) {
        role = HANDLER_ROLE + sign.name.front();  // each client has a letter of its own
    } else if (sign.method != NO_METHOD && served != process.roles.end()) {
        role = served->second;
    }
    if (sign.kind == Kind::HANDLING || sign.kind == Kind::CALLED_BACK || sign.kind == Kind::TOKEN) {
        process.roles[sign.method] = role;
    }
    process.role = role;
    return role;
}

void Story::follow(const Sign& sign) {
    switch (sign.kind) {
        case Kind::UNKNOWN:
            ++notUnderstood;
            break;
        case Kind::LOADED:
            begin("main");
            happen(Happening::PROCESS, "loads the plug-in");
            break;
        case Kind::INSTALLED:
            begin("client");
            happen(Happening::CLIENT, "callbacks installed");
            break;
        case Kind::ENTERED:
            begin("client");
            enter(sign);
            break;
        case Kind::HANDLING:
            begin(printable(sign.name));
            handle(sign);
            break;
        case Kind::SENT:
            if (Context& now = context(); now.stage == &Request::handling) {
                requests[now.request].sent = mNow;
            }
            break;
        case Kind::EVENT_RECEIVED:
            begin("modem events");
            break;
        case Kind::CALLED_BACK:
            begin("modem answers");
            context().calledBack = mNow;
            break;
        case Kind::TOKEN:
            context().calledBack = mNow;
            break;
        case Kind::ANSWERED:
            answer(sign);
            break;
        case Kind::DELIVERED:
            if (Context& now = context(); now.request != NONE) {
                requests[now.request].delivered = requests[now.request].answered != NEVER;
            }
            break;
        case Kind::EVENT:
            context().happening = happen(Happening::EVENT, printable(sign.name));
            break;
        case Kind::CONNECTED:
        case Kind::DISCONNECTED:
            connection(sign);
            break;
        case Kind::BIND_FAILED:
            happen(Happening::BIND, printable(sign.name) + " not bound");
            break;
        case Kind::BIND_RETRIED:
            happen(Happening::BIND, printable(sign.name) + " bind tried again, " +
                                            std::to_string(sign.err) + " of at most 20");
            break;
        case Kind::BIND_GIVEN_UP:
            happen(Happening::BIND, printable(sign.name) + " bind given up");
            break;
        case Kind::AT_COMMAND:
            state().atCommand = happen(Happening::AT_COMMAND, printable(sign.name));
            context().happening = state().atCommand;
            break;
        case Kind::AT_TOKEN:
            if (const Index at = context().happening; at != NONE) {
                std::string& text = happenings[at].text;
                text += text.size() < WRONG_BYTES
                                ? (sign.serial == 0 ? '=' : ',') + printable(sign.name)
                                : "";
            }
            break;
        case Kind::AT_OK:
            endAtCommand("OK");
            break;
        case Kind::AT_ERROR:
            endAtCommand("ERROR");
            break;
        case Kind::DETAIL:
            break;
    }
}

/** Adds a warning or an error to what its thread does; alone it is a happening of its own. */
void Story::fault(const Line& line, const Sign& sign) {
    const bool bind = sign.kind == Kind::BIND_FAILED || sign.kind == Kind::BIND_GIVEN_UP;
    Context& now = context();
    if (line.level != 'W' && line.level != 'E' && line.level != 'F') {
        return;
    }
    const std::string text = printable(sign.text.substr(0, WRONG_BYTES));
    if (now.request != NONE || now.calledBack != NEVER) {
        if (now.wrong.size() < WRONG_LINES) {
            now.wrong.push_back(text);
        }
    } else if (now.happening != NONE) {
        std::string& result = happenings[now.happening].result;
        result = sign.kind == Kind::EVENT ? "unknown event" : result.empty() ? text : result;
    } else if (!bind) {
        happen(Happening::ERROR, text);
    }
}

/** The thread turns to something new. */
void Story::begin(const std::string& threadName) {
    leave(mThread);
    threads[mThread].name = threadName;
}

void Story::leave(Index thread) {
    Context& old = mContexts[thread];
    if (old.request != NONE) {
        std::vector<std::string>& wrong = requests[old.request].wrong;
        wrong.insert(wrong.end(), old.wrong.begin(), old.wrong.end());
        if (old.stage == &Request::handling) {
            silence(old.request);
        }
    } else {
        for (std::string& text : old.wrong) {
            happenings.push_back({old.calledBack, thread, Happening::ERROR, std::move(text), ""});
        }
    }
    old = Context();
}

void Story::connection(const Sign& sign) {
    std::string text = printable(sign.name);
    Moment& lost = state().lost.try_emplace(text, NEVER).first->second;
    if (sign.kind == Kind::DISCONNECTED) {
        lost = mNow;
        text += " lost";
    } else {
        text += lost == NEVER
                        ? " connected"
                        : " back after " + milliseconds(between(std::exchange(lost, NEVER), mNow));
    }
    happen(Happening::SERVICE, text);
}

void Story::endAtCommand(const char* result) {
    const Index at = std::exchange(state().atCommand, NONE);
    if (at != NONE) {
        std::string& text = happenings[at].result;
        text = result + (" after " + milliseconds(between(happenings[at].time, mNow))) +
               (text.empty() ? "" : ": " + text);
    }
}

Index Story::happen(Happening::Kind kind, std::string text) {
    happenings.push_back({mNow, mThread, kind, std::move(text), ""});
    return static_cast<Index>(happenings.size() - 1);
}

void Story::finish() {
    mFinished = true;
    for (const State& state : mStates) {
        if (state.atCommand != NONE && happenings[state.atCommand].result.empty()) {
            happenings[state.atCommand].result = "not answered";
        }
    }
    for (Index thread = 0; thread < threads.size(); ++thread) {
        leave(thread);
    }
    std::stable_sort(happenings.begin(), happenings.end(),
                     [](const Happening& a, const Happening& b) { return a.time < b.time; });
}

std::string milliseconds(double value) {
    if (value < 0) {
        return "-";
    }
    char text[32];
    snprintf(text, sizeof(text), value == std::floor(value) ? "%.0f ms" : "%.3f ms", value);
    return text;
}

}  // namespace logs
