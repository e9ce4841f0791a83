#include "tests/schedules/Model.h"

#include <framework/Desk.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

enum : uint32_t { RRC_STATE = 1, RADIO_INFO, POWER_SAVE_MODE, AT_LOG };

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

template <class T>
std::string raw(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

template <class T>
T at(const std::string& bytes, size_t offset) {
    T value;
    memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

std::string counted(const std::string& bytes) {
    return raw(static_cast<uint32_t>(bytes.size())) + bytes;
}

std::string info(int32_t serial, uint32_t error) {
    return raw(uint32_t{0}) + raw(serial) + raw(error);
}

/** The payload of an answer that has none to give. */
std::string emptyOf(Payload payload) {
    switch (payload) {
        case Payload::NONE:
            return "";
        case Payload::BYTE:
        case Payload::BYTE1:
        case Payload::BYTE2:
        case Payload::VERIFIED:
            return std::string(1, '\0');
        case Payload::BANDS:
            return std::string(20, '\0');
        case Payload::MBN:
            return std::string(8, '\0');
        default:
            return std::string(4, '\0');
    }
}

/** The payload that a synchronous call gave; one that gave nothing gave zeros. */
std::string payloadOf(Payload payload, std::string given) {
    if (payload == Payload::DATA) {
        return counted(given);
    }
    given.resize(4);
    switch (payload) {
        case Payload::WORD:
            return given;
        case Payload::BYTE:
            return given.substr(0, 1);
        case Payload::BYTE1:
            return given.substr(1, 1);
        case Payload::BYTE2:
            return given.substr(2, 1);
        case Payload::VERIFIED:
            return std::string(1, given[0] != 0 && given[2] == 0 ? '\1' : '\0');
        default:
            return "";
    }
}

std::string bandsOf(const std::string& record) {
    std::string lists;
    size_t offset = 8;
    for (const uint32_t room : {20U, 20U, 50U, 20U, 20U}) {
        const auto count = at<uint32_t>(record, offset);
        const uint32_t taken = count <= room ? count : 0;
        lists += raw(taken) + record.substr(offset + 4, 4 * taken);
        offset += 4 + 4 * room;
    }
    return lists;
}

std::string untilNul(const std::string& bytes) {
    return bytes.substr(0, bytes.find('\0'));
}

std::string radioInfo(const std::string& event) {
    std::string bytes = event.substr(8, 37) + event.substr(46, 22);
    for (size_t entry = 0; entry < 4; ++entry) {
        bytes += raw(uint32_t{4}) + event.substr(68 + 16 * entry, 16);
    }
    return bytes;
}

std::string mbnList() {
    uint32_t count = 0;
    std::string entries;
    std::ifstream file(OX_MBN_LIST_FILE);
    for (std::string line; std::getline(file, line); ++count) {
        entries += counted(line.substr(16, line.find("mcfg_sw.mbn") - 16));
    }
    return raw(count) + entries;
}

}  // namespace

void Model::follow(const Action& action) {
    mAt = 0;
    mStruck = mWorld.struck();
    apply(action);
    if (const Deed* more = next()) {
        fail("nothing asks for: " + more->text);
    }
    if (mQueue.size() != desk::pendingMessages()) {
        fail("other messages wait than should");
    }
}

void Model::apply(const Action& action) {
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
                if (action.number != 0) {
                    strike(Fault::ANSWER_OUT_OF_ORDER);
                }
                if (!mConnected[VS]) {
                    strike(Fault::ANSWER_AFTER_DISCONNECTION);
                }
                if (mStruck) {
                    strike(Fault::NO_MEMORY_FOR_AN_ANSWER);
                }
                finish(pending, action.record);
            }
            break;
        case Action::EVENT:
            event(action);
            break;
        case Action::INSTALL:
            mResponse = action.response;
            mIndication = action.indication;
            replay();
            break;
        case Action::QUEUE_LIMIT:
            mLimit = action.number;
            break;
        case Action::TRANSPORT:
            mTransportFails[action.number / 2] = action.number % 2 == 0;
            break;
    }
}

