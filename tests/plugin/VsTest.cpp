// The vendor-specific client beyond the table of requests: response records, payload edges,
// cookies, events, and many clients at once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/plugin/RequestTable.h"
#include "tests/support/Service.h"

using testing::Contains;
using testing::ElementsAre;

namespace {

using Lines = std::vector<std::string>;

std::vector<RequestRow> asyncRows() {
    std::vector<RequestRow> rows;
    for (const RequestRow& row : requestTable()) {
        if (row.style == Style::ASYNC) {
            rows.push_back(row);
        }
    }
    return rows;
}

std::string processName(const RequestRow& row) {
    std::string name = row.method;
    name[0] = static_cast<char>(toupper(name[0]));
    return "process" + name + (name == "AbortRRCConnection" ? "Response" : "AsyncResponse");
}

/** Asks for `row`, answers with these bytes, and gives what the client got. */
Lines answerTo(Service& service, const RequestRow& row, const void* data, size_t length) {
    service.call(row.method, ROW_SERIAL, row.arguments);
    Service::runAll();
    service.log.take();
    EXPECT_TRUE(service.modem.answer(data, length));
    return service.client.take();
}

}  // namespace

class AsyncRequest : public testing::TestWithParam<RequestRow> {};
INSTANTIATE_TEST_SUITE_P(All, AsyncRequest, testing::ValuesIn(asyncRows()),
                         [](const auto& info) { return info.param.method; });

TEST_P(AsyncRequest, BadResponseRecords) {
    const RequestRow& row = GetParam();
    Service service;
    std::vector<uint8_t> bytes(549, 0x41);
    const auto withResult = [&](uint32_t result) {
        memcpy(bytes.data() + 4, &result, sizeof(result));
        return bytes.data();
    };
    const struct {
        const void* data;
        size_t length;
        int err;
        const char* line;
        int error;
    } cases[] = {
            {nullptr, 0, 3, "invalid async response data request, can't process", 1},
            {nullptr, 548, 3, "invalid async response data request, can't process", 1},
            {bytes.data(), 547, 3, "invalid async response data request, can't process", 1},
            {bytes.data(), 549, 3, "invalid async response data request, can't process", 1},
            {withResult(3), 548, 3, "invalid async response result, can't process", 1},
            {withResult(5), 548, 2, "invalid async response result, can't process", 2},
            {withResult(0xffffffff), 548, 1, "invalid async response result, can't process", 1},
    };
    uint32_t results[] = {0, 0, 0, 0, 3, 5, 0xffffffff};
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& bad = cases[i];
        withResult(results[i]);
        const Lines got = answerTo(service, row, bad.data, bad.length);
        EXPECT_THAT(got, ElementsAre(answerLine(row.method, ROW_SERIAL, bad.error, row.empty)));
        const Lines log = service.log.take();
        EXPECT_EQ(log[1], std::string("E verifyModemAPIResponse: ") + bad.line);
        EXPECT_EQ(log[2], "E " + processName(row) + ": invalid async response data");
        EXPECT_THAT(log[3], testing::HasSubstr("err = " + std::to_string(bad.err)));
    }
}

// The modem calls back before the requesting call returns, and on another thread after the service
// has disconnected: both are answered once.
TEST_P(AsyncRequest, AnswersBeforeTheCallReturnsAndAfterDisconnection) {
    const RequestRow& row = GetParam();
    const std::string function =
            std::string(row.modemCall).substr(0, std::string(row.modemCall).find('('));
    Service service;
    static modem_async_response response;
    response = {};
    service.call(row.method, 1, row.arguments);
    Service::runAll();
    service.disconnect(228);
    std::thread([&] { EXPECT_TRUE(service.modem.answer(response)); }).join();
    EXPECT_THAT(service.client.take(), testing::SizeIs(1));

    service.connect(228);
    service.call(row.method, 2, row.arguments);
    std::atomic<bool> answered{false};
    std::thread early([&] {
        while (!answered) {
            answered = service.modem.answer(response);
        }
    });
    Service::runAll();
    early.join();
    EXPECT_THAT(service.client.take(), testing::SizeIs(1));
}

