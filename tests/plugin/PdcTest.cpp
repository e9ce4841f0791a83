// Modem configurations beyond what all requests share: events, identifiers, the list, loading.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "clients/MbnConfigLoader.h"
#include "clients/MbnList.h"
#include "clients/PdcQmiClient.h"
#include "tests/support/Service.h"

using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;

/** Reads of this program that a signal interrupts, from now on. */
std::atomic<int> sInterruptions{0};

std::string patterned(size_t size) {
    std::string content(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        content[i] = static_cast<char>(i % 251);
    }
    return content;
}

fs::path runtimeFolder() {
    return getenv("OX_RUNTIME_DIR");
}

constexpr int64_t NONE = -1;

/** Makes a file of this size, or changes one. */
void makeFile(const fs::path& path, int64_t size) {
    if (size != NONE) {
        std::ofstream(path) << patterned(std::min<int64_t>(size, 5000));
        fs::resize_file(path, size);
    }
}

size_t openDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

/** Makes a request, and returns its handler's lines without those of the answer. */
Lines handlerLines(Service& service, const std::string& method, const Lines& arguments = {}) {
    service.call(method, 7, arguments);
    service.forget();
    Service::runAll();
    const Lines log = service.log.take();
    return Lines(log.begin() + 1, log.end() - 2);
}

}  // namespace

extern "C" ssize_t read(int fd, void* buffer, size_t size) {
    if (sInterruptions > 0) {
        --sInterruptions;
        errno = EINTR;
        return -1;
    }
    return syscall(SYS_read, fd, buffer, size);
}

TEST(PdcEvents, AnswerByTokenWithAsManyBytesAsReported) {
    const struct Kind {
        modem_api_event_type event;
        std::string method;
        size_t layout;  // of which the last four bytes are the reported length
    } active{17, "getActiveMbnInfo", 140}, meta{18, "getMetaMbnInfo", 272},
            regular{22, "activateRegularMbn", 12};
    constexpr uint32_t MOST = UINT32_MAX;
    constexpr size_t REFUSED = SIZE_MAX;
    // clang-format off
    const struct {
        const Kind& kind;
        size_t size;
        int32_t result, token;
        uint32_t reported;
        size_t bytes;  // of the answer: never past the event
        Errno err = 0;
    } rows[] = {
        {active, 140, 0, 7, 0, 0},      {active, 140, 0, -1, 124, 124}, {active, 140, 0, 7, 125, 125},
        {active, 140, 0, 7, 256, 128},  {active, 400, 0, 7, 257, 257},  {active, 140, 0, 7, MOST, 128},
        {active, 140, 1, 7, 2, 2, 1},   {active, 140, 3, 7, 2, 2, 3},   {active, 140, 5, 7, 2, 2, 2},
        {active, 140, 7, 7, 2, 2, 1},   {active, 140, -1, 7, 2, 2, 1},  {active, 139, 0, 7, 2, REFUSED},
        {active, 0, 0, 7, 2, REFUSED},  {meta, 272, 0, INT_MIN, 0, 0},  {meta, 272, 0, 99, 125, 125},
        {meta, 272, 3, 7, 256, 256, 3}, {meta, 272, 5, 7, 257, 257, 2}, {meta, 272, 0, 7, MOST, 260},
        {meta, 271, 0, 7, 2, REFUSED},  {regular, 12, 0, -2, 0, 0},     {regular, 99, 3, 7, 0, 0, 3},
        {regular, 12, 5, 7, 0, 0, 2},   {regular, 12, 7, 7, 0, 0, 1},   {regular, 11, 0, 7, 0, REFUSED},
    };
    // clang-format on
    Service service;
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows);
        std::string data = patterned(400);
        memcpy(&data[row.kind.layout - 4], &row.reported, 4);
        memcpy(&data[0], &row.result, 4);
        memcpy(&data[8], &row.token, 4);
        service.modem.raise(row.kind.event, row.size != 0 ? data.data() : nullptr, row.size);

        const Lines log = service.log.take();
        std::string respond = "respond" + row.kind.method;
        respond[7] += 'A' - 'a';
        if (row.bytes == REFUSED) {
            EXPECT_EQ(log.back(), "E " + respond + "Async: event data of " +
                                          std::to_string(row.size) + " bytes is too short, need " +
                                          std::to_string(row.kind.layout));
            EXPECT_THAT(service.client.take(), IsEmpty());
            continue;
        }
        EXPECT_EQ(log[3], "I " + respond + ": serial = " + std::to_string(row.token) +
                                  ", err = " + std::to_string(row.err));
        std::string payload;
        if (&row.kind != &regular) {
            for (size_t i = 0; i < row.bytes; ++i) {
                const auto byte = static_cast<uint8_t>(data[12 + i]);
                payload += (i > 0 ? "," : "") + std::to_string(byte);
            }
            payload = R"(,"mbnInfo":{"result":)" + std::to_string(row.result) + R"(,"configId":[)" +
                      payload + "]}";
        }
        const int error = row.err == ERRNO_INVALID_PARAM ? 1 : row.err;
        EXPECT_THAT(service.client.take(),
                    ElementsAre(answerLine(row.kind.method, row.token, error, payload)));
    }
}