void Model::checkEnd() const {
    if (!mWaiting.empty()) {
        fail("request " + std::to_string(*mWaiting.begin()) + " has no answer");
    }
}

// ---- What the plug-in must have done next
// --------------------------------------------------------

const Deed& Model::call(const std::string& text) {
    const Deed* deed = next();
    if (deed == nullptr || deed->kind != Deed::CALL || deed->text != text) {
        fail("expected the modem call " + text + ", and came " +
             (deed != nullptr ? deed->text : "nothing"));
    }
    ++mAt;
    return *deed;
}

/** A call to a callback; `withoutMemory` is what it may carry when an allocation failed. */
int Model::deliver(Deed::Kind kind, int client, uint32_t code, const std::string& bytes,
                   const std::string& withoutMemory) {
    const Deed* deed = next();
    if (deed != nullptr && mStruck && deed->kind == Deed::LOST) {
        mStruck = false;
        ++mAt;
        return 1;
    }
    if (deed == nullptr || deed->kind != kind || deed->client != client || deed->code != code) {
        fail("expected the callback " + std::to_string(code) + " of client " +
             std::to_string(client));
    }
    const bool lacksMemory = mStruck && !withoutMemory.empty() && deed->text == withoutMemory;
    if (deed->text != bytes && !lacksMemory) {
        fail("callback " + std::to_string(code) + " carries " +
             toHex(deed->text.data(), deed->text.size()) + ", expected " +
             toHex(bytes.data(), bytes.size()));
    }
    mStruck = mStruck && !lacksMemory;
    ++mAt;
    const int result = deed->result;
    strike(Fault::CALLBACK_FAILS, result != 0);
    if (result != 0 && next() != nullptr && next()->kind == Deed::LOST) {
        mStruck = false;  // for the reason of the failure
        ++mAt;
    }
    if (deed->inside) {
        strike(deed->inside->kind == Action::INSTALL ? Fault::INSTALLED_INSIDE_A_CALLBACK
                                                     : Fault::REQUEST_INSIDE_A_CALLBACK);
        apply(*deed->inside);
    }
    return result;
}

int Model::respond(const Request& request, int32_t serial, int err, const std::string& payload,
                   const std::string& withoutMemory) {
    if (mResponse < 0) {
        strike(Fault::NO_RESPONSE);
        return 4;
    }
    const uint32_t error = err == 0 || err == 2 ? err : 1;
    return deliver(Deed::ANSWER, mResponse, request.response->code, info(serial, error) + payload,
                   payload.empty() ? "" : info(serial, 1) + withoutMemory);
}

/** Answers a request, for the first and only time. */
void Model::answer(const Action& action, int err, const std::string& payload) {
    if (mWaiting.erase(action.serial) == 0) {
        fail("request " + std::to_string(action.serial) + " is answered again");
    }
    respond(*action.request, action.serial, err, payload, emptyOf(action.request->payload));
}

int Model::indicate(uint32_t code, const std::string& bytes) {
    if (mIndication < 0) {
        strike(Fault::NO_INDICATION);
        return 4;
    }
    return deliver(Deed::INDICATION, mIndication, code, raw(uint32_t{0}) + bytes, "");
}

// ---- Requests -----------------------------------------------------------------------------------

void Model::request(const Action& action) {
    const Qmi client = action.request->service;
    const std::string empty = emptyOf(action.request->payload);
    mWaiting.insert(action.serial);
    if (mWorld.instance() == 1 && (client == AT || client == PDC || client == SAR)) {
        strike(Fault::CLIENT_ABSENT);
        answer(action, 4, empty);
    } else if (mStruck) {
        strike(Fault::NO_MEMORY_FOR_A_REQUEST);
        mStruck = false;
        answer(action, 5, empty);
    } else if (!post({client, Item::REQUEST, action})) {
        answer(action, desk::DISPATCH_QUEUE_FULL, empty);
    }
}

bool Model::post(Item item) {
    const auto waiting = std::count_if(mQueue.begin(), mQueue.end(), [&](const Item& other) {
        return other.client == item.client;
    });
    if (static_cast<size_t>(waiting) >= mLimit) {
        strike(Fault::QUEUE_FULL);
        return false;
    }
    if (mStruck && desk::pendingMessages() == mQueue.size()) {
        mStruck = false;  // no memory for the message: only the plug-in's own may vanish so
        return false;
    }
    mQueue.push_back(std::move(item));
    return true;
}

