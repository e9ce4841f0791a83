#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace runtime {

/**
 * What a thread sends while more work lies ready for it goes out together, in one system call. Its
 * loop tells by `goOn` before each piece of work whether another one is ready, and calls `end`
 * before it waits for more. All of it is about the calling thread alone. Shared by the libraries of
 * a process, hence visible in each of them.
 */
class __attribute__((visibility("default"))) Burst {
public:
    /** Somebody who keeps back what this thread sends. */
    class Sender {
    public:
        virtual void release() = 0;

    protected:
        ~Sender() = default;
    };

    static void goOn(bool more) {
        State& own = state();
        if (own.senders.size() >= SENDERS_MAX) {  // a burst may last as long as somebody asks on
            releaseAll(own);
        }
        own.more = more;
    }

    /** What is sent now may be kept back, for there will be an `end`. */
    static bool goesOn() { return state().more; }

    /** The sender has kept something back, and is to release it when the burst ends. */
    static void keep(std::shared_ptr<Sender> sender) {
        auto& senders = state().senders;
        if (std::find(senders.begin(), senders.end(), sender) == senders.end()) {
            senders.push_back(std::move(sender));
        }
    }

    static void end() {
        State& own = state();
        own.more = false;
        releaseAll(own);
    }

private:
    static constexpr size_t SENDERS_MAX = 16;

    struct State {
        bool more = false;
        std::vector<std::shared_ptr<Sender>> senders;
    };

    static void releaseAll(State& own) {
        for (const auto& sender : own.senders) {
            sender->release();
        }
        own.senders.clear();
    }

    static State& state() {
        static thread_local State state;
        return state;
    }
};

}  // namespace runtime
