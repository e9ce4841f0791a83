#include "tests/schedules/World.h"

#include <cutils/properties.h>
#include <framework/Desk.h>
#include <vendor/lyr/modem/1.0/transport.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "tests/support/Allocations.h"
#include "tests/support/Channel.h"

using android::hardware::Return;
using android::hardware::Status;
using vendor::lyr::modem::V1_0::BpHwModemIndication;
using vendor::lyr::modem::V1_0::BpHwModemResponse;
using Kind = hal::Type::Kind;

std::array<uint64_t, static_cast<size_t>(Fault::COUNT)> faults{};

namespace {

constexpr int SERVICES[] = {WDS, DMS, NAS, AT, SAR, PDC, VS, 231, 99};
constexpr int64_t NUMBERS[] = {0, 1, 2, 3, -1, 5, 127, 128, 255, 256, INT32_MAX, INT32_MIN};
constexpr int RESULTS[] = {1, 3, 5, 9, -1};
constexpr size_t SIZES[] = {0, 1, 2, 3, 8, 15, 16, 124, 130};

struct EventLayout {
    int number;
    size_t size;
};
constexpr EventLayout EVENTS[] = {{0, 4},  {1, 4},    {2, 520},  {15, 24}, {19, 132},
                                  {20, 8}, {17, 140}, {18, 272}, {22, 12}};

World* sWorld = nullptr;

/** Callbacks of the clients, for every world: whatever comes there is the present one's. */
struct Client {
    explicit Client(int number)
        : response(new BpHwModemResponse(channel(Deed::ANSWER, number), 1)),
          indication(new BpHwModemIndication(channel(Deed::INDICATION, number), 1)) {}

    static std::shared_ptr<Channel> channel(Deed::Kind kind, int number) {
        return std::make_shared<Channel>([kind, number](uint32_t code, hal::Parcel& args) {
            return sWorld->receive(kind, number, code, args);
        });
    }

    const android::sp<vendor::lyr::modem::V1_0::IModemResponse> response;
    const android::sp<vendor::lyr::modem::V1_0::IModemIndication> indication;
};

Client& client(int number) {
    static Client clients[World::CLIENTS] = {Client(0), Client(1)};
    return clients[number];
}

bool isBind(const std::string& function) {
    return function.rfind("modem_api_bind_", 0) == 0;
}

template <class Items>
auto& oneOf(World& world, Items& items) {
    return items[world.below(std::size(items))];
}

}  // namespace

// The plug-in's properties go to the modem's double, in place of the library's files.
int property_set(const char* key, const char* value) {
    const allocations::Pause pause;
    return ScriptedModem::instance().enter(
            {"property_set", std::string(key) + ", " + value, nullptr});
}

int property_get(const char*, char* value, const char*) {
    *value = '\0';
    return 0;
}

World::World(uint64_t seed, std::vector<Deed>& deeds)
    : mRandom(seed),
      mDeeds(deeds),
      mInstance(below(8) == 0),
      mRefusesOneIn(oneOf(*this, (const int[]){2, 8, 1000})),
      mBindFailsOneIn(oneOf(*this, (const int[]){1, 2, 1000})),
      mSerial(static_cast<int32_t>(mRandom() << 8)) {
    desk::setDelivery(desk::Delivery::STEPS);
    ScriptedModem& modem = ScriptedModem::instance();
    // The last client's failure ends the setup, before a name is published on the machine.
    modem.takeCalls([](const auto& call) { return call.arguments == "1, 0"; });
    mService = ModemImpl::create(mInstance);
    mService->setup();
    modem.takeCalls([this](const auto& call) { return this->call(call); });
    mStub = new hal::InterfaceStub<vendor::lyr::modem::V1_0::IModem>(mService.get());
    sWorld = this;
}

World::~World() {
    while (desk::step()) {
    }
    for (const Pending& pending : std::exchange(mPending, {})) {
        pending.callback(nullptr, 0, pending.cookie, 0);
    }
    (void)mService->setCallback(nullptr, client(0).indication);  // empties the cache of the process
    (void)mService->setCallback(nullptr, nullptr);
    desk::setQueueLimit(1024);
    ScriptedModem::instance().takeCalls(nullptr);
}

