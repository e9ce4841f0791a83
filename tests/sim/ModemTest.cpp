#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/libmodemapi_vendor/src/AtLine.h"
#include "platform/libmodemapi_vendor/src/Commands.h"
#include "platform/libmodemapi_vendor/src/Modem.h"

using sim::AtRequest;
using testing::HasSubstr;

namespace {

std::mutex sMutex;
std::condition_variable sChanged;
std::vector<std::pair<modem_api_event_type, sim::Bytes>> sEvents;

/** Waits for an event; its data. */
sim::Bytes take(modem_api_event_type number) {
    std::unique_lock lock(sMutex);
    const bool came = sChanged.wait_for(lock, std::chrono::seconds(60), [&] {
        return std::any_of(sEvents.begin(), sEvents.end(),
                           [&](const auto& event) { return event.first == number; });
    });
    EXPECT_TRUE(came) << "no event " << number;
    const sim::Bytes data = came ? sEvents.back().second : sim::Bytes();
    sEvents.clear();
    return data;
}

void run(const std::string& line) {
    EXPECT_THAT(sim::runCommand(line), testing::EndsWith("ok\n")) << line;
}

/** The modem with the services that the tests need. */
class ModemTest : public testing::Test {
protected:
    void SetUp() override {
        run("forget");
        run("set latency-ms 0");
        modem_api_set_event_callback([](modem_api_event_type number, void* data, size_t length) {
            const auto* bytes = static_cast<const uint8_t*>(data);
            const std::lock_guard lock(sMutex);
            sEvents.emplace_back(number, sim::Bytes(bytes, bytes + length));
            sChanged.notify_all();
        });
        for (const modem_api_event_type event : {0, 1, 2}) {
            modem_api_subscribe_event(event);
        }
        for (const modem_api_qmi_service_type service : {8, 36, 228}) {
            modem_api_init_qmi_connection(service, 0);
            take(MODEM_API_EVENT_SERVICE_CONNECTED);
        }
    }
};

}  // namespace

TEST_F(ModemTest, RefusesMoreThanItCanKeepWaiting) {
    static std::atomic<int> answered;
    const auto ask = [] {
        return modem_get_build_id(nullptr, [](auto...) { ++answered; }) == 0 ? 1 : 0;
    };
    run("delay modem_get_build_id 2000");
    int accepted = 0;
    for (size_t i = 0; i < 2 * sim::WAITING_MAX; ++i) {
        accepted += ask();
    }
    EXPECT_EQ(sim::WAITING_MAX, accepted);
    while (answered < accepted) {
        std::this_thread::yield();
    }
    EXPECT_EQ(1, ask());
    run("clear");
}

TEST_F(ModemTest, ConfigurationsAreWhatTheLoadsOfThemSent) {
    struct Row {
        int32_t total;
        std::vector<std::string> chunks;  // "!": the modem refuses one; "-": the service drops out
        const char* content;              // complete; else null
    };
    const Row rows[] = {
            {8, {"aaa", "bbb", "cc"}, "aaabbbcc"},
            {9, {"aaa", "aaa", "aaa"}, "aaaaaaaaa"},
            {6, {"aaa"}, nullptr},
            {5, {"aaa", "bbb"}, nullptr},               // beyond its end
            {5, {"aaa", "bbb", "aaa", "bb"}, "aaabb"},  // and again
            {6, {"aaa", "!", "aaa", "bbb"}, "aaabbb"},  // refused in the middle
            {6, {"aaa", "-", "aaa", "bbb"}, "aaabbb"},
            {6, {"aaa", "aaa", "bbb"}, "aaabbb"},  // starts over in silence
            {8, {"aaa", "bbb", "aaa", "bbb", "cc"}, "aaabbbcc"},
            {9, {"aaa", "bbb", "aaa", "bbb", "ccc"}, "aaabbbccc"},
            {6, {"aaa", "bbb", "ccc", "ddd"}, "cccddd"},  // another file
            {INT32_MAX, {"aaa"}, nullptr},
    };
    for (const Row& row : rows) {
        modem_pdc_delete_all_mbns();
        for (const std::string& chunk : row.chunks) {
            if (chunk == "!") {
                run("fail modem_pdc_load_configuration 1 1");
            } else if (chunk == "-") {
                run("disconnect pdc");
                run("connect pdc");
                take(MODEM_API_EVENT_SERVICE_CONNECTED);
                continue;
            }
            modem_pdc_load_configuration("x", reinterpret_cast<const uint8_t*>(chunk.data()),
                                         static_cast<int32_t>(chunk.size()), row.total);
        }
        const auto known =
                sim::Modem::get().with([](auto& memory) { return memory.configurations; });
        const auto found = known.find("x");
        const bool isComplete = found != known.end() && found->second.isComplete();
        EXPECT_EQ(row.content != nullptr, isComplete) << testing::PrintToString(row.chunks);
        if (isComplete && row.content != nullptr) {
            EXPECT_EQ(row.content,
                      std::string(found->second.data.begin(), found->second.data.end()));
        }
    }
}