TEST(VsPayload, BuildTexts) {
    const struct {
        const char* name;
        uint32_t length;
        std::string bytes;
        int error;
        std::string text;
    } rows[] = {
            {"Whole", 3, "abcdef", 0, "abc"},
            {"CutAtNul", 10, {"abc\0defghi", 10}, 0, "abc"},
            {"Empty", 0, "abc", 0, ""},
            {"Longest", 255, std::string(300, 'x'), 0, std::string(255, 'x')},
            {"TooLong", 256, std::string(300, 'x'), 1, ""},
            {"Huge", 0xffffffff, "abc", 1, ""},
    };
    const std::pair<const char*, const char*> requests[] = {{"getBuildTime", "build time"},
                                                            {"getBuildId", "build Id"}};
    for (const auto& row : rows) {
        for (const auto& [method, what] : requests) {
            Service service;
            modem_async_response response{};
            response.payload.build.length = row.length;
            row.bytes.copy(response.payload.build.text, sizeof(response.payload.build.text));
            service.call(method, 1);
            Service::runAll();
            service.modem.answer(response);
            const std::string key = method == std::string("getBuildTime") ? "buildTime" : "buildId";
            EXPECT_THAT(service.client.take(),
                        ElementsAre(answerLine(method, 1, row.error,
                                               ",\"" + key + "\":\"" + row.text + "\"")))
                    << row.name;
            const std::string refusal = std::string(what) + " string length " +
                                        std::to_string(row.length) +
                                        " exceed max size, can't report";
            EXPECT_THAT(service.log.take(),
                        Contains(testing::HasSubstr(refusal)).Times(row.error != 0 ? 1 : 0));
        }
    }
}

TEST(VsPayload, PropertyValueEndsAtTheRecordsEndAtTheLatest) {
    Service service;
    modem_async_response response{};
    memset(response.payload.property_value, 'v', sizeof(response.payload.property_value));
    service.call("getModemProperty", 1, {"name"});
    Service::runAll();
    service.modem.answer(response);
    EXPECT_THAT(service.client.take(),
                ElementsAre(answerLine("getModemProperty", 1, 0,
                                       ",\"value\":\"" + std::string(540, 'v') + "\"")));
}

TEST(VsPayload, ListsWithABadCountAreDropped) {
    Service service;
    const auto bandsWith = [&](uint32_t count1, uint32_t count3, uint32_t count5) {
        modem_async_response response{};
        modem_bands_info& bands = response.payload.bands;
        bands.count1 = count1;
        bands.count3 = count3;
        bands.count5 = count5;
        bands.bands1[0] = bands.bands3[0] = bands.bands5[0] = 9;
        service.call("getBandsInfo", 1);
        Service::runAll();
        service.modem.answer(response);
        const std::string line = service.client.take().at(0);
        Lines lists;
        for (const char* list : {"list1", "list3", "list5"}) {
            const size_t at = line.find('[', line.find(list));
            const std::string text = line.substr(at, line.find(']', at) - at + 1);
            lists.push_back(std::to_string(std::count(text.begin(), text.end(), ',')) + text[1]);
        }
        return lists;
    };
    EXPECT_THAT(bandsWith(20, 50, 1), ElementsAre("199", "499", "09"));
    EXPECT_THAT(bandsWith(21, 51, 21), ElementsAre("0]", "0]", "0]"));
    EXPECT_THAT(bandsWith(0xffffffff, 1, 0x80000000), ElementsAre("0]", "09", "0]"));
}

TEST(VsPayload, PropertyRecordRunsOnIntoWhatFollows) {
    Service service;
    const auto recordOf = [&](const std::string& name, const std::string& value) {
        service.forget();
        service.call("setModemProperty", 1, {name, value});
        Service::runAll();
        const std::string call = service.modem.calls().at(0);
        while (service.modem.answer(nullptr, 0)) {
        }
        return call.substr(call.find('(') + 1, 2 * 576);
    };
    const auto hex = [](const std::string& text) { return toHex(text.data(), text.size()); };
    // 60 characters: the last five stand where the length goes, which is written after them.
    const std::string record = recordOf(std::string(60, 'n'), "v");
    EXPECT_EQ(record.substr(0, 2 * 56), "00" + hex(std::string(55, 'n')));
    EXPECT_EQ(record.substr(2 * 56, 8), "3c000000");
    EXPECT_EQ(record.substr(2 * 60, 6), hex("v") + "0000");
    // The longest of each, which runs to the record's very end.
    const std::string longest = recordOf(std::string(575, 'n'), "v");
    EXPECT_EQ(longest.substr(2 * 60, 4), hex("vn"));
    EXPECT_EQ(longest.substr(2 * 572), "01000000");
    EXPECT_EQ(recordOf("n", std::string(516, 'v')).substr(2 * 572), "04020000");
}

