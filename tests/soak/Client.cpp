#include "Client.h"

#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "DirectSession.h"
#include "desk/modemctl/Api.h"

namespace {

using Kind = hal::Type::Kind;

/** Widths of Kind::INT8 to Kind::UINT64, in bytes. */
constexpr size_t WIDTHS[] = {1, 1, 2, 2, 4, 4, 8, 8};

}  // namespace

const hal::Method& Requests::next(hal::Parcel& arguments, int32_t serial) {
    static const auto methods = api::callable();
    const hal::Method* method = methods[draw(static_cast<uint32_t>(methods.size()))];
    // One restart of the modem in some thousand requests: each refuses all others for a while.
    while (method->name == std::string("rebootModem") && draw(50) != 0) {
        method = methods[draw(static_cast<uint32_t>(methods.size()))];
    }
    arguments.write(serial);
    for (size_t i = 1; i < method->argCount; ++i) {
        write(arguments, method->args[i]);
    }
    return *method;
}

void Requests::write(hal::Parcel& parcel, const hal::Field& argument) {
    if (argument.type->kind < Kind::STRING) {
        const uint64_t number = draw(32);  // few places to write to: the modem's memory stays small
        parcel.writeBytes(&number, WIDTHS[static_cast<size_t>(argument.type->kind)]);
    } else if (argument.type->kind == Kind::STRING || argument.type->kind == Kind::VEC) {
        const std::string texts[] = {"factory", "", std::string(draw(80), 'x')};
        parcel.writeString(argument.name == std::string("path") ? mFile : texts[draw(3)]);
    } else {
        throw std::runtime_error(std::string("no values for a ") + argument.type->name);
    }
}

void runClient(int instance, const std::string& file, const Job& job, Begun& begun) {
    DirectSession client(instance, [](const Arrival&) {});
    if (job.owns) {
        client.install();
    }
    Requests requests(job.seed, file);
    std::minstd_rand pauses(static_cast<uint32_t>(job.seed));
    for (int32_t i = 0; i < job.requests; ++i) {
        hal::Parcel arguments;
        const hal::Method& request = requests.next(arguments, job.serial + i);
        begun = i + 1;
        client.send(request, arguments);
        std::this_thread::sleep_for(std::chrono::microseconds(pauses() % (job.pause + 1)));
    }
    pause();
}
