#include "tests/schedules/Model.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include "clients/MbnList.h"

class Model::Rules {
public:
    Rules(World& world, const std::vector<Effect>& effects) : mWorld(world), mEffects(effects) {}

    /** Follows one action; all that the plug-in did has to be its consequence. */
    void follow(const Action& action) {
        mAt = 0;
        mStruck = mWorld.struck();
        apply(action);
        check(next() == nullptr, "nothing asks for " + (next() != nullptr ? next()->text : ""));
        check(mQueue.size() == desk::pendingMessages(), "other messages wait than should");
    }

    /** At the end: every request has its one answer, or is one that is without by definition. */
    void checkEnd() const { check(mWaiting.empty(), "a request has no answer"); }

private:
    struct Item {
        Qmi client;
        enum { REQUEST, BIND, REGISTER, COMMAND } kind;
        Action action{Action::STEP};
    };
    struct Binding {
        bool isBound = false;
        int retries = 0;
    };
    enum Indication : uint32_t { RRC_STATE = 1, RADIO_INFO, POWER_SAVE_MODE, AT_LOG };

    static void check(bool holds, const std::string& otherwise) {
        if (!holds) {
            throw std::runtime_error(otherwise);
        }
    }

    // ---- Bytes ----------------------------------------------------------------------------------

    template <class T>
    static std::string raw(const T& value) {
        return {reinterpret_cast<const char*>(&value), sizeof(value)};
    }
    template <class T>
    static T at(const std::string& bytes, size_t offset) {
        T value;
        memcpy(&value, bytes.data() + offset, sizeof(value));
        return value;
    }
    static std::string counted(const std::string& bytes) {
        return raw(static_cast<uint32_t>(bytes.size())) + bytes;
    }
    static std::string info(int32_t serial, uint32_t error) {
        return raw(uint32_t{0}) + raw(serial) + raw(error);
    }
    static std::string untilNul(const std::string& bytes) {
        return bytes.substr(0, bytes.find('\0'));
    }
    /** The payload of an answer that has none to give: zeros. */
    static std::string emptyOf(Payload payload) {
        static constexpr size_t SIZES[] = {0, 4, 1, 1, 1, 1, 4, 4, 4, 20, 8, 4};
        return std::string(SIZES[static_cast<size_t>(payload)], '\0');
    }
    /** The payload that a synchronous call gave. */
    static std::string payloadOf(Payload payload, std::string given) {
        if (payload == Payload::DATA) {
            return counted(given);
        }
        given.resize(4);
        if (payload == Payload::VERIFIED) {
            return raw(static_cast<char>(given[0] != 0 && given[2] == 0));
        }
        const size_t offset = payload == Payload::BYTE1 ? 1 : payload == Payload::BYTE2 ? 2 : 0;
        return given.substr(offset, emptyOf(payload).size());
    }
    static std::string bandsOf(const std::string& record) {
        std::string lists;
        size_t offset = 8;
        for (const uint32_t room : {20U, 20U, 50U, 20U, 20U}) {
            const auto count = at<uint32_t>(record, offset);
            const uint32_t taken = count <= room ? count : 0;
            lists += raw(taken) + record.substr(offset + 4, size_t{4} * taken);
            offset += 4 + size_t{4} * room;
        }
        return lists;
    }
    static std::string radioInfo(const std::string& event) {
        std::string bytes = event.substr(8, 37) + event.substr(46, 22);
        for (size_t entry = 0; entry < 4; ++entry) {
            bytes += raw(uint32_t{4}) + event.substr(68 + 16 * entry, 16);
        }
        return bytes;
    }
    static std::string contentOf(const std::string& path) {
        std::ostringstream content;
        content << std::ifstream(path, std::ios::binary).rdbuf();
        return content.str();
    }

    // ---- What the plug-in must have done next ---------------------------------------------------

    const Effect* next() const { return mAt < mEffects.size() ? &mEffects[mAt] : nullptr; }
    bool isNext(Effect::Kind kind) const { return next() != nullptr && next()->kind == kind; }

    const Effect& call(const std::string& text) {
        check(isNext(Effect::CALL) && next()->text == text,
              "expected " + text + ", not " + (next() != nullptr ? next()->text : "nothing"));
        return mEffects[mAt++];
    }