TEST(VsPayload, PropertyBeyondTheRecordStopsTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto set = [](size_t name, size_t value) {
        Service service;
        service.log.onLine([](const std::string& line) {
            if (line[0] == 'F') {
                fprintf(stderr, "%s\n", line.c_str());
            }
        });
        service.call("setModemProperty", 1, {std::string(name, 'n'), std::string(value, 'v')});
        Service::runAll();
    };
    EXPECT_DEATH(set(576, 1), "F handleSetModemPropertyMessage: 576 bytes don't fit into 575");
    EXPECT_DEATH(set(1, 517), "F handleSetModemPropertyMessage: 517 bytes don't fit into 516");
}

struct ReadRow {
    const char* method;
    std::vector<std::string> arguments;
    const char* function;
    size_t size;
};

TEST(VsPayload, ReadLengths) {
    const ReadRow rows[] = {
            {"readNVItem", {"1", "0", "0"}, "modem_read_nv_for_subid", 512},
            {"readEfsFile", {"1", "0"}, "modem_read_efs_for_subid", 10240},
            {"readPrl", {"0"}, "modem_read_prl", 10240},
    };
    for (const ReadRow& row : rows) {
        Service service;
        for (const size_t reported : {size_t{0}, row.size, row.size + 1, SIZE_MAX}) {
            service.modem.onCall(row.function, [&](void* out) {
                auto& [buffer, length] = *static_cast<std::pair<uint8_t*, size_t*>*>(out);
                EXPECT_EQ(std::count(buffer, buffer + *length, 0), static_cast<long>(row.size));
                memset(buffer, 7, row.size);
                *length = reported;
            });
            service.call(row.method, 1, row.arguments);
            Service::runAll();
            const std::string line = service.client.take().at(0);
            EXPECT_EQ(static_cast<size_t>(std::count(line.begin(), line.end(), '7')),
                      std::min(reported, row.size))
                    << row.method << ' ' << reported;
        }
    }
}

TEST(VsPayload, VerifiedFlag) {
    const std::pair<modem_nv_verification, int> rows[] = {
            {{1, 5, 0}, 1}, {{1, 0, 1}, 0}, {{0, 0, 0}, 0}, {{255, 0, 0}, 1}, {{0, 1, 0}, 0}};
    for (const auto& row : rows) {
        Service service;
        service.modem.onCall("modem_verify_nv", [&](void* out) {
            *static_cast<modem_nv_verification*>(out) = row.first;
        });
        service.call("verifyNV", 1, {"1", "hex:"});
        Service::runAll();
        EXPECT_THAT(service.client.take(),
                    ElementsAre(answerLine("verifyNV", 1, 0,
                                           ",\"verified\":" + std::to_string(row.second))));
    }
}

TEST(VsConnection, BindsSubscribesAndRegistersEachTime) {
    Service service(1);
    service.modem.returns("modem_api_bind_vs_subscription", 1);
    for (int i = 0; i < 2; ++i) {
        service.connect(228);
        EXPECT_THAT(
                service.modem.calls(),
                ElementsAre("modem_api_bind_vs_subscription(1)", "modem_api_subscribe_event(15)",
                            "modem_api_subscribe_event(19)", "modem_api_subscribe_event(20)",
                            "modem_api_register_indications()"));
        EXPECT_EQ(service.log.take().back(),
                  "E onConnected: failed to bind VS QMI subscription for instance id 1");
        service.modem.clearCalls();
    }
}

