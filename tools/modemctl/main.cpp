#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <random>

#include "Api.h"
#include "Documents.h"
#include "Failure.h"
#include "LogCommand.h"
#include "Printer.h"
#include "Session.h"
#include "Simulator.h"
#include "Values.h"

namespace {

using Clock = Session::Clock;
using Words = std::vector<std::string>;
using std::chrono::milliseconds;

/** A wait of this length is worth a word to whoever sits at a terminal. */
constexpr milliseconds PATIENCE(2000);

/** After this the other client has had its answer, and a watcher takes the callbacks back. */
constexpr milliseconds DISPLACED_WAIT(500);

int32_t randomSerial() {
    std::random_device random;
    return std::uniform_int_distribution<int32_t>(1)(random);
}

struct Options {
    bool json = false;
    double timeout = 10;
    int instance = 0;
    int32_t serial = randomSerial();
    bool why = false;
    bool confirmLog = false;
    uint64_t count = std::numeric_limits<uint64_t>::max();

    milliseconds patience() const { return milliseconds(static_cast<int64_t>(timeout * 1000)); }
};

void note(const std::string& text) {
    std::cerr << "modemctl: " << text << std::endl;
}

/** Makes one request and waits for its own answer, whatever else comes meanwhile. */
class Call {
public:
    Call(const Options& options, const Words& words)
        : mOptions(options),
          mRequest(requestOf(words)),
          mAnswer(mRequest.name + std::string("Response")) {
        values::encode(mArguments, mRequest, options.serial, {words.begin() + 1, words.end()});
    }

    ExitCode run() {
        Session session(mOptions.instance);
        session.install();
        const Clock::time_point start = Clock::now();
        const Clock::time_point deadline = start + mOptions.patience();
        Clock::time_point noteAt = isatty(STDERR_FILENO) != 0 ? start + PATIENCE : deadline;
        while (true) {
            const std::optional<Arrival> arrival = session.next(std::min(noteAt, deadline));
            if (arrival && isAnswer(*arrival)) {
                return print(*arrival->method, arrival->arguments);
            }
            if (arrival) {
                proceed(session, *arrival);
            } else if (noteAt < deadline) {
                note(mRequest.name + std::string(": waiting for the answer"));
                noteAt = deadline;
            } else {
                throw Failure(NO_ANSWER, mRequest.name + std::string(": no answer in ") +
                                                 CLI::detail::to_string(mOptions.timeout) + " s" +
                                                 indented(why(isatty(STDERR_FILENO) != 0)));
            }
        }
    }

private:
    static const hal::Method& requestOf(const Words& words) {
        if (words.empty()) {
            throw Failure(WRONG_USAGE, "call: which method? see modemctl list");
        }
        return api::request(words[0]);
    }

    bool isAnswer(const Arrival& arrival) const {
        return arrival.kind == Arrival::ANSWER && arrival.method->name == mAnswer &&
               arrival.arguments["info"]["serial"] == mOptions.serial;
    }

    void proceed(Session& session, const Arrival& arrival) {
        if (arrival.kind == Arrival::INSTALLED && !mSent) {
            session.send(mRequest, mArguments);
            mSent = true;
        } else if (arrival.kind == Arrival::DISPLACED) {
            session.install();
        }
    }

    ExitCode print(const hal::Method& method, nlohmann::ordered_json arguments) const {
        const bool failed = arguments["info"]["error"] != 0;
        const bool terminal = isatty(STDOUT_FILENO) != 0 && !mOptions.json;
        const Words lines = why(failed && terminal);
        if (mOptions.why) {
            arguments["why"] = lines;
        }
        printCall(mOptions.json, method, arguments);
        if (!mOptions.json && !lines.empty()) {
            std::cout << indented(lines).substr(1) << std::endl;
        }
        return failed ? ANSWERED_ERROR : ANSWERED;
    }

    /** What the host's log has about this request, when somebody wants to know. */
    Words why(bool unasked) const {
        return mOptions.why || unasked
                       ? logs::whyOf(mOptions.instance, mRequest.name, mOptions.serial)
                       : Words();
    }

    static std::string indented(const Words& lines) {
        std::string text;
        for (const std::string& line : lines) {
            text += "\n    " + line;
        }
        return text;
    }

    const Options& mOptions;
    const hal::Method& mRequest;
    const std::string mAnswer;
    hal::Parcel mArguments;
    bool mSent = false;
};

bool is(const Arrival& arrival, const char* method) {
    return arrival.method->name == std::string_view(method);
}

/** Prints what comes until it is stopped. */
class Watch {
public:
    explicit Watch(const Options& options) : mOptions(options) {}

    ExitCode run() {
        // What was printed was flushed, line by line.
        for (const int stop : {SIGINT, SIGTERM}) {
            signal(stop, [](int) { _exit(ANSWERED); });
        }
        Session session(mOptions.instance);
        session.install();
        while (mEvents < mOptions.count || mUnconfirmed > 0) {
            const std::optional<Arrival> arrival = session.next(mTakeBack);
            if (!arrival) {
                mTakeBack = Clock::time_point::max();
                session.install();
            } else {
                take(session, *arrival);
            }
        }
        return ANSWERED;
    }

private:
    void take(Session& session, const Arrival& arrival) {
        switch (arrival.kind) {
            case Arrival::INSTALLED:
                if (!std::exchange(mAnnounced, true)) {
                    note("watching instance " + std::to_string(mOptions.instance) +
                         ", Ctrl-C ends it");
                }
                break;
            case Arrival::ANSWER:
                printCall(mOptions.json, *arrival.method, arrival.arguments);
                mUnconfirmed -=
                        mUnconfirmed > 0 && is(arrival, "sendLogControlRespResponse") ? 1 : 0;
                break;
            case Arrival::EVENT:
                printCall(mOptions.json, *arrival.method, arrival.arguments);
                ++mEvents;
                if (mOptions.confirmLog && is(arrival, "atLogControlInfoInd")) {
                    confirm(session);
                }
                break;
            default:
                mTakeBack = Clock::now() + DISPLACED_WAIT;
                mUnconfirmed = 0;
        }
    }