    /** A call to a callback; `withoutMemory` is what it may carry when an allocation failed. */
    int deliver(Effect::Kind kind, int client, uint32_t code, const std::string& bytes,
                const std::string& withoutMemory) {
        if (mStruck && isNext(Effect::LOST)) {
            mStruck = false;
            ++mAt;
            return 1;
        }
        check(isNext(kind) && next()->client == client && next()->code == code,
              "expected callback " + std::to_string(code) + " of client " + std::to_string(client));
        const Effect& effect = mEffects[mAt++];
        const bool lacksMemory = mStruck && !withoutMemory.empty() && effect.text == withoutMemory;
        check(effect.text == bytes || lacksMemory,
              "callback " + std::to_string(code) + " carries " +
                      toHex(effect.text.data(), effect.text.size()) + ", expected " +
                      toHex(bytes.data(), bytes.size()));
        mStruck = mStruck && !lacksMemory;
        const int result = effect.result;
        if (result != 0 && isNext(Effect::LOST)) {
            mStruck = false;  // for the text of the failure
            ++mAt;
        }
        if (const auto inside = effect.inside) {
            apply(*inside);
        }
        return result;
    }

    void respond(const Request& request, int32_t serial, int err, const std::string& payload,
                 const std::string& withoutMemory) {
        if (mResponse >= 0) {
            const uint32_t error = err == 0 || err == 2 ? err : 1;
            deliver(Effect::ANSWER, mResponse, request.response->code,
                    info(serial, error) + payload,
                    payload.empty() ? "" : info(serial, 1) + withoutMemory);
        }
    }

    /** Answers a request, for the first and only time. */
    void answer(const Action& action, int err, const std::string& payload) {
        check(mWaiting.erase(action.serial) == 1, "a request is answered again");
        respond(*action.request, action.serial, err, payload, emptyOf(action.request->payload));
    }
    void refuse(const Action& action, int err) {
        answer(action, err, emptyOf(action.request->payload));
    }

    int indicate(Indication code, const std::string& bytes) {
        return mIndication < 0 ? 4
                               : deliver(Effect::INDICATION, mIndication, code,
                                         raw(uint32_t{0}) + bytes, "");
    }

    void apply(const Action& action) {
        switch (action.kind) {
            case Action::REQUEST:
                request(action);
                break;
            case Action::STEP:
                step(action.number);
                break;
            case Action::ANSWER:
                if (!mPending.empty()) {
                    const Action pending = mPending[action.number];
                    mPending.erase(mPending.begin() + static_cast<ptrdiff_t>(action.number));
                    finish(pending, action.record);
                }
                break;
            case Action::EVENT:
                event(static_cast<int>(action.number), action);
                break;
            case Action::INSTALL:
                mResponse = action.response;
                mIndication = action.indication;
                if (replay(mRrc, RRC_STATE) == 0) {
                    replay(mPowerSave, POWER_SAVE_MODE);
                }
                break;
            case Action::QUEUE_LIMIT:
                mLimit = action.number;
                break;
            case Action::TRANSPORT:
                break;
        }
    }

    // ---- Requests -------------------------------------------------------------------------------

    bool isAbsent(int client) const {
        return mWorld.instance() == 1 && (client == AT || client == PDC || client == SAR);
    }

    void request(const Action& action) {
        const Qmi client = action.request->service;
        mWaiting.insert(action.serial);
        if (isAbsent(client)) {
            refuse(action, 4);
        } else if (mStruck) {
            mStruck = false;
            refuse(action, 5);
        } else if (!post({client, Item::REQUEST, action})) {
            refuse(action, desk::DISPATCH_QUEUE_FULL);
        }
    }

    bool post(const Item& item) {
        const auto waiting = std::count_if(mQueue.begin(), mQueue.end(), [&](const Item& other) {
            return other.client == item.client;
        });
        const bool isFull = static_cast<size_t>(waiting) >= mLimit;
        // Without memory for a message, only one of the plug-in's own may vanish.
        const bool hasVanished = mStruck && desk::pendingMessages() == mQueue.size();
        mStruck = mStruck && !hasVanished;
        if (!isFull && !hasVanished) {
            mQueue.push_back(item);
        }
        return !isFull && !hasVanished;
    }

