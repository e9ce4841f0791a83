#pragma once

#include <optional>
#include <string>
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

}  // namespace fake
