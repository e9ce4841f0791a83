#pragma once

#include <ostream>

#include "LogStory.h"

namespace logs {

/** How a report for people looks. */
struct Style {
    bool terminal = false;  ///< aligned, otherwise a tab between columns
    bool colour = false;
    bool all = false;  ///< long tables whole, not their last rows
};

/** What happened, for people: a summary, then tables. */
void printReport(const Story& story, const Style& style, std::ostream& out);

/** The same for programs, one JSON object a line, told apart by its "kind". */
void printJson(const Story& story, std::ostream& out);

/** Requests of one method. */
struct MethodFigures {
    size_t count = 0;
    size_t failed = 0;
    size_t unanswered = 0;
    std::vector<float> millis;  ///< from the request to its answer, sorted

    /** Nearest rank; -1 without an answer. */
    double quantile(double part) const;
};

std::map<MethodIndex, MethodFigures> figuresOf(const Story& story);

/** What there is of all. */
struct Totals {
    size_t succeeded = 0;
    size_t failed = 0;
    size_t unanswered = 0;
    size_t byDesign = 0;  ///< of the unanswered
    size_t twice = 0;
    size_t undelivered = 0;  ///< answered, and nobody could be told
    std::map<Happening::Kind, size_t> happenings;
    size_t lost = 0;  ///< services that went
    size_t bindsFailed = 0;
};

Totals totalsOf(const Story& story);

/** What went wrong with a request, or what was last seen of it; "" when it went well. */
std::string whyOf(const Story& story, const Request& request);

}  // namespace logs