    void step(uint64_t choice) {
        std::vector<Qmi> clients;
        for (const Item& item : mQueue) {
            if (std::find(clients.begin(), clients.end(), item.client) == clients.end()) {
                clients.push_back(item.client);
            }
        }
        if (clients.empty()) {
            return;
        }
        const Qmi client = clients[choice % clients.size()];
        const auto first = std::find_if(mQueue.begin(), mQueue.end(),
                                        [&](const Item& item) { return item.client == client; });
        const Item item = *first;
        mQueue.erase(first);
        if (item.kind == Item::REQUEST) {
            if ((client == NAS || client == WDS) && !mBindings[client].isBound) {
                mBindings[client].retries = 20;
                bind(client);
            }
            serve(item.action);
        } else if (item.kind == Item::BIND) {
            bind(client);
        } else if (item.kind == Item::COMMAND) {
            command(item.action);
        } else if (mConnected[AT]) {
            call("modem_atlog_cmd_reg(+LOG)");
        }
    }

    void bind(Qmi client) {
        Binding& binding = mBindings[client];
        const Effect& effect =
                call(std::string("modem_api_bind_") + (client == NAS ? "nas" : "wds") +
                     "_subscription(" + std::to_string(mWorld.instance()) + ")");
        check(effect.isConnected == mConnected[client], "a bind before the connection is marked");
        if (effect.result == 0) {
            binding = {true, 0};
        } else if (binding.retries < 20) {
            ++binding.retries;
            post({client, Item::BIND});
        }
    }

    void serve(const Action& action) {
        const Request& row = *action.request;
        const bool isReady =
                mConnected[row.service] && (row.service != NAS || mBindings[NAS].isBound) &&
                (row.service != WDS || row.way == Way::DELETE || mBindings[WDS].isBound);
        if (!isReady && row.way != Way::FILE && row.way != Way::CONFIRM) {
            refuseToken(action, 4);
            return;
        }
        void (Rules::*const ways[])(const Action&) = {
                &Rules::serveSync, &Rules::serveAsync,     &Rules::serveToken, &Rules::list,
                &Rules::load,      &Rules::deleteProfiles, &Rules::confirm};
        (this->*ways[static_cast<size_t>(row.way)])(action);
    }

    /** One request is without an answer when it is refused, by definition. */
    void refuseToken(const Action& action, int err) {
        if (action.request->event == 17) {
            mWaiting.erase(action.serial);
        } else {
            refuse(action, err);
        }
    }

    const Effect& call(const Action& action) {
        return call(filled(action.request->call, *action.request, action.serial, action.args));
    }

    void serveSync(const Action& action) {
        const Request& row = *action.request;
        const Effect& effect = call(action);
        // Two requests hand out what the modem wrote, also when it failed.
        const bool isGiven = effect.result == 0 || row.service == DMS || row.service == WDS;
        answer(action, effect.result == 0 ? 0 : 1,
               isGiven ? payloadOf(row.payload, effect.given) : emptyOf(row.payload));
    }

    void serveAsync(const Action& action) {
        if (mStruck && !isNext(Effect::CALL)) {
            mStruck = false;  // for the cookie
            refuse(action, 5);
            return;
        }
        const Effect& effect = call(action);
        if (effect.result != 0) {
            refuse(action, 1);
        } else if (effect.early) {
            finish(action, *effect.early);
        } else {
            mPending.push_back(action);
        }
    }

    void finish(const Action& action, const Record& record) {
        const Payload payload = action.request->payload;
        const std::string& bytes = record.bytes;
        const int result = record.isNull || bytes.size() != 548 ? 3 : at<int>(bytes, 4);
        if (result != 0) {
            refuse(action, result == 5 ? 2 : 1);
        } else if (payload == Payload::BUILD) {
            const auto length = at<uint32_t>(bytes, 8);
            const bool isTooLong = length > 255;
            answer(action, isTooLong ? 3 : 0,
                   counted(isTooLong ? "" : untilNul(bytes.substr(12, length))));
        } else {
            answer(action, 0,
                   payload == Payload::TEXT    ? counted(untilNul(bytes.substr(8)))
                   : payload == Payload::BANDS ? bandsOf(bytes)
                                               : bytes.substr(8, emptyOf(payload).size()));
        }
    }

