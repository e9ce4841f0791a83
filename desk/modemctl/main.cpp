#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <functional>
#include <iostream>
#include <limits>

#include "Api.h"
#include "At.h"
#include "Call.h"
#include "Failure.h"
#include "FakeModem.h"
#include "Help.h"
#include "Options.h"
#include "Printer.h"
#include "Session.h"
#include "Status.h"
#include "Watch.h"

void note(const std::string& text) {
    std::cerr << "modemctl: " << text << std::endl;
}

namespace {

ExitCode print(const std::string& text) {
    std::cout << text << std::flush;
    return ANSWERED;
}

/** The command line: options, commands, and what each of these does. */
class CommandLine {
public:
    CommandLine() {
        mApp.set_version_flag("--version", "modemctl " OX_VERSION);
        mApp.set_help_all_flag("--help-all", "Help with the options of each command");
        mApp.allow_extras();
        mApp.require_subcommand(0, 1);  // behind one, "at" or "list" is a word like any other
        mApp.add_flag("--json", mOptions.json, "One JSON object a line");
        mApp.add_option("--timeout", mOptions.timeout, "Seconds to wait for an answer (10)")
                ->check(CLI::Range(0.001, 86400.0));
        mApp.add_option("--instance", mOptions.instance, "Instance of the service (0)")
                ->check(CLI::Range(0, 1));
        addHelp();
        addCall();
        addWatch();
        addFakeModem();
        addStatus();
    }

    ExitCode run(int argc, char** argv) {
        // Words behind "--" are kept from the parser: they are no options, such as "-5".
        const auto mark = std::find(argv + 1, argv + argc, std::string_view("--"));
        parse(static_cast<int>(mark - argv), argv);
        if (mApp.get_subcommands().empty()) {
            throw Failure(WRONG_USAGE, unknownCommand());
        }
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

    std::string unknownCommand() const {
        const Words given = mApp.remaining();
        if (given.empty()) {
            return "which command? see modemctl --help";
        }
        Words names;
        for (const CLI::App* command : mApp.get_subcommands(nullptr)) {
            names.push_back(command->get_name());
        }
        return api::unknown(given[0], "command", names, "--help");
    }

    void addHelp() {
        add("list", "Lists the requests with their arguments", 0,
            [this](const Words&) { return print(help::list(mOptions.json)); });
        add("show", "METHOD: what it does, its arguments and its answer", 1,
            [this](const Words& words) {
                if (words.empty()) {
                    throw Failure(WRONG_USAGE, "show: which method? see modemctl list");
                }
                return print(help::show(api::request(words[0]), mOptions.json));
            });
        add("completion", "bash or zsh: prints a completion script", 1, [](const Words& words) {
            if (words != Words{"bash"} && words != Words{"zsh"}) {
                throw Failure(WRONG_USAGE, "completion: for which shell? bash or zsh");
            }
            return print(help::completion(words[0] == "zsh"));
        });
    }

    void addCall() {
        CLI::App& call = add("call", "METHOD [ARG...]: makes a request and prints its answer", ANY,
                             [this](const Words& words) { return runCall(mOptions, words); });
        call.add_option("--serial", mOptions.serial, "Serial of the request (one that is free)");
        call.add_option("--wait", mOptions.wait, "Seconds to wait for the service to come (0)")
                ->check(CLI::Range(0.0, 86400.0));
        call.add_flag("--why", mOptions.why, "What the host's log has about what went wrong");
        call.add_option("--out", mOptions.out, "File that takes the bytes of the answer");
    }

    void addWatch() {
        CLI::App& watch = add("watch", "Prints events as they come, until Ctrl-C", 0,
                              [this](const Words&) { return runWatch(mOptions); });
        watch.add_flag("-a,--all", mOptions.all, "All answers, too, whoever asked");
        watch.add_flag("-f,--follow", mOptions.follow,
                       "Stay when the service goes, and wait for it");
        watch.add_flag("-t,--time", mOptions.stamps, "The time in front of each line");
        watch.add_flag("--confirm-log", mOptions.confirmLog,
                       "Confirm each AT+LOG command, as the log's owner does");
        watch.add_option("--count", mOptions.count, "End after that many events")
                ->check(CLI::Range(int64_t(1), std::numeric_limits<int64_t>::max()));
    }

    void addFakeModem() {
        add("fake", "[WORD...], FILE, -: gives the fake modem a command, or those of a file", ANY,
            [this](const Words& words) { return runFakeModem(mOptions, words); });
    }

    void addStatus() {
        add("status", "What serves each instance, its services, ports and callbacks", 0,
            [this](const Words&) { return status::print(mOptions.json, mOptions.instance); });
        add("wait", "[SECONDS]: waits until the service is there, at most 60 s", 1,
            [this](const Words& words) {
                double seconds = 60;
                if (!words.empty() && !CLI::detail::lexical_cast(words[0], seconds)) {
                    throw Failure(WRONG_USAGE, "wait: " + words[0] + " is no number of seconds");
                }
                return status::wait(mOptions.instance, seconds);
            });
        CLI::App& debug = add("debug", "The state as the service itself prints it", 0,
                              [this](const Words&) { return status::printDebug(mOptions); });
        debug.add_option("--adb", mOptions.device, "Of a device: [SERIAL], by lshal debug")
                ->expected(0, 1);
        add("at", "LINE: types at the modem's AT port and prints the reply", 1,
            [this](const Words& words) {
                if (words.empty()) {
                    throw Failure(WRONG_USAGE, "at: type what? such as AT+LOG=1,tc7");
                }
                return runAt(mOptions.instance, mOptions.patience(), words[0], mOptions.json);
            });
    }

    void parse(int argc, char** argv) {
        try {
            mApp.parse(argc, argv);
        } catch (const CLI::CallForHelp& help) {
            const Words words = mApp.remaining();
            if (mApp.got_subcommand("call") && !words.empty()) {
                leave(print(help::show(api::request(words[0]), mOptions.json)));
            }
            leave(mApp.exit(help));
        } catch (const CLI::Success& help) {
            leave(mApp.exit(help));
        } catch (const CLI::ParseError& error) {
            throw Failure(WRONG_USAGE, error.what());
        }
    }

    [[noreturn]] static void leave(int status) {
        std::cout.flush();
        std::exit(status);
    }

    Options mOptions;
    std::map<std::string, std::pair<size_t, Action>> mCommands;
    CLI::App mApp{"Client of the modem service: makes its requests and shows answers and events.",
                  "modemctl"};
};

}  // namespace

int main(int argc, char** argv) {
    try {
        // Files and sockets must not take the place of a closed stdin, stdout or stderr.
        while (open("/dev/null", O_RDONLY) <= STDERR_FILENO) {
        }
        signal(SIGPIPE, SIG_DFL);  // a reader of stdout that is gone ends the process quietly
        checkOutput();
        return CommandLine().run(argc, argv);
    } catch (const Failure& failure) {
        note(failure.what());
        return failure.code;
    } catch (const std::ios::failure&) {
        const int reason = errno;
        std::cout.exceptions(std::ios::goodbit);  // the flush at exit must not throw
        note(std::string("cannot write to stdout: ") + strerror(reason));
        return WRONG_USAGE;
    } catch (const std::exception& error) {
        note(error.what());
        return NO_SERVICE;
    }
}
