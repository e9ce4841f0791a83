#include "FakeModem.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
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
    size_t number = 0;
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

std::string joined(const Words& words, size_t from) {
    std::string text;
    for (size_t i = from; i < words.size(); ++i) {
        text += (i > from ? " " : "") + words[i];
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

/** Events that came to the host's members, until they are waited for. */
class Events {
public:
    Events(int instance, Clock::time_point deadline)
        : mSession(instance, sharing::EVENTS, Clock::time_point::min()) {
        std::optional<Arrival> arrival;
        while (!arrival || arrival->kind != Arrival::READY) {
            if (!(arrival = mSession.next(deadline))) {
                throw Failure(NO_ANSWER, "the service gives no events");
            }
        }
    }

    /** Takes one event of that name; false when none comes until the deadline. */
    bool take(const std::string& name, Clock::time_point deadline) {
        while (mSeen.count(name) == 0) {
            const auto arrival = mSession.next(deadline);
            if (!arrival) {
                return false;
            }
            if (arrival->kind == Arrival::EVENT) {
                mSeen.insert(arrival->method->name);
            }
        }
        mSeen.erase(mSeen.find(name));
        return true;
    }

private:
    Session mSession;
    std::multiset<std::string> mSeen;
};

bool isEvent(const std::string& word) {
    return word.size() > 3 && word.compare(word.size() - 3, 3, "Ind") == 0;
}

bool waitsForEvent(const Words& words) {
    return words.size() == 2 && words[0] == "wait" && isEvent(words[1]);
}

double secondsOf(const std::string& word) {
    std::istringstream text(word);
    double seconds = -1;
    if (!(text >> seconds) || !text.eof() || seconds < 0 || seconds > 86400) {
        throw Failure(WRONG_USAGE, "sleep: '" + word + "' is no number of seconds");
    }
    return seconds;
}

/** Throws Failure when one of a scenario's own commands has wrong arguments. */
void check(const Words& words) {
    const size_t count = words.size() - 1;
    if (words[0] == "sleep" && (count != 1 || secondsOf(words[1]) < 0)) {
        throw Failure(WRONG_USAGE, "usage: sleep SECONDS");
    }
    if (words[0] == "wait" && count == 0) {
        throw Failure(WRONG_USAGE, "usage: wait EVENT, or wait STATE [VALUE]");
    }
    if (words[0] == "expect" && count < 2) {
        throw Failure(WRONG_USAGE, "usage: expect STATE VALUE");
    }
    if (waitsForEvent(words)) {
        std::string names;
        for (size_t i = 0; i < api::EVENTS.methodCount; ++i) {
            if (words[1] == api::EVENTS.methods[i].name) {
                return;
            }
            names += (i > 0 ? ", " : "") + std::string(api::EVENTS.methods[i].name);
        }
        throw Failure(WRONG_USAGE, "wait: '" + words[1] + "' is none of " + names);
    }
}

class Scenario {
public:
    Scenario(int instance, std::chrono::milliseconds timeout)
        : mInstance(instance), mTimeout(timeout), mPort(instance, timeout) {}

    /** Watches from now on, so that `wait` knows the events that came before it. */
    void watch() {
        if (!mEvents) {
            mEvents.emplace(mInstance, Clock::now() + mTimeout);
        }
    }

    /** The reply to one line. @throws Failure when it is a command of its own and fails */
    Words run(const Line& line) {
        check(line.words);
        const std::string& command = line.words[0];
        if (command == "sleep") {
            std::this_thread::sleep_for(std::chrono::duration<double>(secondsOf(line.words[1])));
        } else if (command == "wait") {
            wait(line.words);
        } else if (command == "expect") {
            expect(line.words);
        } else {
            return mPort.ask(line.text);
        }
        return {"ok"};
    }

private:
    /** A value of the modem's state, such as "up bound 0"; none when there is no such key. */
    std::optional<std::string> state(const std::string& key) const {
        for (const std::string& line : mPort.ask("state \"" + key + '"')) {
            if (line == key || line.rfind(key + ' ', 0) == 0) {
                const size_t begin = line.find_first_not_of(' ', key.size());
                return begin == std::string::npos ? "" : line.substr(begin);
            }
        }
        return std::nullopt;
    }

    void wait(const Words& words) {
        const Clock::time_point deadline = Clock::now() + mTimeout;
        const std::string late = " in " + std::to_string(mTimeout.count()) + " ms";
        if (waitsForEvent(words)) {
            watch();
            if (!mEvents->take(words[1], deadline)) {
                throw Failure(NO_ANSWER, "wait: no " + words[1] + late);
            }
            return;
        }
        for (auto value = state(words[1]); !value || !isWanted(*value, words);
             value = state(words[1])) {
            if (Clock::now() > deadline) {
                throw Failure(NO_ANSWER, "wait: " + words[1] + differs(value) + late);
            }
            std::this_thread::sleep_for(10ms);
        }
    }

    void expect(const Words& words) const {
        const auto value = state(words[1]);
        if (!value || !isWanted(*value, words)) {
            throw Failure(ANSWERED_ERROR, "expect: " + words[1] + differs(value));
        }
    }

    static bool isWanted(const std::string& value, const Words& words) {
        return words.size() == 2 || value == joined(words, 2);
    }

    static std::string differs(const std::optional<std::string>& value) {
        return value ? " is '" + *value + '\'' : " is not there";
    }

    const int mInstance;
    const std::chrono::milliseconds mTimeout;
    const Port mPort;
    std::optional<Events> mEvents;
};

/** Runs `work` on a line; its failure names file and line. */
template <class Work>
auto located(const std::string& file, const Line& line, Work&& work) {
    try {
        return work(line);
    } catch (const Failure& failure) {
        const std::string place = file + ':' + std::to_string(line.number) + ": ";
        throw Failure(failure.code, (file.empty() ? "" : place) + failure.what());
    }
}

/** The next line that has a word; none at the end. */
std::optional<Line> nextLine(std::istream& commands, size_t& number) {
    for (std::string text; std::getline(commands, text);) {
        Line line = parse(text);
        line.number = ++number;
        if (!line.words.empty()) {
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
    const bool isFile = !file.empty();
    std::deque<Line> ahead;
    size_t number = 0;
    for (std::optional<Line> line; isFile && (line = nextLine(commands, number));) {
        located(file, *line, [](const Line& checked) { check(checked.words); });
        ahead.push_back(std::move(*line));
    }
    Scenario scenario(instance, timeout);
    if (std::any_of(ahead.begin(), ahead.end(),
                    [](const Line& line) { return waitsForEvent(line.words); })) {
        scenario.watch();
    }
    const auto next = [&] {
        if (!isFile) {
            return nextLine(commands, number);
        }
        std::optional<Line> line;
        if (!ahead.empty()) {
            line = std::move(ahead.front());
            ahead.pop_front();
        }
        return line;
    };
    ExitCode result = ANSWERED;
    while (const auto line = next()) {
        located(file, *line, [&](const Line& command) {
            const Words reply = scenario.run(command);
            const bool isGood = reply.back() == "ok";
            print(out, json, command, reply);
            if (!isGood && isFile) {
                throw Failure(ANSWERED_ERROR, reply.back().substr(strlen("error: ")));
            }
            result = isGood ? result : ANSWERED_ERROR;
        });
    }
    return result;
}

ExitCode runFakeModem(const Options& options, const Words& words) {
    std::istringstream line(lineOf(words));
    std::ifstream file;
    std::istream* commands = words.empty() ? &std::cin : &line;
    std::string name;
    if (words == Words{"-"}) {
        commands = &std::cin;
        name = "stdin";
    } else if (isFile(words)) {
        commands = &file;
        name = words[0];
        file.open(name);
        if (!file || std::filesystem::is_directory(name)) {
            throw Failure(WRONG_USAGE, name + ": " + strerror(file ? EISDIR : errno));
        }
    }
    return runFakeModem(options.instance, options.patience(), *commands, std::cout, options.json,
                        name);
}
