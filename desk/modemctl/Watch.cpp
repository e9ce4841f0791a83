#include "Watch.h"

#include <signal.h>
#include <unistd.h>

#include <string_view>

#include "Api.h"
#include "Printer.h"
#include "Session.h"
#include "Values.h"
#include "host/Sharing.h"

namespace {

using Clock = Session::Clock;

bool is(const Arrival& arrival, const char* method) {
    return arrival.method->name == std::string_view(method);
}

class Watch {
public:
    explicit Watch(const Options& options) : mOptions(options) {}

    ExitCode run() {
        // Every line was flushed when it was printed, so there is nothing to save at the end.
        for (const int stop : {SIGINT, SIGTERM}) {
            signal(stop, [](int) { _exit(ANSWERED); });
        }
        Session session(mOptions.instance,
                        sharing::EVENTS | (mOptions.all ? sharing::ALL_ANSWERS : sharing::NONE),
                        mOptions.follow ? Clock::time_point::max() : Clock::time_point::min());
        while (mEvents < mOptions.count || mUnconfirmed > 0) {
            if (const auto arrival = session.next(Clock::time_point::max())) {
                take(session, *arrival);
            }
        }
        return ANSWERED;
    }

private:
    void take(Session& session, const Arrival& arrival) {
        switch (arrival.kind) {
            case Arrival::READY:
                announce();
                break;
            case Arrival::REFUSED:
                --mUnconfirmed;
                note(arrival.text);
                break;
            case Arrival::ANSWER:
                print(*arrival.method, arrival.arguments);
                mUnconfirmed -=
                        mUnconfirmed > 0 && is(arrival, "sendLogControlRespResponse") ? 1 : 0;
                break;
            case Arrival::EVENT:
                print(*arrival.method, arrival.arguments);
                ++mEvents;
                if (mOptions.confirmLog && is(arrival, "atLogControlInfoInd")) {
                    confirm(session);
                }
                break;
            case Arrival::LOST:
                mLoss = arrival.text;
                mUnconfirmed = 0;
                break;
            default:
                note(arrival.text);
        }
    }

    /** Notes the first time that it watches, and later that it does so again after a gap. */
    void announce() {
        if (!std::exchange(mWatching, true)) {
            note("watching instance " + std::to_string(mOptions.instance) + ", Ctrl-C ends it");
        } else if (mLoss) {
            note("watching again, after the connection ended (" + *mLoss +
                 "); events and answers may have been missed");
            mLoss.reset();
        }
    }

    void confirm(Session& session) {
        const hal::Method& request = api::request("sendLogControlResp");
        hal::Parcel arguments;
        const int32_t serial = mOptions.serial ? *mOptions.serial : Session::freshSerial();
        values::encode(arguments, request, serial, {});
        print(request, {{"serial", serial}});
        session.ask(request, arguments);
        ++mUnconfirmed;
    }

    void print(const hal::Method& method, const nlohmann::ordered_json& arguments) const {
        printCall(mOptions.json, method, arguments, mOptions.stamps);
    }

    const Options& mOptions;
    bool mWatching = false;
    std::optional<std::string> mLoss;  ///< how the last connection ended
    uint64_t mEvents = 0;
    uint64_t mUnconfirmed = 0;
};

}  // namespace

ExitCode runWatch(const Options& options) {
    return Watch(options).run();
}