void Model::step(uint64_t choice) {
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
    const Item item = std::move(*first);
    mQueue.erase(first);
    if (mStruck) {
        strike(Fault::NO_MEMORY_FOR_A_STEP);
    }
    switch (item.kind) {
        case Item::REQUEST:
            if ((client == NAS || client == WDS) && !mBindings[client].bound) {
                mBindings[client].retries = 20;
                bind(client);
            }
            serve(item.action);
            break;
        case Item::BIND:
            bind(client);
            break;
        case Item::REGISTER:
            if (mConnected[AT]) {
                call("modem_atlog_cmd_reg(+LOG)");
            }
            break;
        case Item::COMMAND:
            command(item.action);
            break;
    }
}

void Model::bind(Qmi client) {
    Binding& binding = mBindings[client];
    const Deed& deed = call(std::string("modem_api_bind_") + (client == NAS ? "nas" : "wds") +
                            "_subscription(" + std::to_string(mWorld.instance()) + ")");
    if (deed.connected != mConnected[client]) {
        fail("a bind before the connection is marked");
    }
    if (deed.result == 0) {
        binding = {true, 0};
    } else if (binding.retries < 20) {
        ++binding.retries;
        post({client, Item::BIND});
    } else {
        strike(Fault::BIND_GIVEN_UP);
    }
}

void Model::serve(const Action& action) {
    const Request& row = *action.request;
    const bool isReady = mConnected[row.service] && (row.service != NAS || mBindings[NAS].bound) &&
                         (row.name != std::string("isImsProfileNormal") || mBindings[WDS].bound);
    if (!isReady && row.way != Way::FILE && row.way != Way::CONFIRM) {
        strike(Fault::NOT_CONNECTED);
        if (row.event == 17) {
            mWaiting.erase(action.serial);  // without an answer, by definition
        } else {
            answer(action, 4, emptyOf(row.payload));
        }
        return;
    }
    void (Model::*const ways[])(const Action&) = {
            &Model::serveSync, &Model::serveAsync,     &Model::serveToken, &Model::list,
            &Model::load,      &Model::deleteProfiles, &Model::confirm};
    (this->*ways[static_cast<size_t>(row.way)])(action);
}

void Model::serveSync(const Action& action) {
    const Request& row = *action.request;
    const Deed& deed = call(filled(row.call, row, action.serial, action.args));
    // Two requests hand out what the modem wrote, also when it failed.
    const bool isGiven = deed.result == 0 || row.service == DMS || row.service == WDS;
    answer(action, deed.result == 0 ? 0 : 1,
           isGiven ? payloadOf(row.payload, deed.given) : emptyOf(row.payload));
}

void Model::serveAsync(const Action& action) {
    if (mStruck && next() != nullptr && next()->kind != Deed::CALL) {
        mStruck = false;  // for the cookie
        answer(action, 5, emptyOf(action.request->payload));
        return;
    }
    if (mStruck && next() == nullptr && mResponse < 0) {
        mStruck = false;
        mWaiting.erase(action.serial);
        return;
    }
    const Deed& deed = call(filled(action.request->call, *action.request, action.serial, action.args));
    if (deed.result != 0) {
        answer(action, 1, emptyOf(action.request->payload));
    } else if (deed.early) {
        finish(action, *deed.early);
    } else {
        mPending.push_back(action);
    }
}

void Model::finish(const Action& action, const Record& record) {
    const Payload payload = action.request->payload;
    const std::string& bytes = record.bytes;
    int err = record.isNull || bytes.size() != 548 ? 3 : at<int>(bytes, 4);
    err = err == 5 ? 2 : err;  // the modem's 5 is the framework's 2; others fail all alike
    std::string content = emptyOf(payload);
    if (err == 0 && payload == Payload::BUILD) {
        const auto length = at<uint32_t>(bytes, 8);
        err = length > 255 ? 3 : 0;
        content = err == 0 ? counted(untilNul(bytes.substr(12, length))) : content;
    } else if (err == 0 && payload != Payload::NONE) {
        content = payload == Payload::TEXT    ? counted(untilNul(bytes.substr(8)))
                  : payload == Payload::BANDS ? bandsOf(bytes)
                                              : bytes.substr(8, payload == Payload::BYTE ? 1 : 4);
    }
    answer(action, err, content);
}