    void serveToken(const Action& action) {
        const int event = action.request->event;
        if (call(action).result == 0) {
            mWorld.tokens[event == 17 ? 0 : event == 18 ? 1 : 2].push_back(action.serial);
        } else {
            refuseToken(action, 1);
        }
    }

    void list(const Action& action) {
        static const std::string LIST = [] {
            uint32_t count = 0;
            std::string entries;
            std::istringstream lines(contentOf(mbnListFile()));
            for (std::string line; std::getline(lines, line); ++count) {
                entries += counted(line.substr(16, line.find("mcfg_sw.mbn") - 16));
            }
            return raw(count) + entries;
        }();
        answer(action, 0, LIST);
    }

    void load(const Action& action) {
        const std::string& path = action.args[0].bytes;
        const std::string content = contentOf(path);
        int err = path == "missing" ? 1 : 0;
        for (size_t sent = 0; err == 0 && sent < content.size(); sent += 900) {
            const std::string chunk = content.substr(sent, 900);
            const Effect& effect = call("modem_pdc_load_configuration(MbnApp_" + path + ", " +
                                        std::to_string(chunk.size()) + ", " +
                                        std::to_string(content.size()) + ")");
            err = effect.result == 0 ? 0 : 1;
            check(err != 0 || effect.given == chunk, "the modem got another chunk");
        }
        answer(action, err, "");
    }

    void deleteProfiles(const Action& action) {
        const Effect& listed = call(action);
        const std::string profiles = listed.result == 0 ? listed.given : "";
        int result = 1;
        for (size_t i = 0; i < profiles.size(); i += 8) {
            result = call("modem_qdp_delete_ims_profile(" + toHex(&profiles[i], 8) + ")").result;
        }
        answer(action, result == 0 ? 0 : 1, "");
    }

    // ---- Events ---------------------------------------------------------------------------------

    void event(int number, const Action& action) {
        static const std::map<int, size_t> SIZES = {{0, 4},    {1, 4},    {2, 0},
                                                    {15, 24},  {19, 132}, {20, 8},
                                                    {17, 140}, {18, 272}, {22, 12}};
        const std::string& data = action.record.bytes;
        const size_t size = action.record.isNull ? 0 : data.size();
        const auto layout = SIZES.find(number);
        if (layout == SIZES.end() || size < layout->second) {
            return;
        }
        if (number <= 1) {
            if (size == 4 && !isAbsent(at<int>(data, 0))) {
                connect(at<int>(data, 0), number == 0);
            }
        } else if (number == 15) {
            keep(mRrc, RRC_STATE, data.substr(8, 16));
        } else if (number == 19) {
            indicate(RADIO_INFO, radioInfo(data));
        } else if (number == 20) {
            keep(mPowerSave, POWER_SAVE_MODE, data.substr(4, 4));
        } else if (mWorld.instance() == 0 && number == 2) {
            post({AT, Item::COMMAND, action});
        } else if (mWorld.instance() == 0) {
            token(number, data);
        }
    }

    void connect(int service, bool isConnected) {
        if (service == 231 || service == 99) {
            return;
        }
        mConnected[service] = isConnected;
        if (!isConnected) {
            return;
        }
        if (service == NAS || service == WDS) {
            bind(static_cast<Qmi>(service));
        }
        if (service == NAS) {
            call("modem_suppress_nas_ss_inds()");
        } else if (service == AT) {
            post({AT, Item::REGISTER});
        } else if (service == VS) {
            const std::string instance = std::to_string(mWorld.instance());
            check(call("modem_api_bind_vs_subscription(" + instance + ")").isConnected,
                  "a bind before the connection is marked");
            for (const char* number : {"15", "19", "20"}) {
                call(std::string("modem_api_subscribe_event(") + number + ")");
            }
            call("modem_api_register_indications()");
        }
    }

