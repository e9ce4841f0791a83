#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "desk/libmodemapi_vendor/src/Api.h"
#include "desk/libmodemapi_vendor/src/AtPort.h"
#include "desk/libmodemapi_vendor/src/Commands.h"
#include "desk/libmodemapi_vendor/src/Modem.h"

using fake::AtRequest;

namespace {

std::string run(const std::string& line) {
    const std::string reply = fake::runCommand(line);
    EXPECT_THAT(reply, testing::EndsWith("ok\n")) << line;
    return reply;
}

void connect(const std::string& service) {
    run("connect " + service);
    while (run("state service." + service).find(" up") == std::string::npos) {
        std::this_thread::yield();
    }
}

/** The modem with the services that the tests need, and its faults cleared. */
struct ModemTest : testing::Test {
    ModemTest() {
        run("clear");
        connect("pdc");
        connect("vs");
    }
};

}  // namespace

TEST_F(ModemTest, RefusesMoreThanItKeepsPending) {
    static std::atomic<size_t> answered;
    const auto ask = [] { return modem_get_build_id(nullptr, [](auto...) { ++answered; }); };
    run("delay modem_get_build_id 5000");
    size_t accepted = 0;
    for (size_t i = 0; i < 2 * fake::PENDING_MAX; ++i) {
        accepted += ask() == 0 ? 1 : 0;
    }
    EXPECT_GE(accepted, fake::PENDING_MAX);
    EXPECT_LT(accepted, 2 * fake::PENDING_MAX);
    while (answered < accepted) {
        std::this_thread::yield();
    }
    EXPECT_EQ(ask(), 0);
}

TEST_F(ModemTest, ConfigurationsAreWhatTheLoadsOfThemSent) {
    struct Row {
        int32_t total;
        std::vector<std::string> chunks;  // "!": the modem refuses one; "-": the service drops out
        const char* content;              // "": it is not complete
    };
    const Row rows[] = {
            {8, {"aaa", "bbb", "cc"}, "aaabbbcc"},
            {6, {"aaa"}, ""},
            {5, {"aaa", "bbb"}, ""},
            {6, {"aaa", "!", "bbb", "ccc"}, "bbbccc"},
            {6, {"aaa", "-", "bbb", "ccc"}, "bbbccc"},
            {6, {"aaa", "bbb", "ccc", "ddd"}, "cccddd"},
            {7, {"aaa", "bbb", "ccc", "ddd", "e"}, "cccddde"},
            {INT32_MAX, {"aaa"}, ""},
    };
    for (const Row& row : rows) {
        modem_pdc_delete_all_mbns();
        for (const std::string& chunk : row.chunks) {
            if (chunk == "!") {
                run("fail modem_pdc_load_configuration 1 1");
            } else if (chunk == "-") {
                run("disconnect pdc");
                connect("pdc");
                continue;
            }
            modem_pdc_load_configuration("x", reinterpret_cast<const uint8_t*>(chunk.data()),
                                         static_cast<int32_t>(chunk.size()), row.total);
        }
        std::string content;
        fake::Modem::get().with([&](fake::Memory& memory) {
            const fake::Configuration& loaded = memory.configurations["x"];
            content.assign(loaded.data.begin(), loaded.data.end());
            content.resize(loaded.isComplete() ? content.size() : 0);
        });
        EXPECT_EQ(content, row.content) << testing::PrintToString(row.chunks);
    }
}

TEST_F(ModemTest, StoresGiveBackWhatFits) {
    uint8_t bytes[513] = {};
    size_t length = 2;
    EXPECT_EQ(modem_write_nv_for_subid(-1, 5, bytes, 3), 0);
    EXPECT_NE(modem_write_nv_for_subid(0, 5, bytes, 513), 0);
    EXPECT_NE(modem_read_nv_for_subid(-1, 5, 9, bytes, &length), 0);
    length = 512;
    EXPECT_NE(modem_read_nv_for_subid(0, 5, 9, bytes, &length), 0);
    EXPECT_EQ(modem_read_nv_for_subid(-1, 5, 9, bytes, &length), 0);
    EXPECT_EQ(length, 3U);
    const auto noDefault = [](fake::Memory& memory) { fake::valueOf(memory.numbers, "none"); };
    EXPECT_NE(fake::request("modem_none", fake::NO_SERVICE, noDefault), 0);
}

TEST_F(ModemTest, WrongCommandsSayWhatAndWhere) {
    const std::pair<std::string, const char*> rows[] = {
            {"sing", "error: no command 'sing'; 'help' lists them"},
            {"rrc 1 2 x 4", "error: rrc: argument 3 'x' is not a number from -2147483648"},
            {"state nosuch", "error: state: argument 1 'nosuch' begins no key"},
            {"connect foo", "'foo' is no service: wds, dms, nas, at, sar, pdc, vs, vms, all, or"},
            {"set latency-ms 1 2", "error: set: argument 3 '2' is one too many"},
            {"event 15 0g", "error: event: argument 2 '0g' is not pairs of hexadecimal digits"},
            {"event 2 " + std::string(2 * sizeof(modem_atlog_cmd_type), '1'), "use 'at'"},
            {"fail malloc", "error: the modem API has no function 'malloc'"},
            {"patch modem_get_build_id token 1", "argument 2 'token' is neither an offset nor"},
            {"set build-id \"a\x01", "error: a quote is not closed"},
            {"  calls   modem_get_build_id\r", "0\nok\n"},
    };
    for (const auto& [line, reply] : rows) {
        EXPECT_THAT(fake::runCommand(line), testing::HasSubstr(reply)) << line;
    }
}

TEST(AtLine, EditsLinesAndTellsRequestsApart) {
    fake::AtLine line;
    std::string shown;
    std::vector<std::string> lines;
    for (const char c : std::string("\x7f"
                                    "AX\bT\r\nATE\nB\r")) {
        if (auto ended = line.feed(c, shown)) {
            lines.push_back(*ended);
        }
    }
    EXPECT_EQ(shown, "AX\b \bT\rATE\nB\r");
    EXPECT_THAT(lines, testing::ElementsAre("AT", "ATE", "B"));
    const std::pair<std::string, AtRequest> rows[] = {
            {"", {AtRequest::NOTHING}},
            {"at+log = 1 ,,\"my, \" ", {AtRequest::EXTENDED, "+log", {"1", "", "my, "}}},
            {"AT+LOG=", {AtRequest::EXTENDED, "+LOG"}},
            {"AT+LOG=?", {AtRequest::ERROR}},
            {"AT+LOG=1,\"open", {AtRequest::ERROR}},
            {"AT+LOG=1" + std::string(60, ','), {AtRequest::ERROR}},
            {"AT" + std::string(fake::AtLine::LENGTH_MAX, ' '), {AtRequest::ERROR}},
    };
    for (const auto& [text, request] : rows) {
        const AtRequest parsed = fake::parseAtLine(text);
        EXPECT_EQ(std::tie(parsed.kind, parsed.name, parsed.tokens),
                  std::tie(request.kind, request.name, request.tokens))
                << text;
    }
}
