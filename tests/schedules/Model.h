#pragma once

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/schedules/World.h"

/**
 * What the plug-in has to do, told a second time and as plainly as it goes: single-threaded,
 * without records, messages or proxies. It follows what the plug-in did, deed by deed, takes from
 * it what the modem and the clients chose, and throws std::runtime_error at the first difference.
 */
class Model {
public:
    Model(World& world, const std::vector<Deed>& deeds) : mWorld(world), mDeeds(deeds) {}

    /** Follows one action; all that the plug-in did has to be its consequence. */
    void follow(const Action& action);

    /** At the end: every request has its one answer, or is one that the modem left without. */
    void checkEnd() const;

private:
    struct Item {
        Qmi client;
        enum { REQUEST, BIND, REGISTER, COMMAND } kind;
        Action action{};
    };
    struct Binding {
        bool bound = false;
        int retries = 0;
    };

    void apply(const Action& action);
    const Deed* next() const { return mAt < mDeeds.size() ? &mDeeds[mAt] : nullptr; }
    const Deed& call(const std::string& text);
    int deliver(Deed::Kind kind, int client, uint32_t code, const std::string& bytes,
                const std::string& withoutMemory);
    int respond(const Request& request, int32_t serial, int err, const std::string& payload,
                const std::string& withoutMemory);
    void answer(const Action& request, int err, const std::string& payload);
    int indicate(uint32_t code, const std::string& bytes);

    void request(const Action& action);
    bool post(Item item);
    void step(uint64_t choice);
    void serve(const Action& action);
    void serveSync(const Action& action);
    void serveAsync(const Action& action);
    void serveToken(const Action& action);
    void list(const Action& action);
    void load(const Action& action);
    void deleteProfiles(const Action& action);
    void confirm(const Action& action);
    void finish(const Action& action, const Record& record);
    void bind(Qmi client);

    void event(const Action& action);
    void connected(int service, bool isConnected);
    void token(const Action& action, size_t kind);
    void command(const Action& action);
    bool readCommand(const Action& action, const modem_atlog_cmd_type& command);
    void keep(std::optional<std::string>& kept, uint32_t code, const std::string& bytes);
    int replay();
    int replay(std::optional<std::string>& kept, uint32_t code);

    World& mWorld;
    const std::vector<Deed>& mDeeds;
    size_t mAt = 0;
    bool mStruck = false;  ///< an allocation failed, and nothing has shown for it yet

    int mResponse = -1, mIndication = -1;
    bool mTransportFails[World::CLIENTS] = {};
    std::map<int, bool> mConnected;
    std::map<int, Binding> mBindings;
    std::deque<Item> mQueue;
    size_t mLimit = 1024;
    std::vector<Action> mPending;  ///< accepted asynchronous requests, as the modem holds them
    std::optional<std::string> mRrc, mPowerSave;
    uint64_t mHandle = 0;
    bool mOpen = false;          ///< an AT command waits for its confirmation
    std::set<int32_t> mWaiting;  ///< serials that are owed an answer
};
