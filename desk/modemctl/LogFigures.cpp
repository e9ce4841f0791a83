#include <algorithm>
#include <cmath>

#include "LogReport.h"

namespace logs {

double MethodFigures::quantile(double part) const {
    if (millis.empty()) {
        return -1;
    }
    const double rank = std::ceil(part * static_cast<double>(millis.size()));
    return millis[static_cast<size_t>(std::max(rank, 1.0)) - 1];
}

std::map<MethodIndex, MethodFigures> figuresOf(const Story& story) {
    std::map<MethodIndex, MethodFigures> all;
    for (const Request& request : story.requests) {
        MethodFigures& figures = all[request.method];
        ++figures.count;
        if (request.answered == NEVER) {
            ++figures.unanswered;
            continue;
        }
        figures.failed += request.err != 0 ? 1 : 0;
        figures.millis.push_back(
                static_cast<float>(story.between(request.entry.begin, request.answered)));
    }
    for (auto& [method, figures] : all) {
        std::sort(figures.millis.begin(), figures.millis.end());
    }
    return all;
}

Totals totalsOf(const Story& story) {
    Totals totals;
    for (const Request& request : story.requests) {
        const bool answered = request.answered != NEVER;
        totals.succeeded += answered && request.err == 0 ? 1 : 0;
        totals.failed += answered && request.err != 0 ? 1 : 0;
        totals.unanswered += answered ? 0 : 1;
        totals.byDesign += request.silence == Silence::BY_DESIGN ? 1 : 0;
        totals.twice += request.answers > 1 ? 1 : 0;
        totals.undelivered += answered && !request.delivered ? 1 : 0;
    }
    for (const Happening& happening : story.happenings) {
        ++totals.happenings[happening.kind];
        const auto ends = [&text = happening.text](std::string_view end) {
            return text.size() > end.size() && text.substr(text.size() - end.size()) == end;
        };
        totals.lost += happening.kind == Happening::SERVICE && ends(" lost") ? 1 : 0;
        totals.bindsFailed += happening.kind == Happening::BIND && ends(" not bound") ? 1 : 0;
    }
    return totals;
}

std::string whyOf(const Story& story, const Request& request) {
    if (request.answered == NEVER) {
        return story.lastSign(request);
    }
    return request.wrong.empty() ? "" : request.wrong.front();
}

}  // namespace logs
