// How a story matches requests with what handles and answers them.

#include <algorithm>
#include <utility>

#include "LogStory.h"

namespace logs {

namespace {

/**
 * So many requests of one method and serial may wait for an answer at a time, which bounds memory;
 * with one more, the oldest of them counts as unanswered.
 */
constexpr size_t OPEN_NAMESAKES = 1000;

bool contains(const std::vector<std::string>& texts, const char* part) {
    return std::any_of(texts.begin(), texts.end(), [part](const std::string& text) {
        return text.find(part) != std::string::npos;
    });
}

/** The one method that is never answered when the modem refuses it. */
MethodIndex silentMethod() {
    static const MethodIndex method = methodIndex("getActiveMbnInfo");
    return method;
}

}  // namespace

/** Decides by how a request was handled whether it is one that never gets an answer. */
void Story::silence(Index index) {
    Request& request = requests[index];
    if (request.answered != NEVER || request.sent != NEVER) {
        return;
    }
    const bool refused = request.method == silentMethod() && (!mFinished || !request.wrong.empty());
    if (refused || contains(request.wrong, ": invalid parameter")) {
        request.silence = Silence::BY_DESIGN;
        std::vector<Index>& open = mByKey[{request.process, request.method, request.serial}].open;
        open.erase(std::remove(open.begin(), open.end(), index), open.end());
    } else if (request.method == silentMethod()) {
        request.silence = Silence::PERHAPS;
    }
}

void Story::enter(const Sign& sign) {
    const auto index = static_cast<Index>(requests.size());
    Request& request = requests.emplace_back();
    request.process = mProcess;
    request.method = sign.method;
    request.serial = sign.serial;
    request.entry = {mNow, mNow, mThread};
    Namesakes& namesakes = mByKey[{mProcess, sign.method, sign.serial}];
    if (namesakes.open.size() == OPEN_NAMESAKES) {
        namesakes.open.erase(namesakes.open.begin());
    }
    namesakes.open.push_back(index);
    namesakes.last = index;
    state().queued[sign.method].push_back(index);
    context().request = index;
    context().stage = &Request::entry;
}

/** The line has no serial, but a handler takes messages of one id in the order of the requests. */
void Story::handle(const Sign& sign) {
    std::deque<Index>& queued = state().queued[sign.method];
    while (sign.method != NO_METHOD && !queued.empty()) {
        const Index index = queued.front();
        queued.pop_front();
        Request& request = requests[index];
        if (request.handling.begin == NEVER && request.answered == NEVER) {
            request.handling = {mNow, mNow, mThread};
            context().request = index;
            context().stage = &Request::handling;
            return;
        }
    }
}

void Story::answer(const Sign& sign) {
    const Index index = findAsked(sign);
    if (index == NONE) {
        strays.push_back({mNow, mThread, sign.method, sign.serial, sign.err});
    } else {
        settle(index, sign);
    }
}

/** The oldest request that waits for this answer, otherwise the last one that had it. */
Index Story::findAsked(const Sign& sign) {
    const auto found = mByKey.find({mProcess, sign.method, sign.serial});
    if (found == mByKey.end()) {
        return NONE;
    }
    std::vector<Index>& open = found->second.open;
    if (open.empty()) {
        return found->second.last;
    }
    const Index index = open.front();
    open.erase(open.begin());
    return index;
}

void Story::settle(Index index, const Sign& sign) {
    Context& now = context();
    if (now.stage == &Request::handling && now.request != index) {
        correctHandling(index);
    }
    Request& request = requests[index];
    if (request.answers++ > 0) {
        return;
    }
    request.answered = mNow;
    request.err = sign.err;
    request.silence = Silence::NO;
    if (now.calledBack != NEVER) {
        request.modem = std::exchange(now.calledBack, NEVER);
        request.answer = {request.modem, mNow, mThread};
        now.stage = &Request::answer;
    } else if (now.request != index) {
        now.stage = nullptr;
    } else if (now.stage == &Request::handling) {
        request.modem = mNow;
    }
    now.request = index;
}

/**
 * `handle` took the wrong one of two requests of a method: they came on two threads, which logged
 * them in the other order. The answer's serial tells which one it was, so the two are exchanged.
 */
void Story::correctHandling(Index answered) {
    Context& now = context();
    Request& right = requests[answered];
    Request& guessed = requests[now.request];
    if (right.method != guessed.method || right.answered != NEVER) {
        leave(mThread);
        return;
    }
    std::swap(right.handling, guessed.handling);
    std::swap(right.sent, guessed.sent);
    if (guessed.handling.begin == NEVER) {
        state().queued[guessed.method].push_front(now.request);
    }
    now.request = answered;
}

std::string Story::lastSign(const Request& request) const {
    const std::string why = request.wrong.empty() ? "" : request.wrong.back();
    std::string sign;
    if (request.silence == Silence::BY_DESIGN) {
        sign = (why.empty() ? "refused by the modem" : why) + ", silence by design";
    } else if (request.silence == Silence::PERHAPS) {
        sign = "handled, nothing since: at the modem, or refused, which is silence by design";
    } else if (!why.empty()) {
        sign = why;
    } else if (request.sent != NEVER) {
        sign = "sent to the modem, nothing since";
    } else {
        sign = request.handling.begin != NEVER ? "handled, nothing since"
                                               : "waits in the queue of its handler";
    }
    return sign + (processes[request.process].ended ? "; its process was started anew" : "");
}

}  // namespace logs
