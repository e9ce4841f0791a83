#include "At.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>

#include "Values.h"
#include "runtime/RuntimeDir.h"
#include "runtime/UnixSocket.h"

namespace {

using Clock = std::chrono::steady_clock;

/** Bytes that may come without the end of a line; more cannot be an AT reply. */
constexpr size_t LONGEST_LINE = 64 << 10;

runtime::UniqueFd openPort(int instance) {
    const std::string path = runtime::atPort(std::to_string(instance));
    runtime::UniqueFd port(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios raw{};
    if (port.get() < 0 || tcgetattr(port.get(), &raw) != 0) {
        throw Failure(NO_SERVICE,
                      "no AT port: " + path + ": " + strerror(errno) + howToStart(instance));
    }
    cfmakeraw(&raw);
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 1;  // tenths of a second that a read waits
    tcsetattr(port.get(), TCSANOW, &raw);
    tcflush(port.get(), TCIFLUSH);  // drops replies to whoever used the port before
    return port;
}

/** Whether the modem's reply is complete. */
bool isLast(const std::string& reply) {
    const auto starts = [&reply](const char* with) { return reply.rfind(with, 0) == 0; };
    return reply == "OK" || reply == "ERROR" || starts("+CME ERROR") || starts("+CMS ERROR");
}

/** Takes the next line out of `text`, without its CR and LF; false when there is none yet. */
bool takeLine(std::string& text, std::string& line) {
    const size_t end = text.find('\n');
    if (end == std::string::npos) {
        return false;
    }
    line = text.substr(0, end);
    text.erase(0, end + 1);
    line.erase(line.find_last_not_of('\r') + 1);
    line.erase(0, line.find_first_not_of('\r'));
    return true;
}

}  // namespace

ExitCode runAt(int instance, std::chrono::milliseconds timeout, const std::string& line,
               bool json) {
    const runtime::UniqueFd port = openPort(instance);
    const std::string typed = line + '\r';
    if (write(port.get(), typed.data(), typed.size()) != static_cast<ssize_t>(typed.size())) {
        throw Failure(NO_SERVICE, std::string("the AT port takes nothing: ") + strerror(errno));
    }
    const Clock::time_point deadline = Clock::now() + timeout;
    std::string text;
    auto lines = nlohmann::ordered_json::array();
    while (Clock::now() < deadline) {
        std::array<char, 1024> part{};
        const ssize_t count = read(port.get(), part.data(), part.size());
        if (count < 0 && errno != EINTR) {
            throw Failure(NO_SERVICE, "the modem has gone");
        }
        text.append(part.data(), static_cast<size_t>(count > 0 ? count : 0));
        for (std::string reply; takeLine(text, reply);) {
            if (reply.empty() || reply == line) {
                continue;  // the port's echo
            }
            lines.push_back(reply);
            if (!json) {
                std::cout << reply << std::endl;
            } else if (isLast(reply)) {
                std::cout << values::line({{"line", line}, {"reply", lines}}) << std::endl;
            }
            if (isLast(reply)) {
                return reply == "OK" ? ANSWERED : ANSWERED_ERROR;
            }
        }
        if (text.size() > LONGEST_LINE) {
            throw Failure(NO_ANSWER, "the AT port's reply is no line of text");
        }
    }
    throw Failure(NO_ANSWER, "no reply from the AT port in time");
}
