#pragma once

#include <memory>
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

    static void goOn(bool more) { state().more = more; }

    /** What is sent now may be kept back, for there will be an `end`. */
    static bool goesOn() { return state().more; }

    /** The sender has kept something back, and is to release it when the burst ends. */
    static void keep(std::shared_ptr<Sender> sender) {
        state().senders.push_back(std::move(sender));
    }

    static void end() {
        State& own = state();
        own.more = false;
        while (!own.senders.empty()) {
            const std::shared_ptr<Sender> sender = std::move(own.senders.back());
            own.senders.pop_back();
            sender->release();
        }
    }

private:
    struct State {
        bool more = false;
        std::vector<std::shared_ptr<Sender>> senders;
    };

    static State& state() {
        static thread_local State state;
        return state;
    }
};

}  // namespace runtime
