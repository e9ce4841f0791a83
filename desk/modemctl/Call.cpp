#include "Call.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "Api.h"
#include "Printer.h"
#include "Session.h"
#include "Values.h"
#include "host/Sharing.h"

namespace {

using Clock = Session::Clock;
using nlohmann::ordered_json;

/** After so long without an answer, a note on a terminal says that the call still waits. */
constexpr std::chrono::milliseconds PATIENCE(2000);

class Call {
public:
    Call(const Options& options, const Words& words)
        : mOptions(options),
          mRequest(requestOf(words)),
          mName(mRequest.name),
          mSerial(options.serial ? *options.serial : Session::freshSerial()) {
        values::encode(mArguments, mRequest, mSerial, {words.begin() + 1, words.end()});
        if (!mOptions.out.empty() && !bytesAt(api::answerTo(mRequest))) {
            throw Failure(WRONG_USAGE, mName + ": its answer has no bytes for --out");
        }
    }

    ExitCode run() {
        const Clock::time_point start = Clock::now();
        const auto wait = std::chrono::duration<double>(mOptions.wait);
        const auto patience = start + std::chrono::duration_cast<Clock::duration>(wait);
        Session session(mOptions.instance, sharing::NONE, patience);
        const Clock::time_point deadline = patience + mOptions.patience();
        Clock::time_point noteAt = isatty(STDERR_FILENO) != 0 ? patience + PATIENCE : deadline;
        while (true) {
            const std::optional<Arrival> arrival = session.next(std::min(noteAt, deadline));
            if (arrival && isAnswer(*arrival)) {
                return print(*arrival->method, arrival->arguments);
            }
            if (arrival) {
                proceed(session, *arrival);
            } else if (noteAt < deadline && Clock::now() < deadline) {
                note(mName + ": waiting for the answer");
                noteAt = deadline;
            } else {
                fail();
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
        return arrival.kind == Arrival::ANSWER && arrival.method->name == mName + "Response" &&
               arrival.arguments["info"]["serial"] == mSerial;
    }

    void proceed(Session& session, const Arrival& arrival) {
        switch (arrival.kind) {
            case Arrival::READY:
                if (!std::exchange(mAsked, true)) {  // otherwise the callbacks were taken back
                    mDisturbance.clear();
                    session.ask(mRequest, mArguments);
                }
                break;
            case Arrival::REFUSED:
                throw Failure(WRONG_USAGE, mName + ": " + arrival.text);
            case Arrival::NOTE:
                mDisturbance = arrival.text;
                break;
            case Arrival::LOST:
                throw Failure(NO_SERVICE, mName + ": the service has gone" +
                                                  (arrival.text.empty() ? "" : ": ") +
                                                  arrival.text +
                                                  indented(why(isatty(STDERR_FILENO) != 0)));
            default:
                break;
        }
    }

    [[noreturn]] void fail() const {
        const std::string reason = "no answer in " + CLI::detail::to_string(mOptions.timeout) +
                                   " s" + (mDisturbance.empty() ? "" : "; ") + mDisturbance;
        if (mOptions.json) {
            std::cout << values::line({{"method", mName}, {"serial", mSerial}, {"failure", reason}})
                      << std::endl;
        }
        throw Failure(NO_ANSWER, mName + ": " + reason + indented(why(isatty(STDERR_FILENO) != 0)));
    }

    ExitCode print(const hal::Method& method, ordered_json arguments) const {
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
        if (!mOptions.out.empty() && !failed) {
            writeBytes(arguments[*bytesAt(method)]);
        }
        return failed ? ANSWERED_ERROR : ANSWERED;
    }

    /** Where an answer has its list of bytes, itself or in a struct; nothing when it has none. */
    static std::optional<ordered_json::json_pointer> bytesAt(const hal::Method& answer) {
        const auto find = [](const hal::Field* fields, size_t count) {
            return std::find_if(fields, fields + count, [](const hal::Field& field) {
                return values::isBytes(*field.type);
            });
        };
        for (const hal::Field* arg = answer.args; arg != answer.args + answer.argCount; ++arg) {
            const hal::Type& type = *arg->type;
            const hal::Field* const member = find(type.fields, type.fieldCount);
            if (member != type.fields + type.fieldCount) {
                return ordered_json::json_pointer() / arg->name / member->name;
            }
            if (values::isBytes(type)) {
                return ordered_json::json_pointer() / arg->name;
            }
        }
        return std::nullopt;
    }

    void writeBytes(const ordered_json& bytes) const {
        std::ofstream file(mOptions.out, std::ios::binary);
        for (const uint8_t byte : bytes) {
            file.put(static_cast<char>(byte));
        }
        if (!file.flush()) {
            throw Failure(WRONG_USAGE, mOptions.out + ": " + strerror(errno));
        }
    }

    /**
     * What the host's log has about this request; empty when nobody wants to know.
     *
     * @param unasked tells it also without the option --why
     */
    Words why(bool unasked) const {
        if (!mOptions.why && !unasked) {
            return {};
        }
        try {
            return askLogReader();
        } catch (const std::exception& error) {  // must not spoil the answer
            if (mOptions.why) {
                note(std::string("--why: ") + error.what());
            }
            return {};
        }
    }

    /** Lines on this request from the log reader, which is beside this program. */
    Words askLogReader() const {
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        setenv("OX_LOG_READER", (program.parent_path() / "ox-modem-log").c_str(), 1);
        const std::string command = "exec \"$OX_LOG_READER\" --instance " +
                                    std::to_string(mOptions.instance) + " --why " + mName + " " +
                                    std::to_string(mSerial) + " 2>&1";
        FILE* const reader = popen(command.c_str(), "r");
        if (reader == nullptr) {
            throw std::runtime_error(strerror(errno));
        }
        std::string text;
        for (int byte = 0; (byte = getc(reader)) != EOF;) {
            text += static_cast<char>(byte);
        }
        const bool well = pclose(reader) == 0;
        Words lines;
        std::istringstream rest(text);
        for (std::string line; std::getline(rest, line);) {
            lines.push_back(line);
        }
        if (!well) {
            throw std::runtime_error(lines.empty() ? "no answer of the log reader" : lines.back());
        }
        return lines;
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
    const std::string mName;
    hal::Parcel mArguments;
    const int32_t mSerial;
    bool mAsked = false;
    std::string mDisturbance;  ///< a likely reason when no answer comes
};

}  // namespace

ExitCode runCall(const Options& options, const Words& words) {
    return Call(options, words).run();
}
