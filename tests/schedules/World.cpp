#include "tests/schedules/World.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>

World::World(Random random, std::vector<Effect>& effects)
    : mRandom(std::move(random)),
      mEffects(effects),
      mInstance(below(8) == 0),
      mRefusesOneIn(oneOf({2, 8, 1000})),
      mBindFailsOneIn(oneOf({1, 2, 1000})),
      mSerial(static_cast<int32_t>(mRandom() << 8)) {
    sWorld = this;
    desk::setDelivery(desk::Delivery::STEPS);
    // The last client's failure ends the setup, before a name is published on the machine.
    mModem.takeCalls([](const auto& call) { return call.arguments == "1, 0"; });
    mService = ModemImpl::create(mInstance);
    mService->setup();
    mStub = new hal::InterfaceStub<vendor::lyr::modem::V1_0::IModem>(mService.get());
    mModem.takeCalls([this](const auto& call) { return take(call); });
}

World::~World() {
    while (desk::step()) {
    }
    for (const Pending& pending : std::exchange(mPending, {})) {
        pending.callback(nullptr, 0, pending.cookie, 0);
    }
    perform({Action::INSTALL, 0, {}, nullptr, 0, {}, {}, -1, 0});  // empties the cache
    desk::setQueueLimit(1024);
    mModem.takeCalls(nullptr);
}

Action World::draw() {
    Action action{Action::STEP, mRandom()};
    const uint64_t dice = below(100);
    if (dice < 36) {
        action = drawRequest();
    } else if (dice >= 68 && dice < 78) {
        action = {Action::ANSWER, below(mPending.size()), drawRecord()};
    } else if (dice >= 78 && dice < 90) {
        action = drawEvent();
    } else if (dice >= 90 && dice < 96) {
        action = {Action::INSTALL};
        action.response = oneOf({0, 0, 1, 1, -1});
        action.indication = oneOf({0, 1, -1});
    } else if (dice >= 96) {
        const bool isLimit = dice < 98;
        action = {isLimit ? Action::QUEUE_LIMIT : Action::TRANSPORT,
                  isLimit ? oneOf<uint64_t>({0, 1, 2, 3, 1024, 1024}) : below(2 * CLIENTS)};
    }
    action.failing = chance(8) ? below(4) : SIZE_MAX;
    return action;
}