// ---- What is done to the plug-in ----------------------------------------------------------------

std::string World::bytes(size_t size) {
    std::string bytes(size, static_cast<char>(mRandom()));
    for (size_t i = 0; i < std::min<size_t>(size, 16); ++i) {
        bytes[i] = static_cast<char>(mRandom());
    }
    return bytes;
}

/** Mostly of the usual size; otherwise too short, too long, or none. */
std::string World::oddBytes(size_t usual) {
    const size_t sizes[] = {0, usual - 1, usual + 1, usual + 200};
    return bytes(chance(6) ? oneOf(*this, sizes) : usual);
}

Value World::drawValue(const hal::Field& field) {
    const int64_t number = below(2) == 0 ? oneOf(*this, NUMBERS) : static_cast<int>(mRandom());
    switch (field.type->kind) {
        case Kind::INT32:
            return {static_cast<int32_t>(number), ""};
        case Kind::UINT32:
            return {static_cast<uint32_t>(number), ""};
        case Kind::UINT8:
            return {static_cast<uint8_t>(number), ""};
        default:
            break;
    }
    if (field.name == std::string("path")) {
        static const std::string FILES[] = {"empty", "one", "full", "long", "missing"};
        return {0, oneOf(*this, FILES)};
    }
    Value value{0, bytes(below(40) == 0 ? 510 : oneOf(*this, SIZES))};
    if (field.type->kind == Kind::STRING && below(4) != 0) {
        std::replace(value.bytes.begin(), value.bytes.end(), '\0', 'n');
    }
    return value;
}

Action World::drawRequest() {
    Action action{Action::REQUEST, &oneOf(*this, requests()), mSerial++};
    for (size_t i = 1; i < action.request->method->argCount; ++i) {
        action.args.push_back(drawValue(action.request->method->args[i]));
    }
    return action;
}

Record World::drawRecord() {
    modem_async_response response{};
    const std::string text = bytes(oneOf(*this, SIZES));
    text.copy(response.payload.build.text, 500);
    response.payload.build.length = static_cast<uint32_t>(text.size());
    if (chance(4)) {
        response.result = oneOf(*this, RESULTS);
        strike(Fault::ANSWER_BAD_RESULT);
    }
    if (below(2) == 0) {
        modem_bands_info& bands = response.payload.bands;
        uint32_t* counts[] = {&bands.count1, &bands.count2, &bands.count3, &bands.count4,
                              &bands.count5};
        memset(&bands, 3, sizeof(bands));
        for (uint32_t* count : counts) {
            static constexpr uint32_t COUNTS[] = {0,  1,  2,  19,         20,
                                                  21, 50, 51, UINT32_MAX, 1U << 31};
            *count = oneOf(*this, COUNTS);
        }
    } else if (chance(4)) {
        memset(response.payload.bytes, 'v', sizeof(response.payload.bytes));
        static constexpr uint32_t LENGTHS[] = {255, 256, 540, UINT32_MAX};
        response.payload.build.length = oneOf(*this, LENGTHS);
        strike(Fault::ODD_PAYLOAD);
    }
    Record record{chance(12), {reinterpret_cast<char*>(&response), sizeof(response)}};
    if (chance(12)) {
        record.bytes.resize(sizeof(response) + (below(2) == 0 ? 1 : -1));
    }
    if (record.isNull || record.bytes.size() != sizeof(response)) {
        strike(Fault::ANSWER_BAD_RECORD);
    }
    return record;
}

