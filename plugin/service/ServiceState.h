#pragma once

#include <string>
#include <vector>

#include "clients/QmiClient.h"

/** The service's state at one moment, and how it is shown to a person or to a program. */
struct ServiceState {
    struct Client {
        const char* name = nullptr;  ///< short name of the QMI service
        bool present = false;        ///< false on an instance without this client; no state then
        ClientState state;
    };

    int instanceId = 0;
    bool answers = false;      ///< a callback for answers is installed
    bool indications = false;  ///< a callback for events is installed
    bool keptRrcState = false;
    bool keptPowerSaveMode = false;
    std::vector<Client> clients;
};

/** A few lines with a table of the clients. */
std::string toText(const ServiceState& state);

/** One JSON object in one line. */
std::string toJson(const ServiceState& state);

/**
 * Writes a text to a descriptor without ever waiting for its reader; a reader that has gone does
 * not end the process by SIGPIPE. Runs on any thread.
 *
 * @param text at most 4096 bytes, which a pipe takes whole or not at all
 * @return 0, or the errno of what could not be written; EAGAIN when there is no room for it now
 */
int writeAtOnce(int fd, const std::string& text);
