#include "FakeModem.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <memory>
#include <system_error>

#include "Values.h"
#include "runtime/RuntimeDir.h"
#include "runtime/UnixSocket.h"

namespace {

using Port = std::unique_ptr<FILE, int (*)(FILE*)>;

Port connectPort(int instance, std::chrono::milliseconds timeout) {
    try {
        runtime::UniqueFd port =
                runtime::connectTo(runtime::fakeModemPort(std::to_string(instance)), timeout);
        const timeval limit{timeout.count() / 1000, timeout.count() % 1000 * 1000};
        setsockopt(port.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        return {fdopen(port.release(), "r+"), fclose};
    } catch (const std::system_error& error) {
        throw Failure(NO_SERVICE,
                      std::string("no fake modem: ") + error.what() + howToStart(instance));
    }
}

std::string readLine(FILE* port) {
    std::string line;
    for (int c; (c = getc(port)) != '\n'; line += static_cast<char>(c)) {
        if (c == EOF) {
            throw feof(port) != 0 ? Failure(NO_SERVICE, "the fake modem has gone")
                                  : Failure(NO_ANSWER, "no reply from the fake modem in time");
        }
    }
    return line;
}

}  // namespace

ExitCode runFakeModem(int instance, std::chrono::milliseconds timeout, std::istream& commands,
                      std::ostream& out, bool json) {
    const Port port = connectPort(instance, timeout);
    ExitCode result = ANSWERED;
    for (std::string command; std::getline(commands, command);) {
        command += '\n';
        send(fileno(port.get()), command.data(), command.size(), MSG_NOSIGNAL);
        nlohmann::ordered_json lines = nlohmann::ordered_json::array();
        std::string reply;
        while (reply != "ok" && reply.rfind("error:", 0) != 0) {
            reply = readLine(port.get());
            if (json) {
                lines.push_back(reply);
            } else {
                out << reply << std::endl;
            }
        }
        if (json) {
            command.pop_back();
            out << values::line({{"command", command}, {"reply", lines}}) << std::endl;
        }
        result = reply == "ok" ? result : ANSWERED_ERROR;
    }
    return result;
}