Action World::drawEvent() {
    Action action{Action::EVENT};
    if (chance(30)) {
        action.number = oneOf(*this, (const int[]){3, 16, 23, -1});
        return action;
    }
    const EventLayout& layout = oneOf(*this, EVENTS);
    action.number = layout.number;
    std::string& data = action.record.bytes = oddBytes(layout.size);
    const auto put = [&](size_t at, auto value) {
        data.replace(std::min(at, data.size()), sizeof(value), reinterpret_cast<char*>(&value),
                     std::min(sizeof(value), data.size() - std::min(at, data.size())));
    };
    const auto* owed = std::find(std::begin(TOKEN_EVENTS), std::end(TOKEN_EVENTS), layout.number);
    if (layout.number <= 1) {
        put(0, oneOf(*this, SERVICES));
    } else if (owed != std::end(TOKEN_EVENTS)) {
        const auto& serials = tokens[owed - TOKEN_EVENTS];
        put(0, chance(3) ? oneOf(*this, RESULTS) : 0);
        put(8, serials.empty() || chance(5) ? -static_cast<int>(below(9)) : oneOf(*this, serials));
        static constexpr uint32_t LENGTHS[] = {0, 1, 2, 124, 125, 256, 260, UINT32_MAX};
        put(layout.size - 4, layout.number == 22 ? -5 : oneOf(*this, LENGTHS));
    } else if (layout.number == 2 && data.size() == layout.size) {
        static const char* const NAMES[] = {"+LOG", "+LOG", "+log", "+LOGS"};
        static const char* const TEXTS[] = {"1", "0", "1", "tc7", "", "x"};
        modem_atlog_cmd_type command{mRandom(), chance(9) ? 10U : 11U, {}, 0, {}};
        strcpy(command.name, oneOf(*this, NAMES));
        command.token_count = static_cast<uint16_t>(below(5));
        for (int i = 0; i < command.token_count; ++i) {
            action.tokens.emplace_back(oneOf(*this, TEXTS));
            if (chance(9)) {
                action.tokens.back().reset();
            }
        }
        data.assign(reinterpret_cast<char*>(&command), sizeof(command));
    }
    action.record.isNull = chance(20);
    return action;
}

Action World::draw() {
    Action action{Action::STEP};
    const uint64_t dice = below(100);
    if (dice < 36) {
        action = drawRequest();
    } else if (dice < 68) {
        action.number = mRandom();
    } else if (dice < 78) {
        action = {Action::ANSWER};
        action.number = below(mPending.size());
        action.record = drawRecord();
    } else if (dice < 90) {
        action = drawEvent();
    } else if (dice < 96) {
        action = {Action::INSTALL};
        action.response =
                static_cast<int>(below(CLIENTS + 2)) % (CLIENTS + 1) - (chance(3) ? 1 : 0);
        action.response = std::min(action.response, CLIENTS - 1);
        action.indication = std::min(static_cast<int>(below(CLIENTS + 1)), CLIENTS) - 1;
    } else if (dice < 98) {
        action = {Action::QUEUE_LIMIT};
        action.number = below(3) == 0 ? below(4) : 1024;
    } else {
        action = {Action::TRANSPORT};
        action.number = below(2 * CLIENTS);
    }
    if (chance(10)) {
        action.failing = below(4);
    }
    return action;
}

