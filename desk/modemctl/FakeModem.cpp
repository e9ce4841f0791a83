#include "FakeModem.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <system_error>
#include <thread>

#include "Api.h"
#include "Session.h"
#include "Values.h"
#include "host/Sharing.h"
#include "runtime/RuntimeDir.h"
#include "runtime/UnixSocket.h"

namespace {

using namespace std::chrono_literals;
using Clock = Session::Clock;

/** A line without its comment, and its words without their quotes. */
struct Line {
    std::string text;
    Words words;
    std::string place;  ///< file and line, for an error

    bool waitsForEvent() const {
        const bool isWait = words.size() == 2 && words[0] == "wait" && words[1].size() > 3;
        return isWait && words[1].compare(words[1].size() - 3, 3, "Ind") == 0;
    }
};

Line parse(std::string text) {
    Line line;
    bool isQuoted = false;
    bool isInWord = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isBlank = !isQuoted && isspace(static_cast<unsigned char>(text[i])) != 0;
        if (!isQuoted && !isInWord && text[i] == '#') {
            text.resize(i);
            break;
        }
        if (!isBlank && !isInWord) {
            line.words.emplace_back();
        }
        isInWord = !isBlank;
        isQuoted ^= text[i] == '"';
        if (isInWord && text[i] != '"') {
            line.words.back() += text[i];
        }
    }
    line.text = std::move(text);
    return line;
}

/** The value that a `wait` or `expect` is given. */
std::string wanted(const Words& words) {
    std::string text;
    for (size_t i = 2; i < words.size(); ++i) {
        text += (i > 2 ? " " : "") + words[i];
    }
    return text;
}

/** The fake modem's text port. */
class Port {
public:
    Port(int instance, std::chrono::milliseconds timeout)
        : mPort(connect(instance, timeout), fclose) {}

    /** The reply's lines; the last one is "ok" or begins with "error: ". */
    Words ask(const std::string& command) const {
        const std::string line = command + '\n';
        send(fileno(mPort.get()), line.data(), line.size(), MSG_NOSIGNAL);
        Words reply;
        while (reply.empty() || (reply.back() != "ok" && reply.back().rfind("error:", 0) != 0)) {
            reply.push_back(readLine());
        }
        return reply;
    }

private:
    static FILE* connect(int instance, std::chrono::milliseconds timeout) {
        try {
            runtime::UniqueFd port =
                    runtime::connectTo(runtime::fakeModemPort(std::to_string(instance)), timeout);
            const timeval limit{timeout.count() / 1000, timeout.count() % 1000 * 1000};
            setsockopt(port.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
            return fdopen(port.release(), "r+");
        } catch (const std::system_error& error) {
            throw Failure(NO_SERVICE,
                          std::string("no fake modem: ") + error.what() + howToStart(instance));
        }
    }

    std::string readLine() const {
        std::string line;
        for (int c; (c = getc(mPort.get())) != '\n'; line += static_cast<char>(c)) {
            if (c == EOF) {
                throw feof(mPort.get()) != 0
                        ? Failure(NO_SERVICE, "the fake modem has gone")
                        : Failure(NO_ANSWER, "no reply from the fake modem in time");
            }
        }
        return line;
    }

    std::unique_ptr<FILE, int (*)(FILE*)> mPort;
};

/** Runs lines at the fake modem's port, and the few commands that are a scenario's own. */
class Scenario {
public:
    Scenario(int instance, std::chrono::milliseconds timeout)
        : mInstance(instance), mTimeout(timeout), mPort(instance, timeout) {}

    /** Watches from now on, so that `wait` knows the events that came before it. */
    void watch() {
        if (mSession) {
            return;
        }
        const Clock::time_point deadline = Clock::now() + mTimeout;
        mSession.emplace(mInstance, sharing::EVENTS, Clock::time_point::min());
        std::optional<Arrival> arrival;
        while (!arrival || arrival->kind != Arrival::READY) {
            if (!(arrival = mSession->next(deadline))) {
                throw Failure(NO_ANSWER, "the service gives no events");
            }
        }
    }

