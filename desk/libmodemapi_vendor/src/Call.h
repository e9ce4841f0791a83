#pragma once

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Modem.h"

namespace fake {

/** Longest time that a command takes as an argument, in milliseconds. */
constexpr int64_t MS_GREATEST = 600000;

/** One command with its arguments. An argument that is not allowed throws invalid_argument. */
class Call {
public:
    explicit Call(std::vector<std::string> words) : mWords(std::move(words)) {}

    Modem& modem = Modem::get();
    std::string output;  ///< lines, each with its newline

    /** Number of arguments. */
    size_t count() const { return mWords.size() - 1; }
    /** The argument at `place`, counted from 1; the command at 0. */
    const std::string& text(size_t place) const { return mWords[place]; }

    /** All arguments from `place` on, `separator` between them. */
    std::string joined(size_t place, const char* separator) const {
        std::string all;
        for (size_t i = place; i < mWords.size(); ++i) {
            all += (i > place ? separator : "") + mWords[i];
        }
        return all;
    }

    int64_t number(size_t place, int64_t lowest, int64_t greatest) const {
        return toNumber(place, mWords[place], lowest, greatest);
    }

    /** The number at `place`, which has to be the last argument. */
    int64_t only(size_t place, int64_t lowest, int64_t greatest) const {
        if (count() > place) {
            refuse(place + 1, "is one too many");
        }
        return number(place, lowest, greatest);
    }

    template <class Value>
    Value number(size_t place) const {
        return static_cast<Value>(number(place, std::numeric_limits<Value>::min(),
                                         std::numeric_limits<Value>::max()));
    }

    int64_t toNumber(size_t place, const std::string& word, int64_t lowest,
                     int64_t greatest) const {
        char* end = nullptr;
        errno = 0;
        const long long value = strtoll(word.c_str(), &end, 0);
        if (word.empty() || *end != '\0' || errno != 0 || value < lowest || value > greatest) {
            refuse(place, "is not a number from " + std::to_string(lowest) + " to " +
                                  std::to_string(greatest));
        }
        return value;
    }

    /** The bytes of all arguments from `place` on; "-" stands for none. */
    Bytes bytes(size_t place) const {
        const std::string all = joined(place, "");
        const auto bytes = fromHex(all == "-" ? "" : all);
        if (!bytes) {
            refuse(place, "is not pairs of hexadecimal digits");
        }
        return *bytes;
    }

    [[noreturn]] void refuse(size_t place, const std::string& why) const {
        throw std::invalid_argument(mWords[0] + ": argument " + std::to_string(place) + " '" +
                                    mWords[place] + "' " + why);
    }

    /** Changes the fault of the function that is the first argument. */
    template <class Change>
    void edit(Change&& change) const {
        modem.faults().edit(text(1), std::forward<Change>(change));
    }

    void print(const std::string& key, size_t width, const std::string& value) {
        const size_t gap = key.size() < width ? width - key.size() : 1;
        output += printable(key + (value.empty() ? "" : std::string(gap, ' ') + value)) + "\n";
    }

    /** Reports an event that only a subscriber gets. */
    template <class Record>
    void raise(modem_api_event_type number, const Record& record) const {
        if (!modem.isWanted(number)) {
            throw std::invalid_argument(mWords[0] + ": service down or not bound, or event " +
                                        std::to_string(number) + " not subscribed");
        }
        modem.raise(number, toBytes(record));
    }

private:
    const std::vector<std::string> mWords;
};

}  // namespace fake