    void confirm(Session& session) {
        const hal::Method& request = api::request("sendLogControlResp");
        hal::Parcel arguments;
        values::encode(arguments, request, mOptions.serial, {});
        session.send(request, arguments);
        printCall(mOptions.json, request, {{"serial", mOptions.serial}});
        ++mUnconfirmed;
    }

    const Options& mOptions;
    Clock::time_point mTakeBack = Clock::time_point::max();
    bool mAnnounced = false;
    uint64_t mEvents = 0;
    uint64_t mUnconfirmed = 0;
};

ExitCode print(const std::string& text) {
    std::cout << text << std::flush;
    return ANSWERED;
}

/** The command line: options, commands, and what each of these does. */
class CommandLine {
public:
    CommandLine() {
        mApp.set_version_flag("--version", "modemctl " OX_VERSION);
        mApp.require_subcommand(1);
        mApp.allow_extras();
        mApp.add_flag("--json", mOptions.json, "One JSON object a line");
        mApp.add_option("--timeout", mOptions.timeout, "Seconds to wait for an answer (10)")
                ->check(CLI::Range(0.001, 86400.0));
        mApp.add_option("--instance", mOptions.instance, "Instance of the service (0)")
                ->check(CLI::Range(0, 1));
        addDocuments();
        CLI::App& call = add("call", "METHOD [ARG...]: makes a request and prints its answer", ANY,
                             [this](const Words& words) { return Call(mOptions, words).run(); });
        call.add_option("--serial", mOptions.serial, "Serial of the request (random)");
        call.add_flag("--why", mOptions.why, "What the host's log has about what went wrong");
        CLI::App& watch = add("watch", "Prints events as they come, until Ctrl-C", 0,
                              [this](const Words&) { return Watch(mOptions).run(); });
        watch.add_flag("--confirm-log", mOptions.confirmLog,
                       "Confirm each AT+LOG command, as the log's owner does");
        watch.add_option("--count", mOptions.count, "End after that many events")
                ->check(CLI::Range(uint64_t(1), mOptions.count));
        CLI::App& log =
                add("log", "[FILE]: tells what happened from the plug-in's log, or stdin's", 1,
                    [this](const Words& words) {
                        return logs::run(mLog, mOptions.json, words.empty() ? "" : words[0]);
                    });
        logs::addOptions(log, mLog);
        add("sim", "[WORD...]: gives the simulated modem a command, or those of stdin", ANY,
            [this](const Words& words) {
                std::istringstream line(CLI::detail::join(words, " "));
                return runSimulator(mOptions.instance, mOptions.patience(),
                                    words.empty() ? std::cin : line, std::cout);
            });
    }

    ExitCode run(int argc, char** argv) {
        // What stands behind "--" is nobody's option.
        const auto mark = std::find(argv + 1, argv + argc, std::string_view("--"));
        parse(static_cast<int>(mark - argv), argv);
        const std::string name = mApp.get_subcommands().front()->get_name();
        const auto& [words, action] = mCommands.at(name);
        Words given = mApp.remaining();
        given.insert(given.end(), std::min(mark + 1, argv + argc), argv + argc);
        if (given.size() > words) {
            throw Failure(WRONG_USAGE, name + ": not expected: " + given[words]);
        }
        return action(given);
    }

private:
    using Action = std::function<ExitCode(const Words&)>;

    static constexpr size_t ANY = std::numeric_limits<size_t>::max();

    /** @param words how many it takes at most */
    CLI::App& add(const std::string& name, const std::string& about, size_t words, Action action) {
        mCommands[name] = {words, std::move(action)};
        return *mApp.add_subcommand(name, about)->fallthrough();
    }

    void addDocuments() {
        add("list", "Lists the requests with their arguments", 0, [this](const Words&) {
            return print(documents::list(mOptions.json, isatty(STDOUT_FILENO) != 0));
        });
        add("completion", "bash: prints a completion script", 1, [this](const Words& words) {
            if (words != Words{"bash"}) {
                throw Failure(WRONG_USAGE, "completion: for which shell? bash");
            }
            return print(documents::bashCompletion(mApp));
        });
        add("man", "Prints the manual page, for man -l -", 0,
            [this](const Words&) { return print(documents::manPage(mApp)); });
    }

    void parse(int argc, char** argv) {
        try {
            mApp.parse(argc, argv);
        } catch (const CLI::Success& help) {
            std::exit(mApp.exit(help));
        } catch (const CLI::ParseError& error) {
            throw Failure(WRONG_USAGE, error.what());
        }
    }

    Options mOptions;
    logs::Options mLog;
    std::map<std::string, std::pair<size_t, Action>> mCommands;
    CLI::App mApp{"Client of the modem service: makes its requests and shows answers and events.",
                  "modemctl"};
};

}  // namespace

int main(int argc, char** argv) {
    try {
        return CommandLine().run(argc, argv);
    } catch (const Failure& failure) {
        note(failure.what());
        return failure.code;
    } catch (const std::exception& error) {
        note(error.what());
        return NO_SERVICE;
    }
}