    /** The reply to one line. @throws Failure when it is a command of its own and fails */
    Words run(const Line& line) {
        const std::string& command = line.words[0];
        const size_t count = line.words.size() - 1;
        if (command == "sleep" && count == 1) {
            sleep(line.words[1]);
        } else if (line.waitsForEvent()) {
            waitForEvent(line.words[1]);
        } else if (command == "wait" && count > 0) {
            waitForState(line.words);
        } else if (command == "expect" && count > 1) {
            const auto value = state(line.words[1]);
            if (value != wanted(line.words)) {
                throw Failure(ANSWERED_ERROR, "expect: " + show(line.words[1], value));
            }
        } else if (command == "sleep" || command == "wait" || command == "expect") {
            throw Failure(
                    WRONG_USAGE,
                    "usage: sleep SECONDS, wait EVENT, wait STATE [VALUE], expect STATE VALUE");
        } else {
            return mPort.ask(line.text);
        }
        return {"ok"};
    }

private:
    static void sleep(const std::string& word) {
        char* end = nullptr;
        const double seconds = strtod(word.c_str(), &end);
        if (*end != '\0' || !(seconds >= 0 && seconds < 86400)) {
            throw Failure(WRONG_USAGE, "sleep: '" + word + "' is no number of seconds");
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }

    void waitForEvent(const std::string& name) {
        const hal::Method* const end = api::EVENTS.methods + api::EVENTS.methodCount;
        if (std::none_of(api::EVENTS.methods, end,
                         [&](const hal::Method& event) { return name == event.name; })) {
            throw Failure(WRONG_USAGE, "wait: the service has no event '" + name + '\'');
        }
        watch();
        const Clock::time_point deadline = Clock::now() + mTimeout;
        while (mEvents.count(name) == 0) {
            const auto arrival = mSession->next(deadline);
            if (!arrival) {
                throw Failure(NO_ANSWER, "wait: no " + name + " in time");
            }
            if (arrival->kind == Arrival::EVENT) {
                mEvents.insert(arrival->method->name);
            }
        }
        mEvents.erase(mEvents.find(name));
    }

    void waitForState(const Words& words) const {
        const Clock::time_point deadline = Clock::now() + mTimeout;
        for (;;) {
            const auto value = state(words[1]);
            if (value && (words.size() == 2 || value == wanted(words))) {
                return;
            }
            if (Clock::now() > deadline) {
                throw Failure(NO_ANSWER, "wait: " + show(words[1], value));
            }
            std::this_thread::sleep_for(10ms);
        }
    }

    /** A value of the modem's state, such as "up bound 0"; none when there is no such key. */
    std::optional<std::string> state(const std::string& key) const {
        for (const std::string& line : mPort.ask("state \"" + key + '"')) {
            if (line.rfind(key + ' ', 0) == 0) {
                return line.substr(std::min(line.size(), line.find_first_not_of(' ', key.size())));
            }
        }
        return std::nullopt;
    }

    static std::string show(const std::string& key, const std::optional<std::string>& value) {
        return key + (value ? " is '" + *value + '\'' : " is not there");
    }

    const int mInstance;
    const std::chrono::milliseconds mTimeout;
    const Port mPort;
    std::optional<Session> mSession;
    std::multiset<std::string> mEvents;  ///< came, and not waited for yet
};

/** The next line that has a word; none at the end. */
std::optional<Line> nextLine(std::istream& commands, const std::string& file, size_t& number) {
    for (std::string text; std::getline(commands, text);) {
        Line line = parse(text);
        ++number;
        if (!line.words.empty()) {
            line.place = file.empty() ? "" : file + ':' + std::to_string(number) + ": ";
            return line;
        }
    }
    return std::nullopt;
}

void print(std::ostream& out, bool json, const Line& line, const Words& reply) {
    if (json) {
        out << values::line({{"command", line.text}, {"reply", reply}}) << std::endl;
        return;
    }
    for (const std::string& text : reply) {
        out << text << std::endl;
    }
}

/** Words as one line; a word with a blank is quoted again, as the shell had it. */
std::string lineOf(const Words& words) {
    std::string line;
    for (const std::string& word : words) {
        const bool needsQuotes = words.size() > 1 && word.find('"') == std::string::npos &&
                                 (word.empty() || word.find_first_of(" #") != std::string::npos);
        const std::string quote = needsQuotes ? "\"" : "";
        line += (line.empty() ? "" : " ") + quote + word + quote;
    }
    return line;
}

bool isFile(const Words& words) {
    return words.size() == 1 && words[0].find_first_of("./") != std::string::npos &&
           (words[0].find(' ') == std::string::npos || std::filesystem::exists(words[0]));
}

}  // namespace

ExitCode runFakeModem(int instance, std::chrono::milliseconds timeout, std::istream& commands,
                      std::ostream& out, bool json, const std::string& file) {
    Scenario scenario(instance, timeout);
    ExitCode result = ANSWERED;
    const auto run = [&](const Line& line) {
        try {
            const Words reply = scenario.run(line);
            print(out, json, line, reply);
            if (reply.back() != "ok") {
                result = ANSWERED_ERROR;
            }
            if (reply.back() != "ok" && !file.empty()) {
                throw Failure(ANSWERED_ERROR, reply.back().substr(strlen("error: ")));
            }
        } catch (const Failure& failure) {
            throw Failure(failure.code, line.place + failure.what());
        }
    };
    std::vector<Line> lines;  // of a file; a person has a reply behind each line
    size_t number = 0;
    while (auto line = nextLine(commands, file, number)) {
        if (file.empty()) {
            run(*line);
            continue;
        }
        lines.push_back(*line);
        if (line->waitsForEvent()) {
            scenario.watch();
        }
    }
    std::for_each(lines.begin(), lines.end(), run);
    return result;
}

ExitCode runFakeModem(const Options& options, const Words& words) {
    std::istringstream line(lineOf(words));
    std::ifstream file;
    std::string name;
    const bool isStdin = words.empty() || words == Words{"-"};
    if (words == Words{"-"}) {
        name = "stdin";
    } else if (isFile(words)) {
        name = words[0];
        file.open(name);
        if (!file || std::filesystem::is_directory(name)) {
            throw Failure(WRONG_USAGE, name + ": " + strerror(file ? EISDIR : errno));
        }
    }
    std::istream& given = name.empty() ? static_cast<std::istream&>(line) : file;
    std::istream& commands = isStdin ? std::cin : given;
    return runFakeModem(options.instance, options.patience(), commands, std::cout, options.json,
                        name);
}
