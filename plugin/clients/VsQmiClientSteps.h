#pragma once

// The steps of asynchronous requests, for the sources of the VS client alone.

#include <algorithm>
#include <cstring>

#include "clients/VsQmiClient.h"

/** The text in a field of a modem record: it ends at the first NUL, or at the field's end. */
template <size_t Size>
std::string textOf(const char (&field)[Size], size_t length = Size) {
    return std::string(field, strnlen(field, std::min(length, Size)));
}

template <class Record, class Call, class... Payload>
int VsQmiClient::serveAsync(const char* func, const MessagePtr& msg, const Call& call,
                            Respond<Payload...> respond) {
    const Record* request = takeRecord<Record>(func, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    const Errno err = sendAsync(func, msg, [&](void* cookie) { return call(*request, cookie); });
    return err == ERRNO_SUCCESS ? err
                                : answer(respond, request->serial, err, std::decay_t<Payload>{}...);
}

template <class Extract, class Payload>
int VsQmiClient::finish(const char* func, const void* data, size_t length,
                        const SerialParam& request, Respond<Payload> respond,
                        const Extract& extract) {
    std::decay_t<Payload> payload{};
    const Errno err =
            readAsyncResponse(func, data, length, [&](const modem_async_response& reported) {
                return extract(reported.payload, payload);
            });
    return answer(respond, request.serial, err, payload);
}
