#include "AtPort.h"

#include <fcntl.h>
#include <poll.h>
#include <strings.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <system_error>
#include <thread>

#include "Modem.h"
#include "Text.h"

namespace fake {

namespace {

namespace fs = std::filesystem;

void check(bool success, const std::string& what) {
    if (!success) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/**
 * Turns off echo, line editing and signal keys at the terminal's end of the pseudo-terminal: echo
 * and editing are done by the modem, in AtLine. This end stays open until the process ends;
 * otherwise the modem's end would read errors whenever no terminal program has the port open.
 */
void makeRaw(const std::string& path) {
    const int slave = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    check(slave >= 0 && tcgetattr(slave, &settings) == 0, path);
    cfmakeraw(&settings);
    check(tcsetattr(slave, TCSANOW, &settings) == 0, path);
}

/** Makes `link` point to `target`, and removes it when the process exits. */
void makeLink(const std::string& link, const std::string& target) {
    static const std::string& made = *new std::string(link);
    fs::remove(link);
    fs::create_symlink(target, link);
    std::atexit([] {
        std::error_code ignored;
        fs::remove(made, ignored);
    });
}

}  // namespace

std::optional<std::string> AtLine::feed(char byte, std::string& output) {
    const bool afterReturn = std::exchange(mAfterReturn, byte == '\r');
    if (byte == '\n' && afterReturn) {
        return std::nullopt;
    }
    std::string seen;
    std::optional<std::string> line;
    if (byte == '\r' || byte == '\n') {
        seen = byte;
        line = std::exchange(mText, {});
    } else if (byte == '\b' || byte == 0x7f) {
        seen = mText.empty() ? "" : "\b \b";
        mText.resize(mText.size() - (mText.empty() ? 0 : 1));
    } else if (static_cast<unsigned char>(byte) >= ' ' && mText.size() <= LENGTH_MAX) {
        seen = byte;
        mText += byte;
    }
    output += mEcho ? seen : "";
    return line;
}

AtRequest parseAtLine(const std::string& line) {
    static const auto& PLAIN = *new std::regex(" *AT *(E?)([01]?) *", std::regex::icase);
    static const auto& EXTENDED =
            *new std::regex(" *AT *(\\+[^=?]*?) *(?:= *(.*?) *)?", std::regex::icase);
    std::smatch parts;
    if (line.size() > AtLine::LENGTH_MAX) {
        return {AtRequest::ERROR};
    }
    if (line.find_first_not_of(' ') == line.npos) {
        return {AtRequest::NOTHING};
    }
    if (std::regex_match(line, parts, PLAIN) && parts[1].length() >= parts[2].length()) {
        return {parts[1].length() == 0 ? AtRequest::OK
                : parts[2] == "1"      ? AtRequest::ECHO_ON
                                       : AtRequest::ECHO_OFF};
    }
    if (!std::regex_match(line, parts, EXTENDED) || parts[2] == "?") {
        return {AtRequest::ERROR};
    }
    AtRequest request{AtRequest::EXTENDED, parts[1]};
    const auto tokens = splitQuoted(parts[2].str(), ',');
    if (!tokens || tokens->size() > MODEM_ATLOG_TOKENS_MAX) {
        return {AtRequest::ERROR};
    }
    if (parts[2].length() > 0) {
        request.tokens = *tokens;
    }
    return request;
}

std::string AtPort::open(const std::string& link) {
    // Non-blocking: output that no terminal reads is lost, as on a cable with nobody at its end.
    mMaster = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    char path[64];
    check(mMaster >= 0 && grantpt(mMaster) == 0 && unlockpt(mMaster) == 0 &&
                  ptsname_r(mMaster, path, sizeof(path)) == 0,
          "AT port");
    makeRaw(path);
    std::thread([this] { serve(); }).detach();
    makeLink(link, path);
    std::lock_guard lock(mMutex);
    mPath = path;
    return path;
}

void AtPort::serve() {
    pollfd input{mMaster, POLLIN, 0};
    while (poll(&input, 1, -1) > 0 || errno == EINTR) {
        char byte = 0;
        if (read(mMaster, &byte, 1) != 1) {
            continue;
        }
        std::string echo;
        const auto line = mLine.feed(byte, echo);
        show(echo);
        const AtRequest request = parseAtLine(line.value_or(""));
        if (request.kind != AtRequest::NOTHING) {
            show(isDone(request) ? "\r\nOK\r\n" : "\r\nERROR\r\n");
        }
    }
}

bool AtPort::isDone(const AtRequest& request) {
    if (request.kind == AtRequest::ECHO_ON || request.kind == AtRequest::ECHO_OFF) {
        mLine.setEcho(request.kind == AtRequest::ECHO_ON);
    }
    return request.kind == AtRequest::EXTENDED ? hold(request) : request.kind != AtRequest::ERROR;
}

bool AtPort::hold(const AtRequest& request) {
    Modem& modem = Modem::get();
    const auto timeout = modem.timeOf("at-timeout-ms");
    std::unique_lock lock(mMutex);
    if (mRegistered.empty() || strcasecmp(request.name.c_str(), mRegistered.c_str()) != 0) {
        return false;
    }
    lock.unlock();
    const uint64_t handle = post();
    modem.raiseAtCommand({handle,
                          MODEM_ATLOG_OP_CODE,
                          request.name,
                          static_cast<uint16_t>(request.tokens.size()),
                          {request.tokens.begin(), request.tokens.end()}});
    lock.lock();
    mEnded.wait_for(lock, timeout, [&] { return mOpen != handle; });
    mOpen = mOpen == handle ? 0 : mOpen;
    return mSucceeded == handle;
}

void AtPort::registerName(const std::string& name) {
    std::lock_guard lock(mMutex);
    mRegistered = name;
}

void AtPort::forget() {
    std::lock_guard lock(mMutex);
    mRegistered.clear();
    mOpen = 0;
    mEnded.notify_all();
}

uint64_t AtPort::post() {
    std::lock_guard lock(mMutex);
    mEnded.notify_all();
    return mOpen = ++mLastHandle;
}

bool AtPort::finish(uint64_t handle, bool success) {
    std::lock_guard lock(mMutex);
    if (handle == 0 || handle != mOpen) {
        return false;
    }
    mOpen = 0;
    mSucceeded = success ? handle : mSucceeded;
    mEnded.notify_all();
    return true;
}

void AtPort::show(const std::string& text) const {
    (void)!write(mMaster, text.data(), text.size());
}

std::vector<std::pair<std::string, std::string>> AtPort::describe() const {
    std::lock_guard lock(mMutex);
    return {{"at.port", mPath}, {"at.registered", mRegistered}, {"at.open", std::to_string(mOpen)}};
}

}  // namespace fake