void Model::serveToken(const Action& action) {
    const Request& row = *action.request;
    if (call(filled(row.call, row, action.serial, action.args)).result == 0) {
        mWorld.tokens[row.event == 17 ? 0 : row.event == 18 ? 1 : 2].push_back(action.serial);
    } else if (row.event == 17) {
        mWaiting.erase(action.serial);  // without an answer, by definition
    } else {
        answer(action, 1, emptyOf(row.payload));
    }
}

void Model::list(const Action& action) {
    static const std::string LIST = mbnList();
    answer(action, 0, LIST);
}

void Model::load(const Action& action) {
    const std::string& path = action.args[0].bytes;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream read;
    read << file.rdbuf();
    const std::string content = read.str();
    int err = file.is_open() ? 0 : 1;
    for (size_t sent = 0; err == 0 && sent < content.size(); sent += 900) {
        const std::string chunk = content.substr(sent, 900);
        const Deed& deed =
                call("modem_pdc_load_configuration(MbnApp_" + path + ", " +
                     std::to_string(chunk.size()) + ", " + std::to_string(content.size()) + ")");
        err = deed.result == 0 ? 0 : 1;
        if (err == 0 && deed.given != chunk) {
            fail("the modem got another chunk");
        }
    }
    answer(action, err, "");
}

void Model::deleteProfiles(const Action& action) {
    const Deed& listed = call(action.request->call);
    const std::string profiles = listed.result == 0 ? listed.given : "";
    int result = 1;
    for (size_t i = 0; i < profiles.size(); i += 8) {
        result = call("modem_qdp_delete_ims_profile(" + toHex(&profiles[i], 8) + ")").result;
    }
    answer(action, result == 0 ? 0 : 1, "");
}

// ---- Events -------------------------------------------------------------------------------------

void Model::event(const Action& action) {
    const auto number = static_cast<int>(action.number);
    const std::string& data = action.record.bytes;
    const size_t size = action.record.isNull ? 0 : data.size();
    const auto isWhole = [size](size_t least) {
        strike(Fault::EVENT_SHORT, size < least);
        return size >= least;
    };
    if (mStruck) {
        strike(Fault::NO_MEMORY_FOR_AN_EVENT);
    }
    if (number == 0 || number == 1) {
        if (isWhole(4) && size == 4) {
            connected(at<int>(data, 0), number == 0);
        }
    } else if (number == 2) {
        if (mWorld.instance() == 0) {
            post({AT, Item::COMMAND, action});
        }
    } else if (number == 15) {
        if (isWhole(24)) {
            keep(mRrc, RRC_STATE, data.substr(8, 16));
        }
    } else if (number == 19) {
        if (isWhole(132)) {
            indicate(RADIO_INFO, radioInfo(data));
        }
    } else if (number == 20) {
        if (isWhole(8)) {
            keep(mPowerSave, POWER_SAVE_MODE, data.substr(4, 4));
        }
    } else if (const auto* kind =
                       std::find(std::begin(TOKEN_EVENTS), std::end(TOKEN_EVENTS), number);
               kind != std::end(TOKEN_EVENTS)) {
        const size_t sizes[] = {140, 272, 12};
        const size_t index = kind - TOKEN_EVENTS;
        if (mWorld.instance() == 0 && isWhole(sizes[index])) {
            token(action, index);
        }
    } else {
        strike(Fault::EVENT_UNKNOWN);
    }
}

