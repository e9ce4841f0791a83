#pragma once

#include <cutils/properties.h>
#include <framework/Desk.h>
#include <vendor/lyr/modem/1.0/transport.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clients/ModemAsyncCbData.h"
#include "service/ModemImpl.h"
#include "tests/support/Allocations.h"
#include "tests/support/Channel.h"
#include "tests/support/Requests.h"
#include "tests/support/ScriptedModem.h"

constexpr int TOKEN_EVENTS[] = {17, 18, 22};

/** A response record or an event's data as the modem hands it over. */
struct Record {
    bool isNull = false;
    std::string bytes{};
};

/** One thing done to the plug-in. */
struct Action {
    enum Kind { REQUEST, STEP, ANSWER, EVENT, INSTALL, QUEUE_LIMIT, TRANSPORT } kind;
    uint64_t number = 0;  ///< choice of a step, place of an answer, number of an event, limit
    Record record{};      ///< of an answer or an event
    const Request* request = nullptr;
    int32_t serial = 0;
    std::vector<Value> args{};
    std::vector<std::optional<std::string>> tokens{};  ///< of an AT command
    int response = -1, indication = -1;                ///< clients to install, -1 for none
    size_t failing = SIZE_MAX;                         ///< allocation of the plug-in's that fails
};

/** One thing that the plug-in did. */
struct Effect {
    enum Kind { CALL, ANSWER, INDICATION, LOST } kind;
    int client = 0;                    ///< that got an ANSWER or INDICATION
    uint32_t code = 0;                 ///< of its method
    std::string text{};                ///< the modem's call, or the bytes of the arguments
    int result = 0;                    ///< of the modem's call; nonzero for a callback that failed
    std::string given{};               ///< what the modem filled in
    bool isConnected = false;          ///< a bind: whether its client counts as connected
    std::optional<Record> early{};     ///< answer from inside the call
    std::shared_ptr<Action> inside{};  ///< done by the client inside the callback
};

/**
 * The plug-in, and everything around it: a modem and two clients that behave as a seed tells, and
 * note what the plug-in does. Messages wait to be stepped; all runs on one thread.
 */
class World {
public:
    static constexpr int CLIENTS = 2;

    /** Where chance comes from: a seed's numbers, or a fuzzer's bytes. */
    using Random = std::function<uint64_t()>;

    World(Random random, std::vector<Effect>& effects);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    uint64_t below(uint64_t limit) { return limit == 0 ? 0 : mRandom() % limit; }
    int instance() const { return mInstance; }
    size_t pendingAnswers() const { return mPending.size(); }
    /** Whether an allocation failed during the action performed last. */
    bool struck() const { return mStruck; }
    /** Nothing goes wrong any more. */
    void calm() { mFaulty = false; }

    /** An action at random, as the world stands. */
    Action draw();

    void perform(const Action& action);

    /** Throws when an answered cookie is still there, or one that the modem owns has gone. */
    void checkCookies();

    std::vector<int32_t> tokens[3];  ///< serials whose event of TOKEN_EVENTS is still to come

private:
    struct Pending {
        void* cookie;
        modem_api_async_callback callback;
        std::weak_ptr<Message> message;
    };

    /** Callbacks of a client, for every world: whatever comes there is the present one's. */
    struct Client {
        explicit Client(int number)
            : response(new vendor::lyr::modem::V1_0::BpHwModemResponse(
                      channel(Effect::ANSWER, number), 1)),
              indication(new vendor::lyr::modem::V1_0::BpHwModemIndication(
                      channel(Effect::INDICATION, number), 1)) {}

        static std::shared_ptr<Channel> channel(Effect::Kind kind, int number) {
            return std::make_shared<Channel>([kind, number](uint32_t code, hal::Parcel& args) {
                return sWorld->receive(kind, number, code, args);
            });
        }

        const android::sp<vendor::lyr::modem::V1_0::IModemResponse> response;
        const android::sp<vendor::lyr::modem::V1_0::IModemIndication> indication;
    };

    static Client& client(int number);

    // ---- What is done to the plug-in ------------------------------------------------------------

    bool chance(uint64_t oneIn) { return mFaulty && below(oneIn) == 0; }
    template <class T>
    T oneOf(std::initializer_list<T> items) {
        return items.begin()[below(items.size())];
    }

    /** Every byte at random; the first ones by draws of their own. */
    std::string bytes(size_t size);
    /** Bytes whose words of four are zero now and then. */
    std::string words(size_t size);
    /** Around the limits of names, values and records, or anything. */
    size_t size();
    int result() { return oneOf({1, 3, 5, 9, -1}); }

    Action drawRequest();
    Value drawValue(const hal::Field& field);
    Record drawRecord();
    Action drawEvent();
    void drawCommand(Action& action);
    /** The plug-in's own allocations begin with its first line: what stands before is not its. */
    void prepareFailure(const Action& action);
    void arm();
    void request(const Action& action);
    void answer(const Pending& pending, const Record& record);
    void raise(const Action& action);

    // ---- What the plug-in does ------------------------------------------------------------------

    int take(const ScriptedModem::Call& call);
    /** Writes what the function is to give, and notes it. */
    void fill(const std::string& function, void* out, std::string& given);
    android::hardware::Return<void> receive(Effect::Kind kind, int number, uint32_t code,
                                            hal::Parcel& args);

    inline static World* sWorld = nullptr;

    const Random mRandom;
    std::vector<Effect>& mEffects;
    const int mInstance;
    const uint64_t mRefusesOneIn, mBindFailsOneIn;
    int32_t mSerial;
    bool mFaulty = true;
    bool mArmed = false, mStruck = false;
    size_t mFailing = SIZE_MAX;
    int mDepth = 0;
    bool mTransportFails[CLIENTS] = {};
    std::vector<Pending> mPending;
    std::vector<std::weak_ptr<Message>> mGone;
    ScriptedModem& mModem = ScriptedModem::instance();
    std::shared_ptr<ModemImpl> mService;
    android::sp<hal::Stub> mStub;
};
