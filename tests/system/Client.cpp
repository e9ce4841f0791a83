#include "tests/system/Client.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tests/system/Desk.h"
#include "tools/modemctl/Api.h"
#include "tools/modemctl/Failure.h"
#include "tools/modemctl/Values.h"

void Client::install() {
    mSession.install();
    while (take() != Arrival::INSTALLED) {
    }
}

int32_t Client::send(const std::string& request) {
    const int32_t serial = mSerial++;
    send(request, serial);
    return serial;
}

void Client::send(const std::string& request, int32_t serial) {
    std::istringstream words(request);
    const std::vector<std::string> list(std::istream_iterator<std::string>(words), {});
    const hal::Method& method = api::request(list[0]);
    hal::Parcel parcel;
    values::encode(parcel, method, serial, {list.begin() + 1, list.end()});
    mSession.send(method, parcel);
}

Arrival::Kind Client::take() {
    const auto arrival = mSession.next(Session::Clock::now() + PATIENCE);
    if (!arrival) {
        throw std::runtime_error("nothing comes");
    }
    nlohmann::ordered_json arguments = arrival->arguments;
    if (arrival->kind == Arrival::ANSWER) {
        const auto info = arguments["info"];
        arguments.erase("info");
        mAnswers[info["serial"]].push_back(arrival->method->name + (' ' + info["error"].dump()) +
                                           ' ' + values::line(arguments));
    } else if (arrival->kind == Arrival::EVENT) {
        mEvents.push_back(arrival->method->name + (' ' + values::line(arguments)));
    }
    return arrival->kind;
}

std::string Client::answer(int32_t serial) {
    while (mAnswers[serial].empty()) {
        take();
    }
    const std::string first = mAnswers[serial].front();
    mAnswers[serial].erase(mAnswers[serial].begin());
    return first;
}

std::string Client::call(const std::string& request) {
    const std::string text = answer(send(request));
    const std::string name = request.substr(0, request.find(' ')) + "Response ";
    return text.rfind(name, 0) == 0 ? text.substr(name.size()) : text;
}

std::string Client::event() {
    while (mEvents.empty()) {
        take();
    }
    const std::string first = mEvents.front();
    mEvents.pop_front();
    return first;
}

std::map<int32_t, std::vector<std::string>> Client::drain() {
    try {
        while (true) {
            take();
        }
    } catch (const Failure&) {  // the service has gone
        return mAnswers;
    }
}
