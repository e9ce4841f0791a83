#include <algorithm>
#include <utility>

#include "LogReport.h"
#include "LogTrace.h"

namespace logs {

namespace {

// Pixels.
constexpr int ROW = 24;
constexpr int BOX = 18;
constexpr int TOP = 84;
constexpr int TIMES = 100;
constexpr int GUTTER = 28;
constexpr double LETTER = 6.7;  // of a monospaced font of 11 pixels

constexpr size_t BOXES = 250;
constexpr size_t LABEL_LETTERS = 44;
constexpr Moment PAUSE = 100000;

struct Column {
    size_t letters = 0;
    int left = 0;
    int width = 0;

    int right() const { return left + width; }
};

/** One stage of a request, or something that belongs to none. */
struct Box {
    Moment time;
    Index request;
    Column* column;
    const char* look;
    std::string label;
    int row = 0;
};

std::string escaped(const std::string& text) {
    std::string safe;
    for (const char letter : text) {
        switch (letter) {
            case '<':
                safe += "&lt;";
                break;
            case '>':
                safe += "&gt;";
                break;
            case '&':
                safe += "&amp;";
                break;
            default:
                safe += letter >= ' ' && letter < 127 ? letter : '?';
        }
    }
    return safe;
}

std::string shortened(const std::string& text) {
    return text.size() <= LABEL_LETTERS ? text : text.substr(0, LABEL_LETTERS - 2) + "..";
}

class Picture {
public:
    Picture(const Story& story, std::ostream& out) : mStory(story), mOut(out) {}

    void draw() {
        collect();
        arrange();
        const int width = mColumns.empty() ? 400 : mColumns.rbegin()->second.right();
        const int height = TOP + (mRows + 1) * ROW;
        mOut << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width + GUTTER
             << "\" height=\"" << height << "\" font-family=\"monospace\" font-size=\"11\">\n"
             << STYLE << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
        heading();
        for (const auto& [key, column] : mColumns) {
            const int middle = column.left + column.width / 2;
            mOut << "<path class=\"life\" d=\"M" << middle << ' ' << TOP - 12 << 'V' << height - 8
                 << "\"/>\n";
            text(column.left, TOP - 18, key.second, "head");
        }
        arrows();
        for (const Box& box : mBoxes) {
            draw(box);
        }
        mOut << "</svg>\n";
    }

private:
    static constexpr const char* STYLE =
            "<style>rect{stroke-width:1}.good{fill:#e6f4ea;stroke:#2f7d46}"
            ".bad{fill:#fde8e6;stroke:#b3261e}.silent{fill:#fff4d6;stroke:#8a6d00}"
            ".event{fill:#e8eef9;stroke:#3f5f9a}.life{stroke:#dddddd}"
            ".arrow{stroke:#777777;fill:none;marker-end:url(#tip)}"
            ".time{fill:#777777}.head{font-weight:bold}.title{font-size:15px}</style>\n"
            "<marker id=\"tip\" markerWidth=\"7\" markerHeight=\"6\" refX=\"6\" refY=\"3\" "
            "orient=\"auto\"><path d=\"M0 0L7 3L0 6z\" fill=\"#777777\"/></marker>\n";

    /** In the order of a request's way: client, handlers, what the modem runs, the rest. */
    static int rankOf(const std::string& threadName) {
        constexpr const char* ORDER[] = {"client", "QmiClient", "modem answers", "modem events"};
        const auto has = [&threadName](const char* part) {
            return threadName.find(part) != std::string::npos;
        };
        return static_cast<int>(std::find_if(std::begin(ORDER), std::end(ORDER), has) - ORDER);
    }

    Column* columnOf(Index thread) {
        const Thread& of = mStory.threads[thread];
        const bool several = mStory.processes.size() > 1;
        const std::string name =
                of.name + (several ? " " + std::to_string(mStory.processes[of.process].pid) : "");
        Column& column = mColumns[{rankOf(of.name), name}];
        column.letters = std::max(column.letters, name.size());
        return &column;
    }

    void add(const Stage& stage, Index request, const char* look, const std::string& label) {
        if (stage.begin != NEVER) {
            mBoxes.push_back({stage.begin, request, columnOf(stage.thread), look, label});
        }
    }

    /** The last ones of all boxes. */
    void collect() {
        const size_t firstRequest =
                mStory.requests.size() - std::min(mStory.requests.size(), BOXES);
        for (size_t i = firstRequest; i < mStory.requests.size(); ++i) {
            collect(static_cast<Index>(i), mStory.requests[i]);
        }
        const size_t firstHappening =
                mStory.happenings.size() - std::min(mStory.happenings.size(), BOXES);
        for (size_t i = firstHappening; i < mStory.happenings.size(); ++i) {
            const Happening& happening = mStory.happenings[i];
            if (happening.kind != Happening::CLIENT) {
                add({happening.time, happening.time, happening.thread}, NONE,
                    happening.bad() ? "bad" : "event", happening.text);
            }
        }
        std::stable_sort(mBoxes.begin(), mBoxes.end(),
                         [](const Box& a, const Box& b) { return a.time < b.time; });
        mBoxes.erase(mBoxes.begin(), mBoxes.end() - std::min(mBoxes.size(), BOXES));
    }

