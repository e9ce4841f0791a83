#include "LogReport.h"

#include <algorithm>
#include <iomanip>

namespace logs {

namespace {

constexpr size_t ROWS = 1000;

const char* const RED = "\033[31m";
const char* const YELLOW = "\033[33m";
const char* const BOLD = "\033[1m";

/** Rows of cells under a heading; only the last column may be of any width. */
class Table {
public:
    Table(std::string title, std::vector<std::string> heads)
        : mTitle(std::move(title)), mHeads(std::move(heads)) {}

    void add(std::vector<std::string> cells, const char* colour = "") {
        mRows.push_back({std::move(cells), colour});
    }

    /** Nothing for a table without rows. */
    void print(const Style& style, std::ostream& out) const {
        if (mRows.empty()) {
            return;
        }
        const size_t skipped = style.all ? 0 : mRows.size() - std::min(mRows.size(), ROWS);
        out << '\n' << paint(style, BOLD, mTitle) << '\n';
        if (skipped > 0) {
            out << "(the last " << ROWS << " of " << mRows.size() << "; --all shows all)\n";
        }
        const std::vector<size_t> widths = widthsFrom(skipped);
        out << paint(style, BOLD, line(style, mHeads, widths)) << '\n';
        for (size_t i = skipped; i < mRows.size(); ++i) {
            out << paint(style, mRows[i].colour, line(style, mRows[i].cells, widths)) << '\n';
        }
    }

private:
    struct Row {
        std::vector<std::string> cells;
        const char* colour;
    };

    static std::string paint(const Style& style, const char* colour, const std::string& text) {
        return style.colour && *colour != '\0' ? colour + text + "\033[0m" : text;
    }

    std::vector<size_t> widthsFrom(size_t firstRow) const {
        std::vector<size_t> widths;
        for (const std::string& head : mHeads) {
            widths.push_back(head.size());
        }
        for (size_t i = firstRow; i < mRows.size(); ++i) {
            for (size_t j = 0; j < widths.size(); ++j) {
                widths[j] = std::max(widths[j], mRows[i].cells[j].size());
            }
        }
        return widths;
    }

    static std::string line(const Style& style, const std::vector<std::string>& cells,
                            const std::vector<size_t>& widths) {
        std::string text;
        for (size_t i = 0; i < cells.size(); ++i) {
            text += cells[i];
            if (i + 1 < cells.size()) {
                text += style.terminal ? std::string(widths[i] - cells[i].size() + 2, ' ') : "\t";
            }
        }
        return text.substr(0, text.find_last_not_of(' ') + 1);
    }

