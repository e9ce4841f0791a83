#pragma once

#include <algorithm>
#include <stdexcept>
#include <type_traits>

#include "Modem.h"
#include "runtime/ErrorOutput.h"

/** Steps that the functions of the API share. `function` is always the C function's name. */
namespace fake {

constexpr Needs NO_SERVICE{0, false};
constexpr Needs DMS{MODEM_API_QMI_SERVICE_DMS, false};
constexpr Needs NAS{MODEM_API_QMI_SERVICE_NAS, false};
constexpr Needs NAS_BOUND{MODEM_API_QMI_SERVICE_NAS, true};
constexpr Needs WDS{MODEM_API_QMI_SERVICE_WDS, false};
constexpr Needs WDS_BOUND{MODEM_API_QMI_SERVICE_WDS, true};
constexpr Needs AT{MODEM_API_QMI_SERVICE_AT, false};
constexpr Needs SAR{MODEM_API_QMI_SERVICE_SAR, false};
constexpr Needs PDC{MODEM_API_QMI_SERVICE_PDC, false};
constexpr Needs VS{MODEM_API_QMI_SERVICE_VS, false};

/** The API's result for success or failure. */
inline int resultIf(bool success) {
    return success ? MODEM_API_RESULT_SUCCESS : MODEM_API_RESULT_FAILURE;
}

/** Runs `work` and gives its result: success when it returns none, failure when it throws. */
template <class Work, class... Arguments>
int resultOf(Work& work, Arguments&... arguments) {
    try {
        if constexpr (!std::is_void_v<std::invoke_result_t<Work&, Arguments&...>>) {
            return work(arguments...);
        } else {
            work(arguments...);
            return MODEM_API_RESULT_SUCCESS;
        }
    } catch (const std::logic_error& error) {
        runtime::ErrorOutput::get().print("fake modem: %s", error.what());
        return MODEM_API_RESULT_FAILURE;
    }
}

/** A synchronous function of the modem itself. */
template <class Work>
int requestModem(const char* function, Needs needs, Work&& work) {
    Modem& modem = Modem::get();
    const int refused = modem.admit(function, needs, false);
    return refused != 0 ? refused : resultOf(work, modem);
}

/** A synchronous function of the modem's memory. */
template <class Work>
int request(const char* function, Needs needs, Work&& work) {
    return requestModem(function, needs, [&](Modem& modem) {
        return modem.with([&](Memory& memory) { return resultOf(work, memory); });
    });
}

template <class Value>
int readNumber(const char* function, Needs needs, const char* name, Value* value) {
    return request(function, needs, [&](const Memory& memory) {
        *value = static_cast<Value>(valueOf(memory.numbers, name));
    });
}

inline int writeNumber(const char* function, Needs needs, const char* name, int64_t value) {
    return request(function, needs, [&](Memory& memory) { valueOf(memory.numbers, name) = value; });
}

/** An asynchronous function; `work` fills the answer and gives the result in it. */
template <class Work>
int requestAsync(const char* function, void* cookie, modem_api_async_callback callback,
                 Work&& work) {
    Modem& modem = Modem::get();
    const int refused = modem.admit(function, VS, true);
    if (refused == 0) {
        modem_async_response response{};
        response.result = modem.with(
                [&](Memory& memory) { return resultOf(work, memory, response.payload); });
        modem.answer(function, response, cookie, callback);
    }
    return refused;
}

inline int writeNumberAsync(const char* function, const char* name, int64_t value, void* cookie,
                            modem_api_async_callback callback) {
    return requestAsync(function, cookie, callback,
                        [&](Memory& memory, auto&) { valueOf(memory.numbers, name) = value; });
}

/** A function answered by an event; `work` fills the event and gives the result in it. */
template <class Event, class Work>
int requestEvent(const char* function, modem_api_event_type number, int32_t token, Work&& work) {
    Modem& modem = Modem::get();
    const int refused = modem.admit(function, PDC, true);
    if (refused == 0) {
        Event event{};
        event.token = token;
        event.result = modem.with([&](Memory& memory) { return resultOf(work, memory, event); });
        modem.answerByEvent(function, number, &event, sizeof(event));
    }
    return refused;
}

/**
 * Gives `content` out as a read does: as many bytes as fit, and in `length` their number. A fault
 * may make that number greater than the buffer; content that is too large by itself is refused.
 */
inline int produce(const char* function, const void* content, size_t size, void* buffer,
                   size_t* length) {
    if (size > *length) {
        return MODEM_API_RESULT_FAILURE;
    }
    const Bytes bytes = Modem::get().faults().shape(function, content, size);
    std::copy_n(bytes.begin(), std::min(bytes.size(), *length), static_cast<uint8_t*>(buffer));
    *length = bytes.size();
    return MODEM_API_RESULT_SUCCESS;
}

}  // namespace fake