    void collect(Index index, const Request& request) {
        const char* look = request.answered == NEVER ? "silent" : request.err != 0 ? "bad" : "good";
        const auto after = [this](Moment begin, Moment end) {
            return milliseconds(mStory.between(begin, end));
        };
        const std::string err = ", errno " + std::to_string(request.err);
        add(request.entry, index, look,
            methodName(request.method) + (' ' + std::to_string(request.serial)));
        const bool later = request.answered == NEVER || request.answer.begin != NEVER;
        add(request.handling, index, look,
            !later                  ? after(request.handling.begin, request.modem) + err
            : request.sent != NEVER ? "sent to the modem"
                                    : "not answered");
        add(request.answer, index, look, "after " + after(request.sent, request.answered) + err);
    }

    /** Gives boxes their rows. Only boxes of one request share a row: no arrow crosses a box. */
    void arrange() {
        std::stable_sort(mBoxes.begin(), mBoxes.end(),
                         [](const Box& a, const Box& b) { return a.time < b.time; });
        Moment before = mBoxes.empty() ? 0 : mBoxes.front().time;
        const Box* previous = nullptr;
        for (Box& box : mBoxes) {
            const bool sameRow = previous != nullptr && box.request != NONE &&
                                 previous->request == box.request && previous->column != box.column;
            mRows += previous == nullptr || sameRow ? 0 : 1;
            if (box.time - before > PAUSE) {
                mPauses.emplace_back(++mRows - 1, box.time - before);
            }
            box.row = mRows;
            before = box.time;
            previous = &box;
            box.column->letters = std::max(box.column->letters, shortened(box.label).size());
        }
        int left = TIMES;
        for (auto& [key, column] : mColumns) {
            column.left = left;
            column.width = static_cast<int>(static_cast<double>(column.letters) * LETTER) + 14;
            left += column.width + GUTTER;
        }
    }

    void heading() {
        text(12, 24,
             "Requests and their ways, " + dateAndTime(mStory.first) + " to " +
                     dateAndTime(mStory.last),
             "title");
        const Totals totals = totalsOf(mStory);
        text(12, 42,
             std::to_string(mStory.requests.size()) + " requests, " +
                     std::to_string(totals.failed) + " failed (red), " +
                     std::to_string(totals.unanswered) + " never answered (yellow)" +
                     (mBoxes.size() == BOXES ? "; the end of the session" : ""),
             "time");
        for (const auto& [row, length] : mPauses) {
            text(TIMES, TOP + row * ROW + 13, "... " + milliseconds(mStory.between(0, length)),
                 "time");
        }
    }

    void arrows() {
        std::map<Index, const Box*> last;
        for (const Box& box : mBoxes) {
            if (box.request == NONE) {
                continue;
            }
            const Box* from = std::exchange(last[box.request], &box);
            if (from != nullptr) {
                mOut << "<path class=\"arrow\" d=\"M" << from->column->right() << ' '
                     << middle(from->row) << 'L' << box.column->left << ' ' << middle(box.row)
                     << "\"/>\n";
            }
        }
    }

    static int middle(int row) { return TOP + row * ROW + BOX / 2; }

    void draw(const Box& box) {
        const Column& column = *box.column;
        const int top = TOP + box.row * ROW;
        if (box.row != mTimedRow) {
            text(12, top + 13, dateAndTime(box.time).substr(6), "time");
            mTimedRow = box.row;
        }
        mOut << "<g><title>" << escaped(tooltip(box)) << "</title><rect class=\"" << box.look
             << "\" x=\"" << column.left << "\" y=\"" << top << "\" width=\"" << column.width
             << "\" height=\"" << BOX << "\" rx=\"3\"/>";
        text(column.left + 7, top + 13, shortened(box.label), "label");
        mOut << "</g>\n";
    }

    std::string tooltip(const Box& box) const {
        const std::string why =
                box.request != NONE ? whyOf(mStory, mStory.requests[box.request]) : "";
        return dateAndTime(box.time) + ' ' + box.label + (why.empty() ? "" : ": " + why);
    }

    void text(int x, int y, const std::string& what, const char* look) {
        mOut << "<text class=\"" << look << "\" x=\"" << x << "\" y=\"" << y << "\">"
             << escaped(what) << "</text>\n";
    }

    const Story& mStory;
    std::ostream& mOut;
    std::map<std::pair<int, std::string>, Column> mColumns;  ///< by rank and name
    std::vector<Box> mBoxes;
    std::vector<std::pair<int, Moment>> mPauses;  ///< rows, and microseconds in which nothing came
    int mRows = 0;
    int mTimedRow = -1;
};

}  // namespace

void drawPicture(const Story& story, std::ostream& out) {
    Picture(story, out).draw();
}

}  // namespace logs
