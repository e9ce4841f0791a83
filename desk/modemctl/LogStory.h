#pragma once

#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "LogLine.h"
#include "LogText.h"

namespace logs {

/** Place of a request, thread or process in its list. */
using Index = uint32_t;

constexpr Index NONE = UINT32_MAX;

/** What one thread did for a request, from its first line to its last one. */
struct Stage {
    Moment begin = NEVER;
    Moment end = NEVER;
    Index thread = NONE;
};

enum class Silence : uint8_t {
    NO,         ///< the request was answered, or should have been
    PERHAPS,    ///< the log ends where a silence by design would begin
    BY_DESIGN,  ///< requests that end like this are never answered
};

struct Request {
    Index process = NONE;
    MethodIndex method = NO_METHOD;
    int32_t serial = 0;
    Stage entry;
    Stage handling;        ///< on the client's handler thread
    Stage answer;          ///< on a thread of the modem's, of an asynchronous request
    Moment sent = NEVER;   ///< accepted by the modem, of an asynchronous request
    Moment modem = NEVER;  ///< the modem's answer came
    Moment answered = NEVER;
    int32_t err = 0;  ///< of the framework
    uint32_t answers = 0;
    bool delivered = false;  ///< handed to the transport without an error
    Silence silence = Silence::NO;
    std::vector<std::string> wrong;  ///< first warnings and errors, without prefixes, at most 8

    /** What the caller sees: 0, 1 or 2. */
    int result() const { return err == 0 || err == 2 ? err : 1; }
};

/** Something that belongs to no request. */
struct Happening {
    enum Kind : uint8_t { PROCESS, CLIENT, SERVICE, BIND, EVENT, AT_COMMAND, ERROR };

    static const char* name(Kind kind);

    Moment time;
    Index thread;
    Kind kind;
    std::string text;
    std::string result;  ///< how an event or AT command ended, "" for well or unknown

    bool bad() const {
        return kind == ERROR || kind == BIND || (!result.empty() && result.substr(0, 2) != "OK");
    }
};

struct Process {
    int32_t pid;
    int instance = -1;   ///< -1: not told
    bool ended = false;  ///< its number was taken by a later process
};

struct Thread {
    Index process;
    int32_t number;
    std::string name;  ///< by what it does, such as "client" or "modem events"
};

/** An answer to a request that the log does not show. */
struct Stray {
    Moment time;
    Index thread;
    MethodIndex method;
    int32_t serial;
    int32_t err;
};

/** "12 ms", or "-" for a negative value. */
std::string milliseconds(double value);

/** Puts the lines of a log together to what happened; one line after the other, then `finish`. */
class Story {
public:
    void take(std::string_view rawLine);

    /** Nothing may be taken afterwards. */
    void finish();

    uint64_t lines = 0;
    uint64_t pluginLines = 0;
    uint64_t notUnderstood = 0;
    uint64_t lost = 0;     ///< lines that the logger says it left out
    Moment first = NEVER;  ///< of the plug-in's lines
    Moment last = NEVER;
    std::vector<Request> requests;  ///< in the order in which they came
    std::vector<Happening> happenings;
    std::vector<Process> processes;
    std::vector<Thread> threads;
    std::vector<Stray> strays;

    /** Milliseconds, as fine as the log tells; negative when one of the moments is missing. */
    double between(Moment begin, Moment end) const;

    /** What was last seen of a request that was not answered. */
    std::string lastSign(const Request& request) const;

private:
    /** What the lines of a thread belong to at the moment. */
    struct Context {
        Index request = NONE;
        Stage Request::*stage = nullptr;
        Index happening = NONE;
        Moment calledBack = NEVER;
        std::vector<std::string> wrong;
    };

    /** Requests of one process, method and serial, which may repeat. */
    struct Namesakes {
        std::vector<Index> open;  ///< oldest first, bounded
        Index last = NONE;
    };

    struct State {
        std::map<std::string, Moment, std::less<>> lost;  ///< by service: when it was lost
        std::map<MethodIndex, std::deque<Index>> queued;  ///< requests that wait for their handler
        std::map<MethodIndex, int32_t> roles;             ///< role that last served the method
        int32_t role = 0;
        Index atCommand = NONE;
    };

    using Key = std::tuple<Index, MethodIndex, int32_t>;
    struct KeyHash {
        size_t operator()(const Key& key) const;
    };

    Context& context() { return mContexts[mThread]; }
    State& state() { return mStates[mProcess]; }
    Moment clock(const Line& line);
    Index processOf(const Line& line, const Sign& sign);
    Index threadOf(int32_t number);
    int32_t roleOf(const Sign& sign);
    void follow(const Sign& sign);
    void fault(const Line& line, const Sign& sign);
    void begin(const std::string& threadName);
    void leave(Index thread);
    void silence(Index index);
    void enter(const Sign& sign);
    void handle(const Sign& sign);
    void answer(const Sign& sign);
    Index findAsked(const Sign& sign);
    void settle(Index index, const Sign& sign);
    void correctHandling(Index answered);
    void connection(const Sign& sign);
    void endAtCommand(const char* result);
    Index happen(Happening::Kind kind, std::string text);

    Moment mRaw = NEVER;
    Moment mYears = 0;  ///< added to the log's times, a year at each change of it
    int mOrder = 0;     ///< of lines in the same millisecond
    bool mFine = false;
    Moment mNow = NEVER;
    Index mThread = NONE;
    Index mProcess = NONE;
    bool mFinished = false;
    std::unordered_map<int32_t, Index> mProcessByPid;
    std::map<std::pair<Index, int32_t>, Index> mThreadByNumber;
    std::vector<Context> mContexts;  ///< of threads
    std::vector<State> mStates;      ///< of processes
    std::unordered_map<Key, Namesakes, KeyHash> mByKey;
};

}  // namespace logs
