#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fake {

/** Puts the lines together that an operator types: echo, backspace, CR, LF or CR LF as the end. */
class AtLine {
public:
    static constexpr size_t LENGTH_MAX = 1024;

    /**
     * Takes one byte and adds to `output` what the operator sees of it. Gives the line that the
     * byte ends; one that was too long has LENGTH_MAX + 1 characters, its first ones.
     */
    std::optional<std::string> feed(char byte, std::string& output);

    void setEcho(bool on) { mEcho = on; }

private:
    bool mEcho = true;
    bool mAfterReturn = false;
    std::string mText;
};

/** What a typed line asks for. */
struct AtRequest {
    enum Kind { NOTHING, ERROR, OK, ECHO_OFF, ECHO_ON, EXTENDED };

    Kind kind;
    std::string name = {};                 ///< of an EXTENDED command: "+LOG", as it was typed
    std::vector<std::string> tokens = {};  ///< its arguments, without their quotes
};

/** Reads a line by its form alone: an EXTENDED command may have a name that nobody registered. */
AtRequest parseAtLine(const std::string& line);

/** A command on its way to the client that registered its name. */
struct AtCommand {
    uint64_t handle;
    uint64_t opCode;
    std::string name;
    uint16_t tokenCount;
    std::vector<std::optional<std::string>> tokens;  ///< nothing: a null pointer
};

/**
 * The modem's AT port, a pseudo-terminal. A command whose name is registered is handed on and held
 * until finish() or a timeout; what is typed meanwhile waits in the terminal. Callable from any
 * thread; never destroyed.
 */
class AtPort {
public:
    /** Opens the pseudo-terminal, links it as `link`, gives its path. Throws std::system_error. */
    std::string open(const std::string& link);

    void registerName(const std::string& name);
    /** Forgets the registered name and ends open commands with an error: the AT service is down. */
    void forget();

    /** Makes another command the open one, in place of an earlier one; its handle. */
    uint64_t post();
    /** Ends the open command of that handle, with OK or ERROR at its terminal; false: not open. */
    bool finish(uint64_t handle, bool success);

    std::vector<std::pair<std::string, std::string>> describe() const;

private:
    void serve();
    bool isDone(const AtRequest& request);
    bool hold(const AtRequest& request);
    void show(const std::string& text) const;

    int mMaster = -1;
    std::string mPath;
    AtLine mLine;

    mutable std::mutex mMutex;
    std::condition_variable mEnded;
    std::string mRegistered;
    uint64_t mLastHandle = 0;
    uint64_t mOpen = 0;       ///< handle of the open command, or 0
    uint64_t mSucceeded = 0;  ///< handle of the last command that ended with success
};

}  // namespace fake
