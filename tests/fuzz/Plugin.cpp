// The plug-in under any sequence of requests, events, answers and callbacks: it keeps its memory
// and lets go of every cookie. What it answers is the schedules' business.

#include <framework/Desk.h>

#include <cstring>
#include <deque>

#include "clients/ModemAsyncCbData.h"
#include "service/ModemImpl.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/ScriptedModem.h"

using namespace vendor::lyr::modem::V1_0;

// Properties stay out of the file system.
int property_set(const char*, const char*) {
    return 0;
}
int property_get(const char*, char* value, const char*) {
    *value = '\0';
    return 0;
}

namespace {

constexpr int EVENTS[] = {0, 1, 2, 15, 17, 18, 19, 20, 22, 23};

Input* sInput = nullptr;

android::hardware::Return<void> receive(uint32_t, hal::Parcel&) {
    return sInput->byte() % 8 == 7 ? android::hardware::Status::fromStatusT(android::DEAD_OBJECT)
                                   : android::hardware::Void();
}

struct Modem {
    Input& input;
    std::deque<ScriptedModem::Call> pending{};

    int call(const ScriptedModem::Call& call) {
        if (strcmp(call.function, "modem_atlog_cmd_reg") == 0) {
            return 0;  // its failure starts a thread
        }
        const int result = input.byte() % 4 == 3;
        if (call.callback != nullptr && result == 0) {
            pending.push_back(call);
        } else if (call.out != nullptr) {
            fill(call);
        }
        return result;
    }

    void fill(const ScriptedModem::Call& call) {
        const std::string function = call.function;
        if (function == "modem_qdp_get_ims_profile") {
            *static_cast<std::pair<modem_ims_profile*, uint8_t*>*>(call.out)->second = input.byte();
        } else if (function.find("_read_") != std::string::npos) {
            auto& [buffer, length] = *static_cast<std::pair<uint8_t*, size_t*>*>(call.out);
            memset(buffer, input.byte(), *length);
            *length = input.byte() * size_t{64};
        } else if (function.find("_load_") == std::string::npos) {
            const std::string value = input.bytes(3);
            memcpy(call.out, value.data(), value.size());
        }
    }

    void answer(const std::string& data) {
        if (!pending.empty()) {
            const ScriptedModem::Call call = pending.front();
            pending.pop_front();
            const std::vector<char> copy(data.begin(), data.end());
            call.callback(copy.data(), copy.size(), call.cookie, 0);
        }
    }
};

/** A few bytes, in a record of their own size, one of the layouts', or one beside it. */
std::string record(Input& input) {
    static constexpr size_t SIZES[] = {4, 8, 12, 24, 132, 140, 272, 519, 548, 549};
    std::string data = input.bytes(input.byte() % 64);
    const size_t choice = input.byte();
    data.resize(choice < std::size(SIZES) ? SIZES[choice] : data.size());
    return data;
}

/** The first bytes are the record's; the rest are the tokens, each up to its NUL. */
void raiseCommand(Input& input) {
    modem_atlog_cmd_type command{};
    command.op_code = input.byte();
    const std::string name = input.bytes(std::min<size_t>(input.byte(), sizeof(command.name)));
    memcpy(command.name, name.data(), name.size());
    command.token_count = input.byte();
    for (size_t i = 0; i < std::min<size_t>(command.token_count, MODEM_ATLOG_TOKENS_MAX); ++i) {
        const uint8_t size = input.byte();
        command.tokens[i] = size != 255 ? strdup(input.bytes(size % 100).c_str()) : nullptr;
    }
    ModemImpl::modemApiEventCallback(2, &command, sizeof(command));
}

void raise(Input& input) {
    const int event = EVENTS[input.byte() % std::size(EVENTS)];
    if (event == 2 && input.byte() % 4 != 0) {
        raiseCommand(input);
        return;
    }
    const std::string data = record(input);
    std::vector<char> copy(data.begin(), data.end());
    // A record of a command's size holds pointers, which are not for a fuzzer to make up.
    copy.resize(event == 2 && copy.size() == sizeof(modem_atlog_cmd_type) ? 1 : copy.size());
    ModemImpl::modemApiEventCallback(event, copy.empty() ? nullptr : copy.data(), copy.size());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    desk::setDelivery(desk::Delivery::STEPS);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    Modem modem{input};
    ScriptedModem& script = ScriptedModem::instance();
    // The last client's failure ends the setup, before a name is published on the machine.
    script.takeCalls([](const auto& call) { return call.arguments == "1, 0"; });
    const auto service = ModemImpl::create(0);
    service->setup();
    script.takeCalls([&modem](const auto& call) { return modem.call(call); });
    hal::InterfaceStub<IModem> stub(service.get());
    sInput = &input;
    static const auto channel = std::make_shared<Channel>(receive);
    static const android::sp<IModemResponse> response(new BpHwModemResponse(channel, 1));
    static const android::sp<IModemIndication> indication(new BpHwModemIndication(channel, 1));
    const auto install = [&](int which) {
        (void)service->setCallback((which & 1) != 0 ? response : nullptr,
                                   (which & 2) != 0 ? indication : nullptr);
    };
    install(3);
    while (!input.isEmpty()) {
        const uint8_t what = input.byte();
        if (what % 8 < 3) {
            // Arguments within the sizes beyond which the process stops by definition.
            const std::string bytes = input.bytes(input.byte() % 124);
            hal::Parcel args(nullptr, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            hal::Parcel reply;
            stub.onTransact(2 + input.byte() % 52, args, reply);
        } else if (what % 8 < 5) {
            raise(input);
        } else if (what % 8 == 5) {
            modem.answer(record(input));
        } else if (what % 8 == 6) {
            desk::step(what);
        } else {
            install(what / 8);
        }
    }
    while (desk::step()) {
    }
    while (!modem.pending.empty()) {
        modem.answer("");
    }
    install(3);  // empties the cache of the process
    script.takeCalls(nullptr);
    return 0;
}
