#include "Api.h"

#include <vendor/lyr/modem/1.0/table.h>

#include <algorithm>
#include <numeric>

#include "Failure.h"

namespace api {

using namespace vendor::lyr::modem::V1_0;

const hal::Interface& REQUESTS = IModem_table;
const hal::Interface& ANSWERS = IModemResponse_table;
const hal::Interface& EVENTS = IModemIndication_table;

namespace {

/** Letters to change, add or leave out to get from one name to the other. */
size_t distance(const std::string& from, const std::string& to) {
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (const char letter : from) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t change = diagonal + (tolower(letter) == tolower(to[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({change, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

std::vector<const hal::Method*> callable() {
    std::vector<const hal::Method*> methods;
    for (size_t i = 0; i < REQUESTS.methodCount; ++i) {
        const hal::Method& method = REQUESTS.methods[i];
        if (method.argCount > 0 && method.args[0].name == std::string("serial")) {
            methods.push_back(&method);
        }
    }
    return methods;
}

const hal::Method& request(const std::string& name) {
    const auto methods = callable();
    const hal::Method& nearest = **std::min_element(
            methods.begin(), methods.end(), [&name](const auto* a, const auto* b) {
                return distance(name, a->name) < distance(name, b->name);
            });
    if (nearest.name == name) {
        return nearest;
    }
    throw Failure(WRONG_USAGE, name + ": no such method; " +
                                       (distance(name, nearest.name) < 5
                                                ? std::string("did you mean ") + nearest.name + '?'
                                                : "see modemctl list"));
}

std::string nearest(const std::string& name, const std::vector<std::string>& names) {
    const auto found = std::min_element(names.begin(), names.end(),
                                        [&name](const std::string& a, const std::string& b) {
                                            return distance(name, a) < distance(name, b);
                                        });
    return found != names.end() && distance(name, *found) < found->size() / 2 + 1 ? *found : "";
}

std::string arguments(const hal::Method& request) {
    std::string text;
    for (size_t i = 1; i < request.argCount; ++i) {
        text += (i > 1 ? " " : "") + std::string(request.args[i].name) + ':' +
                request.args[i].type->name;
    }
    return text;
}

}  // namespace api