TEST(PdcRequests, HandOverIdentifiersOf124Bytes) {
    Service service;
    for (const size_t size : {0, 123, 124, 125, 5000}) {
        std::string id = patterned(size);
        const std::string argument = "hex:" + toHex(id.data(), size);
        id.resize(124);
        id = toHex(id.data(), 124);
        service.call("getMetaMbnInfo", 1, {argument, "-5"});
        service.call("selectMbn", 2, {"3", argument});
        service.call("selectMbnExt", 3, {"3", argument, "999"});
        Service::runAll();
        EXPECT_THAT(service.modem.calls(),
                    ElementsAre("modem_pdc_get_config_info(" + id + ", -5, 1)",
                                "modem_pdc_set_selected_config_info(3, " + id + ")",
                                "modem_pdc_set_selected_config_info_ext(3, " + id + ", 999)"));
        service.forget();
    }
}

TEST(PdcList, TakesTheNamesOutOfTheLines) {
    const std::string p = "0123456789abcdef";
    const std::string big(1 << 20, 'n');
    const struct {
        std::string text;
        Lines mbns;
    } rows[] = {
            {"", {}},
            {p + "generic/row/mcfg_sw.mbn\n" + p + "last/mcfg_sw.mbn", {"generic/row/", "last/"}},
            {p + "a/mcfg_sw.mbn\r\n" + p + "b\r\n" + p + "c", {"a/", "b", "c"}},
            {p + "mcfg_sw.mbn\n" + p + "xmcfg_sw.mbn\n", {"x"}},
            {p + "a/mcfg_sw.mbn b/mcfg_sw.mbn\n", {"a/"}},
            {"mcfg_sw.mbn" + p + "a/mcfg_sw.mbn\n", {}},
            {p + "\n" + p + "\r\n" + p, {"", "", ""}},
            {p.substr(1) + "\n" + p.substr(1) + "\r\n\n\r\nx", {}},
            {p + big + "mcfg_sw.mbn\n" + p + "y\n", {big, "y"}},
    };
    const LogCapture log;
    for (const auto& row : rows) {
        EXPECT_EQ(parseMbnList("f", row.text), row.mbns) << row.text.substr(0, 99);
    }
}

// The list is a file of the device: it is answered whatever the modem's service does.
TEST(PdcList, ComesFromTheDevicesFile) {
    const fs::path path = mbnListFile();
    const fs::path away = path.string() + ".away";
    const std::string func = "handleGetMbnListMessage: ";
    const std::string failure = "E " + func + "failed to read " + path.string();
    Service service;
    service.disconnect(MODEM_API_QMI_SERVICE_PDC);
    const auto expect = [&](const Lines& lines, const std::string& answer) {
        EXPECT_EQ(handlerLines(service, "getMbnList"), lines);
        EXPECT_THAT(service.client.take(), ElementsAre(answer));
    };
    fs::rename(path, away);
    expect({}, answerLine("getMbnList", 7, 1, R"(,"mbns":[])"));
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expect({failure}, answerLine("getMbnList", 7, 1, R"(,"mbns":[])"));
    fs::remove(path);
    std::ofstream(path) << "0123456789abcdefa/mcfg_sw.mbn\nshort\n0123456789abcdefb";
    expect({"I " + func + "got mbn {a/}", "I " + func + "got mbn {b}", "I " + func + "got 2 mbns"},
           answerLine("getMbnList", 7, 0, R"(,"mbns":["a/","b"])"));
    fs::rename(away, path);
}