void Model::connected(int service, bool isConnected) {
    const bool isAbsent =
            mWorld.instance() == 1 && (service == AT || service == PDC || service == SAR);
    if (isAbsent || service == 231 || service == 99) {
        return;
    }
    strike(Fault::CONNECTED_AGAIN, isConnected);
    strike(Fault::DISCONNECTED, !isConnected);
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
        if (!call("modem_api_bind_vs_subscription(" + instance + ")").connected) {
            fail("a bind before the connection is marked");
        }
        for (const char* number : {"15", "19", "20"}) {
            call(std::string("modem_api_subscribe_event(") + number + ")");
        }
        call("modem_api_register_indications()");
    }
}

void Model::token(const Action& action, size_t kind) {
    const std::string& data = action.record.bytes;
    const auto serial = at<int32_t>(data, 8);
    auto& owed = mWorld.tokens[kind];
    const auto found = std::find(owed.begin(), owed.end(), serial);
    if (found == owed.end()) {
        strike(Fault::TOKEN_UNKNOWN);  // sent upward all the same
    } else if (owed.erase(found); mWaiting.erase(serial) == 0) {
        fail("a token request is answered again");
    }
    const auto& rows = requests();
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const Request& candidate) {
        return candidate.event == TOKEN_EVENTS[kind];
    });
    const auto result = at<int32_t>(data, 0);
    std::string payload, empty;
    if (row->payload == Payload::MBN) {
        const size_t reported = at<uint32_t>(data, kind == 0 ? 136 : 268);
        payload = raw(result) + counted(data.substr(12, reported));
        empty = raw(result) + counted("");
    }
    respond(*row, serial, result == 5 ? 2 : result, payload, empty);
}

void Model::keep(std::optional<std::string>& kept, uint32_t code, const std::string& bytes) {
    if (indicate(code, bytes) == 4 && !(mStruck && !kept)) {
        strike(Fault::EVENT_KEPT, !kept);
        kept = kept ? kept : bytes;  // the first one stays
    }
}

int Model::replay() {
    const int result = replay(mRrc, RRC_STATE);
    return result != 0 ? result : replay(mPowerSave, POWER_SAVE_MODE);
}

/** Tried once; goes back when there is still nobody. */
int Model::replay(std::optional<std::string>& kept, uint32_t code) {
    if (!kept) {
        return 0;
    }
    const std::string bytes = *std::exchange(kept, std::nullopt);
    const int result = indicate(code, bytes);
    strike(result == 4 ? Fault::EVENT_PUT_BACK : Fault::EVENT_REPLAYED);
    if (result == 4) {
        kept = bytes;
    }
    return result;
}

// ---- AT commands --------------------------------------------------------------------------------

void Model::command(const Action& action) {
    if (action.record.isNull || action.record.bytes.size() != 520) {
        return;
    }
    const auto command = at<modem_atlog_cmd_type>(action.record.bytes, 0);
    mHandle = command.handle;
    const bool isLog = command.op_code == 11 && strcasecmp(command.name, "+LOG") == 0;
    mOpen = mOpen || isLog;
    if (isLog && readCommand(action, command)) {
        return;
    }
    strike(Fault::AT_COMMAND_REFUSED);
    if (mConnected[AT]) {
        call("modem_atlog_send_resp(" + std::to_string(mHandle) + ", 0, 3, 0)");
        mOpen = false;
    }
}

/** False when the command came to nothing. */
bool Model::readCommand(const Action& action, const modem_atlog_cmd_type& command) {
    const auto token = [&](size_t i) { return action.tokens[i].value_or(""); };
    const size_t count = command.token_count;
    if (count == 0 || (token(0) != "0" && token(0) != "1")) {
        return false;
    }
    const bool isStart = token(0) == "1";
    const std::string name = count > 1 ? token(1) : isStart ? "ts_start" : "ts_end";
    const char result = isStart || count < 3 ? '\3'
                        : token(2) == "0"    ? '\0'
                        : token(2) == "1"    ? '\1'
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

void Model::confirm(const Action& action) {
    int err = 4;
    if (mOpen && mConnected[AT]) {
        err = call("modem_atlog_send_resp(" + std::to_string(mHandle) + ", 1, 3, 0)").result;
        mOpen = false;
    } else {
        strike(Fault::AT_NOT_CONFIRMED);
    }
    answer(action, err == 0 ? 0 : err == 4 ? 4 : 1, "");
}
