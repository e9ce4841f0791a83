#include "Simulator.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <memory>

#include "platform/runtime/RuntimeDir.h"

namespace {

using Port = std::unique_ptr<FILE, int (*)(FILE*)>;

Port connectPort(int instance, std::chrono::milliseconds timeout) {
    const std::string path = runtime::simulatorPort(std::to_string(instance));
    const int port = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    const timeval limit{seconds.count(), std::chrono::microseconds(timeout - seconds).count()};
    setsockopt(port, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(port, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        throw Failure(NO_SERVICE, "no simulated modem: " + path + ": " + strerror(errno));
    }
    return {fdopen(port, "r+"), fclose};
}

std::string readLine(FILE* port) {
    std::string line;
    for (int c; (c = getc(port)) != '\n'; line += static_cast<char>(c)) {
        if (c == EOF) {
            throw feof(port) != 0 ? Failure(NO_SERVICE, "the simulated modem has gone")
                                  : Failure(NO_ANSWER, "no reply from the simulated modem in time");
        }
    }
    return line;
}

}  // namespace

ExitCode runSimulator(int instance, std::chrono::milliseconds timeout, std::istream& commands,
                      std::ostream& out) {
    const Port port = connectPort(instance, timeout);
    ExitCode result = ANSWERED;
    for (std::string command; std::getline(commands, command);) {
        command += '\n';
        send(fileno(port.get()), command.data(), command.size(), MSG_NOSIGNAL);
        std::string reply;
        while (reply != "ok" && reply.rfind("error:", 0) != 0) {
            reply = readLine(port.get());
            out << reply << std::endl;
        }
        result = reply == "ok" ? result : ANSWERED_ERROR;
    }
    return result;
}