    void token(int number, const std::string& data) {
        const size_t kind = number == 17 ? 0 : number == 18 ? 1 : 2;
        const auto serial = at<int32_t>(data, 8);
        auto& pending = mWorld.tokens[kind];
        const auto found = std::find(pending.begin(), pending.end(), serial);
        if (found != pending.end()) {  // an unknown one is sent upward all the same
            pending.erase(found);
            check(mWaiting.erase(serial) == 1, "a request is answered again");
        }
        const auto row = std::find_if(requests().begin(), requests().end(),
                                      [&](const Request& one) { return one.event == number; });
        const auto result = at<int32_t>(data, 0);
        std::string payload, empty;
        if (row->payload == Payload::MBN) {
            const size_t reported = at<uint32_t>(data, kind == 0 ? 136 : 268);
            payload = raw(result) + counted(data.substr(12, reported));
            empty = raw(result) + counted("");
        }
        respond(*row, serial, result == 5 ? 2 : result == 0 ? 0 : 1, payload, empty);
    }

    void keep(std::optional<std::string>& kept, Indication code, const std::string& bytes) {
        if (indicate(code, bytes) == 4 && !kept && !mStruck) {
            kept = bytes;  // the first one stays
        }
    }

    /** Tried once; goes back when there is still nobody. */
    int replay(std::optional<std::string>& kept, Indication code) {
        const std::optional<std::string> taken = std::exchange(kept, std::nullopt);
        const int result = taken ? indicate(code, *taken) : 0;
        if (result == 4) {
            kept = taken;
        }
        return result;
    }

    // ---- AT commands ----------------------------------------------------------------------------

    void command(const Action& action) {
        if (action.record.isNull || action.record.bytes.size() != 520) {
            return;
        }
        const auto command = at<modem_atlog_cmd_type>(action.record.bytes, 0);
        mHandle = command.handle;
        const bool isLog = command.op_code == 11 && strcasecmp(command.name, "+LOG") == 0;
        mIsOpen = mIsOpen || isLog;
        if (!isLog || !readCommand(action.tokens)) {
            if (mConnected[AT]) {
                call("modem_atlog_send_resp(" + std::to_string(mHandle) + ", 0, 3, 0)");
                mIsOpen = false;
            }
        }
    }

    /** False when the command came to nothing. */
    bool readCommand(const std::vector<std::optional<std::string>>& tokens) {
        const auto token = [&](size_t i) { return tokens[i].value_or(""); };
        if (tokens.empty() || (token(0) != "0" && token(0) != "1")) {
            return false;
        }
        const bool isStart = token(0) == "1";
        const std::string name = tokens.size() > 1 ? token(1) : isStart ? "ts_start" : "ts_end";
        const char result = isStart || tokens.size() < 3 ? '\3'
                            : token(2) == "0"            ? '\0'
                            : token(2) == "1"            ? '\1'
                                                         : '\2';
        const std::string set = "property_set(persist.service.atlog.";
        bool isSaved = call(set + "status, " + token(0) + ")").result == 0;
        if (isSaved && isStart) {
            isSaved = call(set + "tcname, " + name + ")").result == 0;
        }
        if (isSaved) {
            call(set + "tcindex, 1)");
        }
        return indicate(AT_LOG, std::string{isStart ? '\1' : '\0', result} + counted(name)) == 0;
    }

    void confirm(const Action& action) {
        const bool isSent = mIsOpen && mConnected[AT];
        int result = 4;
        if (isSent) {
            result = call("modem_atlog_send_resp(" + std::to_string(mHandle) + ", 1, 3, 0)").result;
            mIsOpen = false;
        }
        answer(action, result == 0 ? 0 : 1, "");
    }

    World& mWorld;
    const std::vector<Effect>& mEffects;
    size_t mAt = 0;
    bool mStruck = false;  ///< an allocation failed, and nothing has shown for it yet

    int mResponse = -1, mIndication = -1;
    std::map<int, bool> mConnected;
    std::map<int, Binding> mBindings;
    std::deque<Item> mQueue;
    size_t mLimit = 1024;
    std::vector<Action> mPending;  ///< accepted asynchronous requests, as the modem holds them
    std::optional<std::string> mRrc, mPowerSave;
    uint64_t mHandle = 0;
    bool mIsOpen = false;        ///< an AT command waits for its confirmation
    std::set<int32_t> mWaiting;  ///< serials that wait for an answer
};

Model::Model(World& world, const std::vector<Effect>& effects)
    : mRules(std::make_unique<Rules>(world, effects)) {
}
Model::~Model() = default;

void Model::follow(const Action& action) {
    mRules->follow(action);
}

void Model::checkEnd() const {
    mRules->checkEnd();
}