void World::perform(const Action& action) {
    if (mDepth == 0) {
        mArmed = action.failing != SIZE_MAX;
        mStruck = false;
    }
    const bool isHandled = action.kind == Action::REQUEST || action.kind == Action::STEP;
    if (mArmed) {
        // The plug-in's own allocations begin with its first line; what the stub takes is not its.
        desk::setLogSink([this, isHandled](int, const char*, const char* line) {
            const bool isFirst = strncmp(line, "ModemImpl::", 11) == 0 ||
                                 (strstr(line, " is handling message: ") != nullptr &&
                                  strstr(line, "AtQmiClient") == nullptr);
            if (isHandled && isFirst) {
                arm();
            } else if (strstr(line, "exception = no memory") != nullptr) {
                const allocations::Pause pause;
                mDeeds.push_back({Deed::LOST});
            }
        });
        allocations::start();
        mFailing = action.failing;
    }
    switch (action.kind) {
        case Action::REQUEST: {
            hal::Parcel args;
            args.write(action.serial);
            for (size_t i = 0; i < action.args.size(); ++i) {
                const Kind kind = action.request->method->args[i + 1].type->kind;
                if (kind == Kind::UINT8) {
                    args.write(static_cast<uint8_t>(action.args[i].number));
                } else if (kind == Kind::INT32 || kind == Kind::UINT32) {
                    args.write(static_cast<uint32_t>(action.args[i].number));
                } else {
                    args.writeString(action.args[i].bytes);
                }
            }
            hal::Parcel read(nullptr, args.data(), args.size()), reply;
            mStub->onTransact(action.request->method->code, read, reply);
            break;
        }
        case Action::STEP:
            desk::step(action.number);
            break;
        case Action::ANSWER:
            if (!mPending.empty()) {
                const Pending pending = mPending[action.number];
                mPending.erase(mPending.begin() + static_cast<ptrdiff_t>(action.number));
                answer(pending, action.record);
            }
            break;
        case Action::EVENT:
            raise(action);
            break;
        case Action::INSTALL:
            arm();
            (void)mService->setCallback(
                    action.response < 0 ? nullptr : client(action.response).response,
                    action.indication < 0 ? nullptr : client(action.indication).indication);
            break;
        case Action::QUEUE_LIMIT:
            desk::setQueueLimit(action.number);
            break;
        case Action::TRANSPORT:
            mTransportFails[action.number / 2] = action.number % 2 == 0;
            break;
    }
    if (mArmed && mDepth == 0) {
        allocations::stop();
        mStruck = allocations::failed();
        desk::setLogSink(nullptr);
    }
}

/** From here on the allocations are the plug-in's; not for an answer from inside a step. */
void World::arm() {
    if (mArmed && mFailing != SIZE_MAX) {
        allocations::start(std::exchange(mFailing, SIZE_MAX));
    }
}

void World::answer(const Pending& pending, const Record& record) {
    mGone.push_back(pending.message);
    const std::vector<char> copy(record.bytes.begin(), record.bytes.end());
    arm();
    pending.callback(record.isNull ? nullptr : copy.data(), copy.size(), pending.cookie, 1);
}

void World::raise(const Action& action) {
    if (!action.tokens.empty()) {
        raiseCommand(action);
        return;
    }
    std::vector<char> copy(action.record.bytes.begin(), action.record.bytes.end());
    arm();
    ModemImpl::modemApiEventCallback(static_cast<int>(action.number),
                                     action.record.isNull ? nullptr : copy.data(), copy.size());
}

/** The token strings are the plug-in's, unless nobody there sees the command. */
void World::raiseCommand(const Action& action) {
    modem_atlog_cmd_type command;
    memcpy(&command, action.record.bytes.data(), sizeof(command));
    for (size_t i = 0; i < action.tokens.size(); ++i) {
        command.tokens[i] = action.tokens[i] ? strdup(action.tokens[i]->c_str()) : nullptr;
    }
    const bool isSeen = !action.record.isNull && mInstance == 0;
    arm();
    ModemImpl::modemApiEventCallback(2, action.record.isNull ? nullptr : &command, sizeof(command));
    for (size_t i = 0; i < (isSeen ? 0 : action.tokens.size()); ++i) {
        free(command.tokens[i]);
    }
}

void World::checkCookies() {
    for (const auto& message : std::exchange(mGone, {})) {
        if (!message.expired()) {
            throw std::runtime_error("a cookie was not freed with its answer");
        }
    }
    for (const Pending& pending : mPending) {
        if (pending.message.expired()) {
            throw std::runtime_error("a cookie that the modem owns was freed");
        }
    }
}

// ---- What the plug-in does ----------------------------------------------------------------------