void World::perform(const Action& action) {
    const bool isOuter = mDepth == 0;
    if (isOuter && action.failing != SIZE_MAX) {
        prepareFailure(action);
    }
    switch (action.kind) {
        case Action::REQUEST:
            request(action);
            break;
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
    if (isOuter) {
        allocations::stop();
        mStruck = mArmed && allocations::failed();
        desk::setLogSink(nullptr);
        mArmed = false;
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

World::Client& World::client(int number) {
    static Client clients[CLIENTS] = {Client(0), Client(1)};
    return clients[number];
}

std::string World::bytes(size_t size) {
    std::string bytes(size, '\0');
    std::minstd_rand rest(static_cast<uint32_t>(mRandom()));
    const auto own = std::min<size_t>(size, 16);
    std::generate_n(bytes.begin(), own, [this] { return mRandom(); });
    std::generate_n(bytes.begin() + static_cast<ptrdiff_t>(own), size - own,
                    [&rest] { return rest() >> 8; });
    return bytes;
}

std::string World::words(size_t size) {
    std::string words = bytes(size);
    const uint64_t zeros = mRandom() & mRandom();
    for (size_t at = 0; at < size; ++at) {
        words[at] = (zeros >> (at / 4 % 8) & 1) != 0 ? '\0' : words[at];
    }
    return words;
}

size_t World::size() {
    return oneOf<size_t>({0,   1,   2,   3,   8,   15,  16,  63,  64,  65,  123,
                          124, 125, 130, 255, 256, 510, 511, 512, 513, 516, below(700)});
}

Action World::drawRequest() {
    Action action{Action::REQUEST};
    action.request = &requests()[below(requests().size())];
    action.serial = mSerial++;
    for (size_t i = 1; i < action.request->method->argCount; ++i) {
        action.args.push_back(drawValue(action.request->method->args[i]));
    }
    return action;
}

Value World::drawValue(const hal::Field& field) {
    using Kind = hal::Type::Kind;
    const int64_t number = below(2) == 0 ? oneOf({0, 1, -1, 127, 128, 255, INT32_MAX, INT32_MIN})
                                         : static_cast<int32_t>(mRandom());
    switch (field.type->kind) {
        case Kind::INT32:
            return {number};
        case Kind::UINT32:
            return {static_cast<uint32_t>(number)};
        case Kind::UINT8:
            return {static_cast<uint8_t>(number)};
        default:
            break;
    }
    if (field.name == std::string("path")) {
        return {0, oneOf({"empty", "one", "full", "long", "missing"})};
    }
    const bool isText = field.type->kind == Kind::STRING;
    // A longer property ends the process by definition, which has a test of its own.
    Value value{0, bytes(isText ? std::min<size_t>(size(), 516) : size())};
    if (isText && below(4) != 0) {
        std::replace(value.bytes.begin(), value.bytes.end(), '\0', 'n');
    }
    return value;
}

Record World::drawRecord() {
    modem_async_response response{};
    const std::string payload = words(sizeof(response.payload));
    memcpy(response.payload.bytes, payload.data(), payload.size());
    if (below(2) == 0) {
        modem_bands_info& bands = response.payload.bands;
        for (uint32_t* count :
             {&bands.count1, &bands.count2, &bands.count3, &bands.count4, &bands.count5}) {
            *count = oneOf<uint32_t>({0, 1, 2, 19, 20, 21, 50, 51, UINT32_MAX, 1U << 31});
        }
    } else {
        std::string text = bytes(std::min<size_t>(size(), 535));
        std::replace(text.begin(), text.end(), '\0', 'v');
        text.copy(response.payload.build.text, text.size());
        const bool isOther = chance(4);
        const auto length = static_cast<uint32_t>(text.size());
        response.payload.build.length =
                isOther ? oneOf<uint32_t>({255, 256, 540, UINT32_MAX}) : length;
    }
    response.result = chance(4) ? result() : 0;
    Record record{chance(12), {reinterpret_cast<char*>(&response), sizeof(response)}};
    record.bytes.resize(sizeof(response) + (chance(12) ? oneOf({-1, 1}) : 0));
    return record;
}

Action World::drawEvent() {
    static constexpr std::pair<int, size_t> LAYOUTS[] = {
            {0, 4}, {1, 4}, {2, 520}, {15, 24}, {19, 132}, {20, 8}, {17, 140}, {18, 272}, {22, 12}};
    const auto [number, usual] = LAYOUTS[below(std::size(LAYOUTS))];
    Action action{Action::EVENT, static_cast<uint64_t>(number)};
    std::string& data = action.record.bytes;
    data = words(chance(6) ? oneOf<size_t>({0, usual - 1, usual + 1, usual + 200}) : usual);
    action.record.isNull = chance(20);
    const auto put = [&data = data](size_t at, int value) {
        memcpy(data.data() + std::min(at, data.size()), &value,
               std::min(sizeof(value), data.size() - std::min(at, data.size())));
    };
    const auto* kind = std::find(std::begin(TOKEN_EVENTS), std::end(TOKEN_EVENTS), number);
    if (number <= 1) {
        put(0, oneOf<int>({WDS, DMS, NAS, AT, SAR, PDC, VS, 231, 99}));
    } else if (kind != std::end(TOKEN_EVENTS)) {
        const auto& pending = tokens[kind - TOKEN_EVENTS];
        put(usual - 4, oneOf({0, 1, 2, 124, 125, 256, 260, -1}));
        put(0, chance(3) ? result() : 0);
        put(8, pending.empty() || chance(5) ? -static_cast<int>(below(9))
                                            : pending[below(pending.size())]);
    } else if (number == 2 && data.size() == usual) {
        drawCommand(action);
    } else if (chance(20)) {
        action.number = oneOf<uint64_t>({3, 16, 23, UINT32_MAX});
    }
    return action;
}

void World::drawCommand(Action& action) {
    modem_atlog_cmd_type command{mRandom(), chance(9) ? 10U : 11U, {}, 0, {}};
    strcpy(command.name, oneOf({"+LOG", "+LOG", "+log", "+LOGS"}));
    command.token_count = static_cast<uint16_t>(below(5));
    for (int i = 0; i < command.token_count; ++i) {
        action.tokens.emplace_back(oneOf({"1", "0", "1", "tc7", "", "x"}));
        if (chance(9)) {
            action.tokens.back().reset();
        }
    }
    action.record.bytes.assign(reinterpret_cast<char*>(&command), sizeof(command));
}

void World::prepareFailure(const Action& action) {
    mArmed = true;
    mFailing = action.failing;
    const bool isHandled = action.kind == Action::REQUEST || action.kind == Action::STEP;
    desk::setLogSink([this, isHandled](int, const char*, const char* line) {
        const bool isFirst = strncmp(line, "ModemImpl::", 11) == 0 ||
                             (strstr(line, " is handling message: ") != nullptr &&
                              strstr(line, "AtQmiClient") == nullptr);
        if (isHandled && isFirst) {
            arm();
        } else if (strstr(line, "exception = no memory") != nullptr) {
            const allocations::Pause pause;
            mEffects.push_back({Effect::LOST});
        }
    });
    allocations::start();
}

void World::arm() {
    if (mArmed && mFailing != SIZE_MAX) {
        allocations::start(std::exchange(mFailing, SIZE_MAX));
    }
}

void World::request(const Action& action) {
    using Kind = hal::Type::Kind;
    hal::Parcel args, reply;
    args.write(action.serial);
    for (size_t i = 0; i < action.args.size(); ++i) {
        const Kind kind = action.request->method->args[i + 1].type->kind;
        if (kind == Kind::UINT8) {
            args.write(static_cast<uint8_t>(action.args[i].number));
        } else if (kind < Kind::STRING) {
            args.write(static_cast<uint32_t>(action.args[i].number));
        } else {
            args.writeString(action.args[i].bytes);
        }
    }
    hal::Parcel read(nullptr, args.data(), args.size());
    mStub->onTransact(action.request->method->code, read, reply);
}

void World::answer(const Pending& pending, const Record& record) {
    mGone.push_back(pending.message);
    const std::vector<char> copy(record.bytes.begin(), record.bytes.end());
    arm();
    pending.callback(record.isNull ? nullptr : copy.data(), copy.size(), pending.cookie, 1);
}

void World::raise(const Action& action) {
    std::vector<char> copy(action.record.bytes.begin(), action.record.bytes.end());
    auto* command = reinterpret_cast<modem_atlog_cmd_type*>(copy.data());
    for (size_t i = 0; i < action.tokens.size(); ++i) {
        command->tokens[i] = action.tokens[i] ? strdup(action.tokens[i]->c_str()) : nullptr;
    }
    arm();
    ModemImpl::modemApiEventCallback(static_cast<int>(action.number),
                                     action.record.isNull ? nullptr : copy.data(), copy.size());
    // The token strings are the plug-in's, unless nobody there saw the command.
    const bool isSeen = !action.record.isNull && mInstance == 0;
    for (size_t i = 0; i < (isSeen ? 0 : action.tokens.size()); ++i) {
        free(command->tokens[i]);
    }
}

int World::take(const ScriptedModem::Call& call) {
    const std::string function = call.function;
    Effect effect{Effect::CALL};
    effect.text = function + "(" + call.arguments + ")";
    const bool isBind = function.rfind("modem_api_bind_", 0) == 0;
    // A registration that fails starts a thread, which has a test of its own.
    if (function != "modem_atlog_cmd_reg" && chance(isBind ? mBindFailsOneIn : mRefusesOneIn)) {
        effect.result = result();
    }
    if (isBind) {
        const int service = function[15] == 'n' ? NAS : function[15] == 'w' ? WDS : VS;
        effect.isConnected = ModemImpl::getQmiClient(service)->isConnected();
    }
    if (call.out != nullptr && (effect.result == 0 || below(2) == 0)) {
        fill(function, call.out, effect.given);
    }
    const int result = effect.result;
    const bool isEarly = call.callback != nullptr && result == 0 && below(4) == 0;
    effect.early = isEarly ? std::optional(drawRecord()) : std::nullopt;
    mEffects.push_back(effect);
    if (call.callback != nullptr) {
        const auto* cookie = static_cast<ModemAsyncCbData*>(call.cookie);
        const Pending pending{call.cookie, call.callback, cookie->msg};
        if (result != 0) {
            mGone.push_back(pending.message);
        } else if (isEarly) {
            answer(pending, *effect.early);
        } else {
            mPending.push_back(pending);
        }
    }
    return result;
}

void World::fill(const std::string& function, void* out, std::string& given) {
    if (function == "modem_pdc_load_configuration") {
        given = *static_cast<std::string*>(out);
    } else if (function == "modem_qdp_get_ims_profile") {
        auto& [list, count] = *static_cast<std::pair<modem_ims_profile*, uint8_t*>*>(out);
        *count = oneOf<uint8_t>({0, 1, 2, 3, 23, 24, 25, 255});
        given = bytes(std::min<size_t>(*count, MODEM_IMS_PROFILE_MAX) * sizeof(*list));
        memcpy(list, given.data(), given.size());
    } else if (function.find("_read_") != std::string::npos) {
        auto& [buffer, length] = *static_cast<std::pair<uint8_t*, size_t*>*>(out);
        const size_t size = below(8) == 0 ? oneOf({*length, *length + 1, SIZE_MAX}) : below(20);
        given = bytes(std::min(size, *length));
        memcpy(buffer, given.data(), given.size());
        *length = size;
    } else {
        const bool isRecord =
                function == "modem_verify_nv" || function == "modem_api_get_simlock_info";
        given = bytes(isRecord ? 3 : 4);
        std::replace_if(
                given.begin(), given.end(), [this](char) { return below(2) == 0; }, '\0');
        memcpy(out, given.data(), given.size());
    }
}

android::hardware::Return<void> World::receive(Effect::Kind kind, int number, uint32_t code,
                                               hal::Parcel& args) {
    const allocations::Pause pause;
    Effect effect{kind, number, code, {reinterpret_cast<const char*>(args.data()), args.size()}};
    effect.result = mTransportFails[number];
    if (effect.result == 0 && !mArmed && mDepth < 3 && chance(9)) {
        effect.inside =
                std::make_shared<Action>(below(2) == 0 ? drawRequest() : Action{Action::INSTALL});
        effect.inside->response = oneOf({0, 1, -1});
        effect.inside->indication = oneOf({0, 1, -1});
    }
    mEffects.push_back(effect);
    if (effect.inside) {
        ++mDepth;
        perform(*effect.inside);
        --mDepth;
    }
    using android::hardware::Status;
    return effect.result == 0 ? Status() : Status::fromStatusT(android::DEAD_OBJECT, "gone");
}
