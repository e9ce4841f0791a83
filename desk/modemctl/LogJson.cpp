#include "LogReport.h"
#include "Values.h"

namespace logs {

namespace {

using nlohmann::ordered_json;

/** Milliseconds, or null. */
ordered_json span(double millis) {
    return millis < 0 ? ordered_json() : ordered_json(millis);
}

ordered_json summaryOf(const Story& story) {
    const Totals totals = totalsOf(story);
    ordered_json summary{{"kind", "summary"},
                         {"lines", story.lines},
                         {"pluginLines", story.pluginLines},
                         {"notUnderstood", story.notUnderstood},
                         {"linesLost", story.lost},
                         {"requests", story.requests.size()},
                         {"succeeded", totals.succeeded},
                         {"failed", totals.failed},
                         {"unanswered", totals.unanswered},
                         {"silentByDesign", totals.byDesign},
                         {"answeredTwice", totals.twice},
                         {"undelivered", totals.undelivered},
                         {"strayAnswers", story.strays.size()},
                         {"servicesLost", totals.lost},
                         {"bindsFailed", totals.bindsFailed}};
    if (story.first != NEVER) {
        summary["begin"] = dateAndTime(story.first);
        summary["end"] = dateAndTime(story.last);
    }
    for (const Process& process : story.processes) {
        summary["processes"].push_back({{"pid", process.pid}, {"instance", process.instance}});
    }
    return summary;
}

ordered_json requestOf(const Story& story, const Request& request) {
    constexpr const char* SILENCES[] = {"no", "perhaps", "yes"};
    const bool answered = request.answered != NEVER;
    ordered_json object{
            {"kind", "request"},
            {"time", dateAndTime(request.entry.begin)},
            {"pid", story.processes[request.process].pid},
            {"serial", request.serial},
            {"method", methodName(request.method)},
            {"errno", answered ? ordered_json(request.err) : ordered_json()},
            {"result", answered ? ordered_json(request.result()) : ordered_json()},
            {"answers", request.answers},
            {"delivered", request.delivered},
            {"queueMs", span(story.between(request.entry.begin, request.handling.begin))},
            {"modemMs", span(story.between(request.handling.begin, request.modem))},
            {"totalMs", span(story.between(request.entry.begin, request.answered))},
            {"why", request.wrong}};
    if (!answered) {
        object["lastSign"] = story.lastSign(request);
        object["byDesign"] = SILENCES[static_cast<size_t>(request.silence)];
    }
    return object;
}

ordered_json methodOf(MethodIndex method, const MethodFigures& figures) {
    return {{"kind", "method"},
            {"method", methodName(method)},
            {"requests", figures.count},
            {"failed", figures.failed},
            {"unanswered", figures.unanswered},
            {"p50Ms", span(figures.quantile(0.5))},
            {"p99Ms", span(figures.quantile(0.99))},
            {"longestMs", span(figures.quantile(1))}};
}

}  // namespace

void printJson(const Story& story, std::ostream& out) {
    const auto put = [&out](const ordered_json& object) { out << values::line(object) << '\n'; };
    put(summaryOf(story));
    for (const auto& [method, figures] : figuresOf(story)) {
        put(methodOf(method, figures));
    }
    for (const Happening& happening : story.happenings) {
        put({{"kind", Happening::name(happening.kind)},
             {"time", dateAndTime(happening.time)},
             {"pid", story.processes[story.threads[happening.thread].process].pid},
             {"text", happening.text},
             {"result", happening.result}});
    }
    for (const Stray& stray : story.strays) {
        put({{"kind", "stray"},
             {"time", dateAndTime(stray.time)},
             {"pid", story.processes[story.threads[stray.thread].process].pid},
             {"serial", stray.serial},
             {"method", methodName(stray.method)},
             {"errno", stray.err}});
    }
    for (const Request& request : story.requests) {
        put(requestOf(story, request));
    }
}

}  // namespace logs
