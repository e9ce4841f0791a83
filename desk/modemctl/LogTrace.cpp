#include "LogTrace.h"

#include <algorithm>

#include "LogReport.h"
#include "Values.h"

namespace logs {

namespace {

using nlohmann::ordered_json;

class Trace {
public:
    Trace(const Story& story, std::ostream& out) : mStory(story), mOut(out) {}

    void write() {
        mOut << "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[";
        for (Index i = 0; i < mStory.processes.size(); ++i) {
            const Process& process = mStory.processes[i];
            put({{"ph", "M"},
                 {"name", "process_name"},
                 {"pid", i},
                 {"args",
                  {{"name", "pid " + std::to_string(process.pid) + ", instance " +
                                    std::to_string(process.instance)}}}});
        }
        for (const Thread& thread : mStory.threads) {
            const std::string name = thread.name.empty() ? "" : thread.name + ' ';
            put({{"ph", "M"},
                 {"name", "thread_name"},
                 {"pid", thread.process},
                 {"tid", thread.number},
                 {"args", {{"name", name + std::to_string(thread.number)}}}});
        }
        for (Index i = 0; i < mStory.requests.size(); ++i) {
            request(i, mStory.requests[i]);
        }
        for (const Happening& happening : mStory.happenings) {
            ordered_json instant = event("i", happening.text, happening.time, happening.thread);
            instant["s"] = "t";
            instant["args"]["result"] = happening.result;
            put(instant);
        }
        mOut << "\n]}\n";
    }

private:
    void put(const ordered_json& object) {
        mOut << (mAny ? ",\n" : "\n") << values::line(object);
        mAny = true;
    }

    ordered_json event(const char* phase, const std::string& name, Moment time,
                       Index thread) const {
        return {{"ph", phase},
                {"name", name},
                {"cat", "modem"},
                {"pid", mStory.threads[thread].process},
                {"tid", mStory.threads[thread].number},
                {"ts", time - mStory.first}};
    }

    void request(Index index, const Request& request) {
        const std::string name = methodName(request.method);
        const ordered_json about{{"serial", request.serial},
                                 {"errno", request.answered == NEVER ? ordered_json("not answered")
                                                                     : ordered_json(request.err)},
                                 {"why", whyOf(mStory, request)}};
        slice(name, request.entry, about);
        slice("handle " + name, request.handling, about);
        slice("answer " + name, request.answer, about);
        arrow(index, request);
        wait(index, "in the queue", request.entry, request.handling.begin);
        wait(index, "at the modem", request.handling, request.answer.begin);
    }

    void slice(const std::string& name, const Stage& stage, const ordered_json& about) {
        if (stage.begin == NEVER) {
            return;
        }
        ordered_json complete = event("X", name, stage.begin, stage.thread);
        complete["dur"] = std::max<Moment>(stage.end - stage.begin, 1);
        complete["args"] = about;
        put(complete);
    }

    void arrow(Index index, const Request& request) {
        const Stage* stages[] = {&request.entry, &request.handling, &request.answer};
        const auto seen = [](const Stage* stage) { return stage->begin != NEVER; };
        const auto* const end = std::stable_partition(std::begin(stages), std::end(stages), seen);
        for (const auto* stage = std::begin(stages); end - stages > 1 && stage != end; ++stage) {
            const char* phase = stage == stages ? "s" : stage + 1 == end ? "f" : "t";
            ordered_json flow = event(phase, "request", (*stage)->begin, (*stage)->thread);
            flow["id"] = index;
            flow["bp"] = "e";
            put(flow);
        }
    }

    /** A wait from one thread to another; left out unless both of its ends are known. */
    void wait(Index index, const char* name, const Stage& from, Moment to) {
        if (from.begin == NEVER || to == NEVER) {
            return;
        }
        for (const auto& [phase, time] : {std::pair("b", from.begin), std::pair("e", to)}) {
            ordered_json side = event(phase, name, time, from.thread);
            side["id"] = index;
            put(side);
        }
    }

    const Story& mStory;
    std::ostream& mOut;
    bool mAny = false;
};

}  // namespace

void writeTrace(const Story& story, std::ostream& out) {
    Trace(story, out).write();
}

}  // namespace logs
