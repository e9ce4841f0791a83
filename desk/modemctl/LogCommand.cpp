#include "LogCommand.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "LogReport.h"
#include "LogTrace.h"
#include "desk/runtime/RuntimeDir.h"

namespace logs {

namespace {

int openLog(const std::string& file) {
    if (file.empty() || file == "-") {
        return STDIN_FILENO;
    }
    const int opened = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (opened < 0) {
        throw Failure(WRONG_USAGE, "log: " + file + ": " + strerror(errno));
    }
    return opened;
}

/** A log that is still being written ends at Ctrl-C, and its report follows. */
void endAtInterrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESETHAND;  // interrupts the read; the next one ends the process
    sigaction(SIGINT, &action, nullptr);
}

void read(const std::string& file, Story& story) {
    const int opened = openLog(file);
    LineReader reader(opened);
    try {
        for (std::string_view line; reader.next(line);) {
            story.take(line);
        }
    } catch (const std::system_error& error) {
        throw Failure(WRONG_USAGE, "log: " + file + ": " + error.code().message());
    }
    if (opened != STDIN_FILENO) {
        close(opened);
    }
}

void write(const std::string& file, const Story& story,
           void (*form)(const Story& story, std::ostream& out)) {
    if (file.empty()) {
        return;
    }
    std::ofstream out(file);
    form(story, out);
    out.close();
    if (!out) {
        throw Failure(WRONG_USAGE, "log: " + file + ": " + strerror(errno));
    }
}

}  // namespace

void addOptions(CLI::App& app, Options& options) {
    app.add_option("--trace", options.trace, "Writes a trace for a trace viewer to this file");
    app.add_option("--svg", options.svg, "Draws threads and requests to this file");
    app.add_flag("--all", options.all, "Long tables whole, not their last 1000 rows");
}

ExitCode run(const Options& options, bool json, const std::string& file) {
    Story story;
    endAtInterrupt();
    read(file, story);
    story.finish();
    write(options.trace, story, writeTrace);
    write(options.svg, story, drawPicture);
    if (json) {
        printJson(story, std::cout);
    } else {
        const bool terminal = isatty(STDOUT_FILENO) != 0;
        printReport(story, {terminal, terminal && getenv("NO_COLOR") == nullptr, options.all},
                    std::cout);
    }
    if (!std::cout.flush()) {
        throw Failure(WRONG_USAGE, std::string("stdout: ") + strerror(errno));
    }
    return ANSWERED;
}

std::vector<std::string> whyOf(int instance, const std::string& method, int32_t serial) {
    const std::string file = runtime::logFile(std::to_string(instance));
    Story story;
    bool isKept = false;
    for (const std::string& part : {runtime::olderLogFile(file), file}) {
        if (std::filesystem::is_regular_file(part)) {  // another one might never end
            read(part, story);
            isKept = true;
        }
    }
    if (!isKept) {
        throw Failure(WRONG_USAGE, "no log of the host in " + file);
    }
    story.finish();
    const auto request = std::find_if(
            story.requests.rbegin(), story.requests.rend(), [&](const Request& candidate) {
                return candidate.serial == serial && methodName(candidate.method) == method;
            });
    if (request == story.requests.rend()) {
        return {};
    }
    std::vector<std::string> why = request->wrong;
    if (request->answered == NEVER) {
        why.resize(why.empty() ? 0 : why.size() - 1);  // lastSign() tells the last one itself
        why.push_back(story.lastSign(*request));
    }
    return why;
}

}  // namespace logs