TEST_F(ModemTest, StoresGiveBackWhatFits) {
    const uint8_t item[3] = {1, 2, 3};
    uint8_t buffer[513] = {};
    const auto read = [&](int32_t selector, size_t room) {
        const int result = modem_read_nv_for_subid(selector, 5, 9, buffer, &room);
        return result == 0 ? static_cast<int>(room) : -1;
    };
    EXPECT_EQ(0, modem_write_nv_for_subid(-1, 5, item, sizeof(item)));
    EXPECT_NE(0, modem_write_nv_for_subid(0, 5, buffer, sizeof(buffer)));
    EXPECT_EQ(3, read(-1, 512));
    EXPECT_EQ(0, memcmp(buffer, item, sizeof(item)));
    EXPECT_EQ(-1, read(-1, 2));
    EXPECT_EQ(-1, read(0, 512));
    run("patch modem_read_nv_for_subid size 600");
    EXPECT_EQ(600, read(-1, 512));
    run("clear");
}

TEST_F(ModemTest, CommandsCarryAsManyTokensAsTheyCount) {
    run("at +LOG 11 1 one two");
    const sim::Bytes data = take(MODEM_API_EVENT_AT_COMMAND);
    modem_atlog_cmd_type command{};
    ASSERT_EQ(sizeof(command), data.size());
    memcpy(&command, data.data(), data.size());
    EXPECT_STREQ("one", command.tokens[0]);
    EXPECT_EQ(nullptr, command.tokens[1]);
    free(command.tokens[0]);
}

TEST_F(ModemTest, WrongCommandsSayWhatAndWhere) {
    const std::pair<std::string, const char*> rows[] = {
            {"sing", "error: no command 'sing'; 'help' lists them"},
            {"set", "error: usage: set KEY VALUE..."},
            {"rrc 1 2 x 4", "error: rrc: argument 3 'x' is not a number from -2147483648"},
            {"state nosuch", "error: state: argument 1 'nosuch' begins no key"},
            {"state nv.", "ok\n"},
            {"connect foo", "'foo' is no service: wds, dms, nas, at, sar, pdc, vs, vms, all, or"},
            {"set sarstate 1", "'sarstate' is no plain value of the memory; 'help keys'"},
            {"set latency-ms 1 2", "error: set: argument 3 '2' is one too many"},
            {"event 15 0g", "error: event: argument 2 '0g' is not pairs of hexadecimal digits"},
            {"event 2 " + std::string(2 * sizeof(modem_atlog_cmd_type), '1'), "use 'at'"},
            {"fail malloc", "error: the modem API has no function 'malloc'"},
            {"patch modem_get_build_id token 1", "argument 2 'token' is neither an offset nor"},
            {"delay modem_get_build_id 9-5", "argument 2 '9-5' is not a number from 9"},
            {"set build-id \"a", "error: a quote is not closed"},
            {"\x01\x7f", "error: no command '..'"},
            {"  calls   modem_get_build_id\r", "0\nok\n"},
    };
    for (const auto& [line, reply] : rows) {
        EXPECT_THAT(sim::runCommand(line), HasSubstr(reply)) << line;
    }
}

TEST(AtLine, EditsLinesAndTellsRequestsApart) {
    sim::AtLine line;
    std::string shown;
    std::vector<std::string> lines;
    for (const char c : std::string("AX\bT\r\n\x7f\x01"
                                    "ATE\nB\r")) {
        if (auto ended = line.feed(c, shown)) {
            lines.push_back(*ended);
        }
    }
    EXPECT_EQ("AX\b \bT\rATE\nB\r", shown);
    EXPECT_THAT(lines, testing::ElementsAre("AT", "ATE", "B"));
    const std::string sixty = "AT+LOG=1" + std::string(59, ',');
    const std::pair<std::string, AtRequest> rows[] = {
            {"", {AtRequest::NOTHING}},
            {"ATe0", {AtRequest::ECHO_OFF}},
            {"BAT", {AtRequest::ERROR}},
            {"at+log = 1 , tc7 ", {AtRequest::EXTENDED, "+log", {"1", "tc7"}}},
            {"AT+LOG=0,,\"my, \"", {AtRequest::EXTENDED, "+LOG", {"0", "", "my, "}}},
            {"AT+LOG=", {AtRequest::EXTENDED, "+LOG"}},
            {"AT+LOG=?", {AtRequest::ERROR}},
            {"AT+LOG=1,\"open", {AtRequest::ERROR}},
            {sixty + ",", {AtRequest::ERROR}},
            {"AT" + std::string(sim::AtLine::LENGTH_MAX, ' '), {AtRequest::ERROR}},
    };
    for (const auto& [text, request] : rows) {
        const AtRequest parsed = sim::parseAtLine(text);
        EXPECT_EQ(std::tie(request.kind, request.name, request.tokens),
                  std::tie(parsed.kind, parsed.name, parsed.tokens))
                << text;
    }
    EXPECT_EQ(60U, sim::parseAtLine(sixty).tokens.size());
}