TEST(VsEvents, FieldsComeFromTheirPlaces) {
    Service service;
    uint8_t bytes[132];
    for (size_t i = 0; i < sizeof(bytes); ++i) {
        bytes[i] = static_cast<uint8_t>(i);
    }
    const auto word = [&](size_t at) {
        uint32_t value = 0;
        memcpy(&value, bytes + at, sizeof(value));
        return std::to_string(value);
    };
    const auto words = [&](size_t at) {
        return "[" + word(at) + "," + word(at + 4) + "," + word(at + 8) + "," + word(at + 12) + "]";
    };
    service.modem.raise(15, bytes, 24);
    service.modem.raise(20, bytes, 8);
    service.modem.raise(19, bytes, 132);
    uint64_t wide = 0;
    memcpy(&wide, bytes + 16, sizeof(wide));
    EXPECT_THAT(
            service.client.take(),
            ElementsAre(R"({"method":"modemRRCStateInd","type":0,"lteValid":)" + word(8) +
                                R"(,"rrcState":)" + word(12) + R"(,"wcdmaValid":)" + word(16) +
                                R"(,"wcdmaRrcState":)" + word(20) + "}",
                        R"({"method":"powerSaveModeInd","type":0,"mode":)" + word(4) + "}",
                        R"({"method":"modemRadioInfoReportInd","type":0,"radioInfo":{"field1":)" +
                                word(8) + R"(,"field2":)" + word(12) + R"(,"field3":)" +
                                std::to_string(wide) + R"(,"field4":)" + word(24) +
                                R"(,"field5":)" + words(28) + R"(,"field6":44,"field7":)" +
                                std::to_string(46 + 47 * 256) + R"(,"field8":)" + words(48) +
                                R"(,"field9":)" + word(64) + R"(,"field10Entry1":)" + words(68) +
                                R"(,"field10Entry2":)" + words(84) + R"(,"field10Entry3":)" +
                                words(100) + R"(,"field10Entry4":)" + words(116) + "}}"));
    EXPECT_THAT(service.log.take(),
                Contains("I reportRadioInfoInd: now report radio info to upperlayer"));
}

TEST(VsEvents, WithoutDataOrTooShortAreRefused) {
    Service service;
    const std::tuple<int, size_t, const char*> rows[] = {{15, 24, "reportRRCStateInd"},
                                                         {19, 132, "reportRadioInfoInd"},
                                                         {20, 8, "reportPowerSaveModeInd"}};
    const std::vector<uint8_t> bytes(132);
    for (const auto& [event, size, function] : rows) {
        service.modem.raise(event, nullptr, size);
        EXPECT_EQ(service.log.take().back(), std::string("E ") + function +
                                                     ": event data of 0 bytes is too short, need " +
                                                     std::to_string(size));
        service.modem.raise(event, bytes.data(), size - 1);
        EXPECT_EQ(service.log.take().back()[0], 'E');
        service.modem.raise(event, bytes.data(), size);
        EXPECT_EQ(service.log.take().back()[0], 'I');
    }
    EXPECT_THAT(service.client.take(), testing::SizeIs(3));
}

// Clients on many threads, answers late and in any order on others, the service dropping in and
// out: every request is answered once, with its own payload.
TEST(VsStress, EveryRequestIsAnsweredOnceWithItsOwnPayload) {
    constexpr int CLIENTS = 8;
    constexpr int REQUESTS = 250;
    Service service(0, desk::Delivery::THREADS);
    // The property asked for names its request; the modem gives it back as the value.
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int answerer = 0; answerer < 2; ++answerer) {
        threads.emplace_back([&, answerer] {
            std::minstd_rand random(answerer + 1);
            std::vector<ScriptedModem::Pending> held;
            while (!done || !held.empty()) {
                if (auto request = service.modem.takePending()) {
                    held.push_back(*request);
                }
                if (!held.empty() && (random() % 3 == 0 || done)) {
                    std::swap(held[random() % held.size()], held.back());
                    const auto* cookie = static_cast<ModemAsyncCbData*>(held.back().cookie);
                    const auto param = cookie->msg->getParam();
                    modem_async_response response{};
                    const auto& name = static_cast<const SerialStringParam&>(*param).value;
                    name.copy(response.payload.property_value, 100);
                    held.back().callback(&response, sizeof(response), held.back().cookie, 0);
                    held.pop_back();
                }
            }
        });
    }
    threads.emplace_back([&] {
        while (!done) {
            service.disconnect(228);
            service.connect(228);
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> clients;
    for (int client = 0; client < CLIENTS; ++client) {
        clients.emplace_back([&, client] {
            for (int i = 0; i < REQUESTS; ++i) {
                const int serial = client * REQUESTS + i;
                service.call("getModemProperty", serial, {"p" + std::to_string(serial)});
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    const Lines lines = service.client.waitFor(CLIENTS * REQUESTS);
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::map<int, int> answers;
    for (const std::string& line : lines) {
        const int serial = std::stoi(line.substr(line.find("serial\":") + 8));
        ++answers[serial];
        const bool failed = line.find("\"error\":0") == std::string::npos;
        const std::string value = failed ? "" : "p" + std::to_string(serial);
        EXPECT_THAT(line, testing::HasSubstr("\"value\":\"" + value + "\""));
    }
    EXPECT_EQ(answers.size(), static_cast<size_t>(CLIENTS * REQUESTS));
    EXPECT_EQ(lines.size(), static_cast<size_t>(CLIENTS * REQUESTS));
}
