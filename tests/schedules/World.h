#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <hidl/Transport.h>

#include "clients/ModemAsyncCbData.h"
#include "service/ModemImpl.h"
#include "tests/support/Requests.h"
#include "tests/support/ScriptedModem.h"

constexpr int TOKEN_EVENTS[] = {17, 18, 22};

/** What can go wrong or come at an odd time; each is counted by how often it struck. */
enum class Fault {
    MODEM_REFUSES,
    BIND_FAILS,
    BIND_GIVEN_UP,
    ANSWER_INSIDE_THE_CALL,
    ANSWER_OUT_OF_ORDER,
    ANSWER_AFTER_DISCONNECTION,
    ANSWER_BAD_RECORD,
    ANSWER_BAD_RESULT,
    ODD_PAYLOAD,
    EVENT_SHORT,
    EVENT_UNKNOWN,
    TOKEN_UNKNOWN,
    DISCONNECTED,
    CONNECTED_AGAIN,
    NOT_CONNECTED,
    CLIENT_ABSENT,
    NO_RESPONSE,
    NO_INDICATION,
    INSTALLED_INSIDE_A_CALLBACK,
    REQUEST_INSIDE_A_CALLBACK,
    CALLBACK_FAILS,
    EVENT_KEPT,
    EVENT_REPLAYED,
    EVENT_PUT_BACK,
    QUEUE_FULL,
    NO_MEMORY_FOR_A_REQUEST,
    NO_MEMORY_FOR_A_STEP,
    NO_MEMORY_FOR_AN_ANSWER,
    NO_MEMORY_FOR_AN_EVENT,
    PROPERTY_NOT_WRITTEN,
    AT_COMMAND_REFUSED,
    AT_NOT_CONFIRMED,
    COUNT
};
extern std::array<uint64_t, static_cast<size_t>(Fault::COUNT)> faults;
inline void strike(Fault fault, bool struck = true) {
    faults[static_cast<size_t>(fault)] += struck ? 1 : 0;
}

/** A response record as the modem hands it over; null data when `isNull`. */
struct Record {
    bool isNull = false;
    std::string bytes;
};

/** One thing done to the plug-in. */
struct Action {
    enum Kind { REQUEST, STEP, ANSWER, EVENT, INSTALL, QUEUE_LIMIT, TRANSPORT } kind;
    const Request* request = nullptr;
    int32_t serial = 0;
    std::vector<Value> args{};
    uint64_t number = 0;  ///< choice of a step, place of an answer, number of an event, limit
    Record record{};      ///< of an answer or an event
    std::vector<std::optional<std::string>> tokens{};  ///< of an AT command
    int response = -1, indication = -1;                ///< clients to be installed, -1 for none
    size_t failing = SIZE_MAX;                         ///< allocation of the plug-in's that fails
};

/** One thing that the plug-in did. */
struct Deed {
    enum Kind { CALL, ANSWER, INDICATION, LOST } kind;
    int client = 0;                  ///< that got an ANSWER or INDICATION
    uint32_t code = 0;               ///< of its method
    std::string text{};              ///< the modem's call, or the bytes of the arguments
    int result = 0;                  ///< of the modem's call; nonzero for a callback that failed
    std::string given{};             ///< what the modem filled in
    bool connected = false;          ///< a bind: whether its client counts as connected
    std::optional<Record> early{};   ///< answer from inside the call
    std::optional<Action> inside{};  ///< done by the client inside the callback
};

/**
 * The plug-in, and everything around it: a modem and two clients that behave as a seed tells, and
 * note what the plug-in does. Messages wait to be stepped; all runs on one thread.
 */
class World {
public:
    static constexpr int CLIENTS = 2;

    World(uint64_t seed, std::vector<Deed>& deeds);
    ~World();

    /** An action at random, as the world stands. */
    Action draw();
    void perform(const Action& action);

    /** Nothing goes wrong any more. */
    void calm() { mFaulty = false; }

    /** Throws when an answered cookie is still there, or one that the modem owns has gone. */
    void checkCookies();

    uint64_t below(uint64_t limit) { return limit == 0 ? 0 : mRandom() % limit; }
    bool chance(uint64_t oneIn) { return mFaulty && below(oneIn) == 0; }
    Action drawEvent();
    int instance() const { return mInstance; }
    size_t pendingAnswers() const { return mPending.size(); }
    /** Whether an allocation failed during the action performed last. */
    bool struck() const { return mStruck; }

    /** A call to a callback. */
    android::hardware::Return<void> receive(Deed::Kind kind, int client, uint32_t code,
                                            hal::Parcel& args);

    std::vector<int32_t> tokens[3];  ///< serials that the modem owes the events of TOKEN_EVENTS

private:
    struct Pending {
        void* cookie;
        modem_api_async_callback callback;
        std::weak_ptr<Message> message;
    };

    int call(const ScriptedModem::Call& call);
    void fill(const ScriptedModem::Call& call, Deed& deed);
    Action drawRequest();
    Value drawValue(const hal::Field& field);
    Record drawRecord();
    std::string bytes(size_t size);
    std::string oddBytes(size_t usual);
    void arm();
    void raise(const Action& action);
    void raiseCommand(const Action& action);
    void answer(const Pending& pending, const Record& record);

    std::mt19937_64 mRandom;
    std::vector<Deed>& mDeeds;
    const int mInstance;
    const uint64_t mRefusesOneIn, mBindFailsOneIn;
    bool mFaulty = true;
    bool mArmed = false, mStruck = false;
    size_t mFailing = SIZE_MAX;
    int mDepth = 0;
    int32_t mSerial;
    bool mTransportFails[CLIENTS] = {};
    std::vector<Pending> mPending;
    std::vector<std::weak_ptr<Message>> mGone;
    std::shared_ptr<ModemImpl> mService;
    android::sp<hal::Stub> mStub;
};
