#pragma once

#include <memory>
#include <utility>

#include <framework/Message.h>

class QmiClient;

/**
 * The cookie of an asynchronous modem call: what its callback needs to finish the request. It
 * belongs to the modem library from the call that accepts it until the callback takes it back.
 */
struct ModemAsyncCbData {
    ModemAsyncCbData(std::shared_ptr<Message> msg, std::shared_ptr<QmiClient> client)
        : msg(std::move(msg)), client(std::move(client)) {}

    std::shared_ptr<Message> msg;       ///< the request; its record gives serial and arguments
    std::shared_ptr<QmiClient> client;  ///< the client that made the call
};
