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
    std::vector<std::string> names;
    for (const hal::Method* method : callable()) {
        if (method->name == name) {
            return *method;
        }
        names.emplace_back(method->name);
    }
    throw Failure(WRONG_USAGE, unknown(name, "method", names, "list"));
}

const hal::Method& answerTo(const hal::Method& request) {
    const std::string name = request.name + std::string("Response");
    return *std::find_if(ANSWERS.methods, ANSWERS.methods + ANSWERS.methodCount,
                         [&name](const hal::Method& answer) { return answer.name == name; });
}

std::string unknown(const std::string& name, const std::string& kind,
                    const std::vector<std::string>& names, const std::string& list) {
    const std::string& nearest = *std::min_element(
            names.begin(), names.end(), [&name](const std::string& a, const std::string& b) {
                return distance(name, a) < distance(name, b);
            });
    // Half of a short name, a few letters of a long one.
    const bool near = distance(name, nearest) <= std::min<size_t>(nearest.size() / 2, 4);
    return (name.empty() ? "''" : name) + ": no such " + kind + "; " +
           (near ? "did you mean " + nearest + '?' : "see modemctl " + list);
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
