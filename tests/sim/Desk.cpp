#include "Desk.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

constexpr modem_api_qmi_service_type ALL[] = {1, 2, 3, 8, 17, 36, 228};

}  // namespace

Inbox<Event>& Desk::events = *new Inbox<Event>;
Inbox<Answer>& Desk::answers = *new Inbox<Answer>;

int32_t Event::word(size_t offset) const {
    int32_t value = 0;
    memcpy(&value, data.data() + offset, sizeof value);
    return value;
}

bool operator==(const Event& event, const Event& other) {
    return event.number == other.number && event.data == other.data;
}

void Desk::SetUp() {
    run("forget");
    run("set latency-ms 0");
    modem_api_init_pre();
    modem_api_set_event_callback([](modem_api_event_type number, void* data, size_t length) {
        const auto* bytes = static_cast<const uint8_t*>(data);
        modem_api_subscribe_event(number);  // a callback may call the modem
        events.put({number, {bytes, bytes + length}});
    });
    for (const modem_api_event_type event : {0, 1, 2, 17, 18, 22}) {
        modem_api_subscribe_event(event);
    }
    for (const modem_api_qmi_service_type service : ALL) {
        ASSERT_EQ(0, modem_api_init_qmi_connection(service, 0));
        ASSERT_EQ(serviceEvent(true, service), events.take());
    }
    bindAndSubscribe();
}

void Desk::TearDown() {
    run("clear");
    for (const modem_api_qmi_service_type service : ALL) {
        modem_api_release_qmi_connection(service);
    }
    EXPECT_TRUE(events.isEmpty());
    EXPECT_TRUE(answers.isEmpty());
}

void Desk::bindAndSubscribe() {
    EXPECT_EQ(0, modem_api_bind_nas_subscription(1));
    EXPECT_EQ(0, modem_api_bind_wds_subscription(1));
    EXPECT_EQ(0, modem_api_bind_vs_subscription(1));
    for (const modem_api_event_type event : {15, 19, 20}) {
        modem_api_subscribe_event(event);
    }
    EXPECT_EQ(0, modem_api_register_indications());
    EXPECT_EQ(0, modem_atlog_cmd_reg("+LOG"));
}

std::string Desk::run(const std::string& line) {
    const std::string reply = sim::runCommand(line);
    EXPECT_THAT(reply, testing::EndsWith("ok\n")) << line;
    return reply.substr(0, reply.rfind("ok\n"));
}

void Desk::onAnswer(const void* data, size_t length, void* cookie, modem_api_result_type) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    modem_common_interface_debug(1);  // a callback may call the modem
    answers.put({{bytes, bytes + length}, data == nullptr, cookie});
}

Event Desk::serviceEvent(bool up, modem_api_qmi_service_type service) {
    return {up ? MODEM_API_EVENT_SERVICE_CONNECTED : MODEM_API_EVENT_SERVICE_DISCONNECTED,
            sim::toBytes(service)};
}

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    char folder[] = "/tmp/sim-tests-XXXXXX";
    setenv("OX_RUNTIME_DIR", mkdtemp(folder), 1);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
