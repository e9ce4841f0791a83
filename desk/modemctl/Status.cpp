#include "Status.h"

#include <fcntl.h>
#include <hidl/Transport.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>

#include "Api.h"
#include "Session.h"
#include "host/Sharing.h"
#include "runtime/RuntimeDir.h"
#include "runtime/UnixSocket.h"

namespace status {

namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;

/** A service that does not answer is given up after this. */
constexpr auto PATIENCE = 2s;

/** In the order of sharing::Holder. */
constexpr const char* HOLDERS[] = {"nobody, or a program that took them since the last modemctl",
                                   "modemctl", "another program"};

std::string pathOf(int instance) {
    return hal::servicePath(api::REQUESTS.descriptor, sharing::name(instance));
}

/** What comes until the writer closes the pipe, or until the time is over. */
std::string readAll(int pipe) {
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    std::string text;
    std::array<char, 4096> part{};
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd readable{pipe, POLLIN, 0};
        if (poll(&readable, 1, 100) != 1) {
            continue;
        }
        const ssize_t count = read(pipe, part.data(), part.size());
        if (count <= 0) {
            break;
        }
        text.append(part.data(), static_cast<size_t>(count));
    }
    return text;
}

/** What `debug` of the service writes. @throws Failure when there is no service */
std::string debug(int instance, const std::vector<std::string>& options) {
    std::string reason;
    const auto connection = hal::Connection::connect(pathOf(instance), &reason);
    int ends[2];
    if (connection == nullptr) {
        throw Failure(NO_SERVICE, "no service: " + reason + howToStart(instance));
    }
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    const runtime::UniqueFd out(ends[0]);
    runtime::UniqueFd in(ends[1]);
    hal::Parcel arguments;
    arguments.attach(in.get());
    arguments.write(uint32_t(1));
    arguments.write(static_cast<uint32_t>(options.size()));
    for (const std::string& option : options) {
        arguments.writeString(option);
    }
    const auto sent = connection->transact(hal::SERVICE_TARGET, hal::DEBUG_CODE, arguments);
    close(in.release());
    const std::string text = sent.isOk() ? readAll(out.get()) : "";
    connection->close("debug read");
    if (text.empty()) {
        throw Failure(NO_ANSWER, "the service does not tell its state");
    }
    return text;
}

/** Becomes the `adb` that asks a device. @throws Failure when there is no `adb` */
[[noreturn]] void debugDevice(const std::string& serial, int instance, const Words& form) {
    Words words{"adb"};
    if (!serial.empty()) {
        words.insert(words.end(), {"-s", serial});
    }
    const std::string name = api::REQUESTS.descriptor + ("/" + sharing::name(instance));
    words.insert(words.end(), {"shell", "lshal", "debug", name});
    words.insert(words.end(), form.begin(), form.end());
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execvp("adb", arguments.data());
    throw Failure(NO_SERVICE, std::string("cannot run adb: ") + strerror(errno));
}

/** Who holds the callbacks, as far as the host has seen. */
sharing::Holder holderOf(int instance) {
    const auto connection = hal::Connection::connect(sharingPath(instance), nullptr);
    hal::Parcel none;
    hal::Parcel reply;
    uint32_t holder = sharing::ANOTHER;
    if (connection != nullptr) {
        (void)connection->transact(hal::SERVICE_TARGET, sharing::HOLDS, none, &reply).isOk();
        (void)reply.read(&holder);
        connection->close("asked");
    }
    return static_cast<sharing::Holder>(holder);
}

ordered_json portOf(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored) ? ordered_json(path) : ordered_json();
}

ordered_json read(int instance) {
    const std::string number = std::to_string(instance);
    ordered_json state{{"instance", instance}, {"process", nullptr}};
    const std::string path = pathOf(instance);
    if (const Peer peer = peerAt(path); peer.process != 0) {
        state["process"] = peer.process;
        state["callbacks"] = HOLDERS[holderOf(instance) % std::size(HOLDERS)];
        state["textPort"] = portOf(runtime::fakeModemPort(number));
        state["atPort"] = portOf(runtime::atPort(number));
        try {
            state["service"] = ordered_json::parse(debug(instance, {"json"}), nullptr, false);
            for (ordered_json& client : state["service"]["clients"]) {
                if (client.contains("bound") && !client["connected"].get<bool>()) {
                    client["bound"] = false;  // the service forgets it when it is connected again
                }
            }
        } catch (const Failure& failure) {
            state["trouble"] = failure.what();
        }
    } else if (!peer.isAbsence) {
        state["trouble"] = peer.reason;
    }
    return state;
}

void printText(const ordered_json& state) {
    std::cout << "instance " << state["instance"];
    if (state["process"].is_null()) {
        std::cout << (state.contains("trouble") ? "  " + state["trouble"].get<std::string>()
                                                : "  not served" + howToStart(state["instance"]))
                  << '\n';
        return;
    }
    const auto text = [](const ordered_json& path) {
        return path.is_string() ? path.get<std::string>() : "none";
    };
    std::cout << "  process " << state["process"] << "\n  callbacks  "
              << state["callbacks"].get<std::string>() << "\n  text port  "
              << text(state["textPort"]) << "\n  AT port    " << text(state["atPort"]) << '\n';
    if (state.contains("trouble")) {
        std::cout << "  " << state["trouble"].get<std::string>() << '\n';
        return;
    }
    for (const ordered_json& client : state["service"].value("clients", ordered_json::array())) {
        const bool connected = client.value("connected", false);
        std::cout << "  " << client["name"].get<std::string>() << ": "
                  << (!client.value("present", false) ? "absent"
                      : !connected                    ? "not connected"
                      : client.value("bound", false)  ? "connected, bound"
                      : client.contains("bound")      ? "connected, not bound"
                                                      : "connected")
                  << '\n';
    }
}

}  // namespace

ExitCode print(bool json, int asked) {
    ExitCode result = ANSWERED;
    for (const int instance : {0, 1}) {
        const ordered_json state = read(instance);
        if (instance == asked && !state.contains("service")) {
            result = NO_SERVICE;
        }
        if (json) {
            std::cout << state.dump() << '\n';
        } else {
            printText(state);
        }
    }
    std::cout << std::flush;
    return result;
}

ExitCode wait(int instance, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    const std::string path = sharingPath(instance);  // there when the service answers
    for (Peer peer = peerAt(path); peer.process == 0; peer = peerAt(path)) {
        if (!peer.isAbsence || std::chrono::steady_clock::now() > deadline) {
            throw Failure(NO_SERVICE, "no service: " + peer.reason + howToStart(instance));
        }
        std::this_thread::sleep_for(20ms);
    }
    return ANSWERED;
}

ExitCode printDebug(const Options& options) {
    const Words form = options.json ? Words{"json"} : Words();
    if (options.device) {
        debugDevice(*options.device, options.instance, form);
    }
    std::cout << debug(options.instance, form) << std::flush;
    return ANSWERED;
}

}  // namespace status