int World::call(const ScriptedModem::Call& call) {
    Deed deed{Deed::CALL};
    deed.text = call.function + ("(" + call.arguments + ")");
    const bool bind = isBind(call.function);
    // A registration that fails starts a thread, which has a test of its own.
    const bool canFail = strcmp(call.function, "modem_atlog_cmd_reg") != 0;
    if (canFail && chance(bind ? mBindFailsOneIn : mRefusesOneIn)) {
        deed.result = oneOf(*this, RESULTS);
        strike(bind                                         ? Fault::BIND_FAILS
               : strcmp(call.function, "property_set") == 0 ? Fault::PROPERTY_NOT_WRITTEN
                                                            : Fault::MODEM_REFUSES);
    }
    if (bind) {
        const int service = call.function[15] == 'n' ? NAS : call.function[15] == 'w' ? WDS : VS;
        deed.connected = ModemImpl::getQmiClient(service)->isConnected();
    }
    if (call.out != nullptr) {
        fill(call, deed);
    }
    const int result = deed.result;
    if (call.callback == nullptr) {
        mDeeds.push_back(std::move(deed));
        return result;
    }
    const Pending pending{call.cookie, call.callback,
                          static_cast<ModemAsyncCbData*>(call.cookie)->msg};
    if (result != 0) {
        mGone.push_back(pending.message);
        mDeeds.push_back(std::move(deed));
    } else if (below(4) == 0) {
        deed.early = drawRecord();
        mDeeds.push_back(deed);
        strike(Fault::ANSWER_INSIDE_THE_CALL);
        answer(pending, *deed.early);
    } else {
        mPending.push_back(pending);
        mDeeds.push_back(std::move(deed));
    }
    return result;
}

/** Writes what the function is to give, now and then also when it fails. */
void World::fill(const ScriptedModem::Call& call, Deed& deed) {
    const std::string function = call.function;
    if (deed.result != 0 && below(2) == 0) {
        return;
    }
    if (function == "modem_pdc_load_configuration") {
        deed.given = *static_cast<std::string*>(call.out);
    } else if (function == "modem_qdp_get_ims_profile") {
        auto& [list, count] = *static_cast<std::pair<modem_ims_profile*, uint8_t*>*>(call.out);
        *count = oneOf(*this, (const uint8_t[]){0, 1, 2, 3, 23, 24, 25, 255});
        deed.given = bytes(MODEM_IMS_PROFILE_MAX * sizeof(*list));
        memcpy(list, deed.given.data(), deed.given.size());
        deed.given.resize(std::min<size_t>(*count, MODEM_IMS_PROFILE_MAX) * sizeof(*list));
    } else if (function.find("_read_") != std::string::npos) {
        auto& [buffer, length] = *static_cast<std::pair<uint8_t*, size_t*>*>(call.out);
        const size_t lengths[] = {0, 1, 2, 20, *length, *length + 1, SIZE_MAX};
        const size_t size = lengths[below(below(8) == 0 ? 7 : 4)];
        deed.given = bytes(std::min(size, *length));
        memcpy(buffer, deed.given.data(), deed.given.size());
        *length = size;
    } else {
        const bool isRecord =
                function == "modem_verify_nv" || function.find("_info") != std::string::npos;
        deed.given = bytes(isRecord ? 3 : 4);
        for (char& byte : deed.given) {
            byte = below(2) == 0 ? '\0' : byte;
        }
        memcpy(call.out, deed.given.data(), deed.given.size());
    }
}

Return<void> World::receive(Deed::Kind kind, int client, uint32_t code, hal::Parcel& args) {
    const allocations::Pause pause;
    Deed deed{kind, client, code, {reinterpret_cast<const char*>(args.data()), args.size()}};
    deed.result = mTransportFails[client];
    const bool acts = deed.result == 0 && !mArmed && mDepth < 3 && chance(9);
    if (acts) {
        deed.inside = below(2) == 0 ? drawRequest() : Action{Action::INSTALL};
        deed.inside->response = static_cast<int>(below(CLIENTS + 1)) - 1;
        deed.inside->indication = static_cast<int>(below(CLIENTS + 1)) - 1;
    }
    mDeeds.push_back(deed);
    if (acts) {
        ++mDepth;
        perform(*deed.inside);
        --mDepth;
    }
    return deed.result == 0 ? Return<void>(Status())
                            : Status::fromStatusT(android::DEAD_OBJECT, "gone");
}