TEST(PdcLoad, SendsTheFileInChunks) {
    const std::string folder = (runtimeFolder() / "").string();
    const std::string func = "handleLoadMbnConfigMessage: ";
    constexpr const char* MODEM_CALL = "modem_pdc_load_configuration";
    constexpr int64_t TOO_LARGE = 1LL << 31;
    // clang-format off
    const struct {
        const char* what;
        int64_t size;
        std::vector<int> chunks;    // that the modem is given
        const char* failure = "";
        size_t pathLength = 100;
        int64_t sizeLater = NONE;   // from the first chunk on
        std::vector<int> results{}; // of the modem
        int interruptions = 0;
    } rows[] = {
        {"three chunks", 2000, {900, 900, 200}},
        {"full chunks", 1800, {900, 900}},
        {"empty", 0, {}},
        {"missing", NONE, {}, "failed to fstat file: Bad file descriptor"},
        {"too large", TOO_LARGE, {}, "file of 2147483648 bytes is too large"},
        {"path that the identifier takes", 1, {1}, "", 116},
        {"path that it does not", 1, {1}, "", 117},
        {"longest path", 1, {1}, "", 123},
        {"shrinks", 2000, {900, 100}, "read fail", 100, 1000},
        {"grows", 2000, {900, 900, 900}, "", 100, 5000},
        {"first refused", 2000, {900}, "failed to load mbn config", 100, NONE, {1}},
        {"second refused", 2000, {900, 900}, "failed to load mbn config", 100, NONE, {0, 5}},
        {"interrupted", 1000, {900, 100}, "", 100, NONE, {}, 3},
    };
    // clang-format on
    Service service;
    const size_t descriptors = openDescriptors();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const std::string path = folder + std::string(row.pathLength - folder.size(), 'p');
        makeFile(path, row.size);
        std::string sent;
        service.modem.reset();
        service.modem.returnsOnce(MODEM_CALL, row.results);
        service.modem.onCall(MODEM_CALL, [&](void* chunk) {
            sent += *static_cast<std::string*>(chunk);
            makeFile(path, row.sizeLater);
        });
        sInterruptions = row.interruptions;

        const std::string id = "MbnApp_" + path.substr(0, 116);
        const std::string total = std::to_string(row.size);
        Lines lines;
        if (row.size != NONE && row.size != TOO_LARGE) {
            lines = {"I " + func + "config = " + path, "I " + func + "configPath = " + id,
                     "I " + func + "totalConfigSize = " + total};
        }
        const bool fails = *row.failure != '\0';
        if (fails) {
            lines.push_back("E " + func + row.failure);
        }
        EXPECT_EQ(handlerLines(service, "loadMbnConfig", {path}), lines);
        EXPECT_THAT(service.client.take(), ElementsAre(answerLine("loadMbnConfig", 7, fails, "")));
        Lines calls;
        for (const int length : row.chunks) {
            calls.push_back(std::string(MODEM_CALL) + "(" + id + ", " + std::to_string(length) +
                            ", " + total + ")");
        }
        EXPECT_EQ(service.modem.calls(), calls);
        EXPECT_EQ(sent, patterned(sent.size()));
        EXPECT_EQ(sInterruptions, 0);
        fs::remove(path);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(PdcLoad, EndsAtOnceForWhatIsNoFile) {
    const fs::path pipe = runtimeFolder() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string func = "handleLoadMbnConfigMessage: ";
    Service service;
    EXPECT_EQ(handlerLines(service, "loadMbnConfig", {runtimeFolder()}).back(),
              "E " + func + "read fail");
    EXPECT_EQ(handlerLines(service, "loadMbnConfig", {pipe}).back(),
              "I " + func + "totalConfigSize = 0");
    EXPECT_EQ(handlerLines(service, "loadMbnConfig", {""}).back(),
              "E " + func + "failed to fstat file: Bad file descriptor");
    service.disconnect(MODEM_API_QMI_SERVICE_PDC);
    EXPECT_EQ(handlerLines(service, "loadMbnConfig", {std::string(124, 'p')}).back(),
              "E " + func + "PDC QMI service not connected");
    EXPECT_THAT(service.modem.calls(), IsEmpty());
}

TEST(PdcLoad, StopsTheProcessForAPathTooLong) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(loadMbnConfigFile("load", std::vector<uint8_t>(124, 'p')),
                 "F LIB-OX-MODEM: load: 124 bytes don't fit into 123, can't go on");
}

// A long load holds up this client's requests, and no other client's.
TEST(PdcLoad, LeavesTheOtherClientsFree) {
    constexpr int64_t SIZE = 16 << 20;
    const fs::path path = runtimeFolder() / "long";
    makeFile(path, SIZE);
    Service service(0, desk::Delivery::THREADS);
    std::atomic<bool> isFirst{true};
    service.modem.onCall("modem_pdc_load_configuration", [&](void*) {
        if (isFirst.exchange(false)) {
            service.call("activateMbn", 2, {"1"});
            service.call("getOperatingMode", 3);
            EXPECT_THAT(service.client.waitFor(1),
                        ElementsAre(answerLine("getOperatingMode", 3, 0, R"(,"mode":0)")));
        }
    });
    service.call("loadMbnConfig", 1, {path});
    ASSERT_TRUE(service.log.waitFor("respondActivateMbn: succeed"));
    EXPECT_THAT(service.client.take(), ElementsAre(answerLine("loadMbnConfig", 1, 0, ""),
                                                   answerLine("activateMbn", 2, 0, "")));
    EXPECT_EQ(service.modem.calls("modem_pdc_load").size(), (SIZE + 899) / 900);
}