    std::string mTitle;
    std::vector<std::string> mHeads;
    std::vector<Row> mRows;
};

std::string errName(int32_t err) {
    constexpr const char* NAMES[] = {
            "", " failed", " unsupported", " invalid param", " not connected", " no memory"};
    const bool named = err >= 0 && err < static_cast<int32_t>(std::size(NAMES));
    return std::to_string(err) + (named ? NAMES[err] : "");
}

std::string timeOf(Moment moment) {
    return dateAndTime(moment).substr(6);
}

/** "12 events" */
std::string many(size_t count, const std::string& what) {
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

class Report {
public:
    Report(const Story& story, const Style& style, std::ostream& out)
        : mStory(story), mStyle(style), mOut(out) {}

    void print() {
        summary();
        if (mStory.pluginLines > 0) {
            unanswered();
            answeredTwice();
            methods();
            happenings();
            requests();
        }
    }

private:
    void summary() {
        mOut << many(mStory.lines, "line") << ", " << mStory.pluginLines << " of the plug-in, "
             << mStory.notUnderstood << " of these not understood"
             << (mStory.lost > 0 ? ", " + many(mStory.lost, "line") + " lost by the logger" : "")
             << '\n';
        if (mStory.pluginLines == 0) {
            return;
        }
        mOut << dateAndTime(mStory.first) << " to " << dateAndTime(mStory.last) << '\n';
        for (const Process& process : mStory.processes) {
            mOut << "process " << process.pid
                 << (process.instance < 0 ? "" : ", instance " + std::to_string(process.instance))
                 << (process.ended ? ", started anew later" : "") << '\n';
        }
        const Totals totals = totalsOf(mStory);
        const auto count = [&totals](Happening::Kind kind) {
            const auto found = totals.happenings.find(kind);
            return found != totals.happenings.end() ? found->second : 0;
        };
        mOut << many(mStory.requests.size(), "request") << ": " << totals.succeeded
             << " succeeded, " << totals.failed << " failed, " << totals.unanswered
             << " never answered (" << totals.byDesign << " by design), " << totals.twice
             << " answered twice, " << totals.undelivered << " not delivered\n"
             << many(totals.lost, "service") << " lost, " << many(totals.bindsFailed, "bind")
             << " failed, " << many(count(Happening::EVENT), "event") << ", "
             << many(count(Happening::AT_COMMAND), "AT command") << ", "
             << many(count(Happening::CLIENT), "client") << " with callbacks\n";
    }

    void unanswered() {
        Table table("Never answered", {"time", "serial", "method", "last sign"});
        for (const Request& request : mStory.requests) {
            if (request.answered == NEVER) {
                table.add({timeOf(request.entry.begin), std::to_string(request.serial),
                           methodName(request.method), mStory.lastSign(request)},
                          request.silence == Silence::NO ? RED : YELLOW);
            }
        }
        table.print(mStyle, mOut);
    }

    void answeredTwice() {
        Table twice("Answered more than once", {"time", "serial", "method", "answers"});
        for (const Request& request : mStory.requests) {
            if (request.answers > 1) {
                twice.add({timeOf(request.entry.begin), std::to_string(request.serial),
                           methodName(request.method), std::to_string(request.answers)},
                          RED);
            }
        }
        twice.print(mStyle, mOut);
        Table strays("Answers without a request in this log",
                     {"time", "serial", "method", "errno"});
        for (const Stray& stray : mStory.strays) {
            strays.add({timeOf(stray.time), std::to_string(stray.serial), methodName(stray.method),
                        errName(stray.err)},
                       YELLOW);
        }
        strays.print(mStyle, mOut);
    }

    void methods() {
        Table table("Methods",
                    {"method", "requests", "failed", "unanswered", "p50", "p99", "longest"});
        for (const auto& [method, figures] : figuresOf(mStory)) {
            table.add({methodName(method), std::to_string(figures.count),
                       std::to_string(figures.failed), std::to_string(figures.unanswered),
                       milliseconds(figures.quantile(0.5)), milliseconds(figures.quantile(0.99)),
                       milliseconds(figures.quantile(1))});
        }
        table.print(mStyle, mOut);
    }

    void happenings() {
        Table table("Services, binds, events, AT commands", {"time", "what", "how it went"});
        for (const Happening& happening : mStory.happenings) {
            const std::string time = timeOf(happening.time);
            if (happening.kind == Happening::ERROR) {
                table.add({time, "error", happening.text}, RED);
            } else if (happening.kind != Happening::CLIENT) {
                table.add({time, happening.text, happening.result}, happening.bad() ? RED : "");
            }
        }
        table.print(mStyle, mOut);
    }

    void requests() {
        const bool several = mStory.processes.size() > 1;
        std::vector<std::string> heads{"time",  "serial", "method", "errno", "result",
                                       "queue", "modem",  "total",  "why"};
        if (several) {
            heads.insert(heads.begin() + 1, "process");
        }
        Table table("Requests", heads);
        for (const Request& request : mStory.requests) {
            std::vector<std::string> cells = cellsOf(request);
            if (several) {
                cells.insert(cells.begin() + 1,
                             std::to_string(mStory.processes[request.process].pid));
            }
            table.add(cells, request.answered == NEVER ? YELLOW : request.err != 0 ? RED : "");
        }
        table.print(mStyle, mOut);
    }

    std::vector<std::string> cellsOf(const Request& request) const {
        const bool answered = request.answered != NEVER;
        const auto span = [this](Moment begin, Moment end) {
            return milliseconds(mStory.between(begin, end));
        };
        return {timeOf(request.entry.begin),
                std::to_string(request.serial),
                methodName(request.method),
                answered ? errName(request.err) : "-",
                answered ? std::to_string(request.result()) : "-",
                span(request.entry.begin, request.handling.begin),
                span(request.handling.begin, request.modem),
                span(request.entry.begin, request.answered),
                whyOf(mStory, request)};
    }

    const Story& mStory;
    const Style& mStyle;
    std::ostream& mOut;
};

}  // namespace

void printReport(const Story& story, const Style& style, std::ostream& out) {
    Report(story, style, out).print();
}

}  // namespace logs
