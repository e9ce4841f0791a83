// What the service tells of its state, and whom it cannot tell.

#include <cutils/native_handle.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/Service.h"

TEST(Debug, TellsTheStateOrWhyItCannot) {
    Service service;
    desk::setQueueLimit(1);
    service.call("getOperatingMode", 1);
    service.call("getOperatingMode", 2);
    desk::setQueueLimit(1024);
    Service::runAll();
    service.disconnect(MODEM_API_QMI_SERVICE_DMS);
    service.uninstall();
    const modem_power_save_mode_event event{};
    service.raise(MODEM_API_EVENT_POWER_SAVE_MODE, event);
    service.log.take();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    native_handle_t* const handle = native_handle_create(1, 0);
    handle->data[0] = ends[1];
    const std::string failed = "E debug: failed to write the state: ";
    const auto expect = [&](const native_handle_t* fd, const char* option,
                            const std::string& part) {
        EXPECT_TRUE(service.impl->debug(fd, {option}).isOk());
        char text[4096] = {};
        const auto length = part[0] == 'E' ? 0 : read(ends[0], text, sizeof(text));
        const auto lines = service.log.take();
        EXPECT_EQ(lines.empty(), length > 0);
        EXPECT_THAT(std::string(text, length) + testing::PrintToString(lines),
                    testing::HasSubstr(part));
    };
    expect(handle, "",
           "0\ncallbacks: answers no, events no\nkept events: RRC state no, power save mode yes\n");
    expect(handle, "",
           "\nDMS     no         -            -  -                     2          1          "
           "1\nNAS     yes  ");
    expect(handle, "json", R"(,"connected":true,"bound":true,"retries":0,"taken":0,)");
    expect(handle, "json", R"({"name":"AT","present":true,"connected":true,"openCommand":false,)");
    service.modem.returns("modem_api_bind_vs_subscription", {1});
    service.disconnect(MODEM_API_QMI_SERVICE_VS);
    service.connect(MODEM_API_QMI_SERVICE_VS);
    service.log.take();
    expect(handle, "json", R"({"name":"VS","present":true,"connected":true,"bound":false,)");
    expect(nullptr, "", "E debug: no descriptor to write the state to");
    while (fcntl(ends[1], F_SETFL, O_NONBLOCK) == 0 && write(ends[1], &event, 1) == 1) {
    }
    fcntl(ends[1], F_SETFL, 0);
    expect(handle, "", failed + "Resource temporarily unavailable");
    close(ends[0]);
    expect(handle, "", failed + "Broken pipe");
    native_handle_close(handle);
    native_handle_delete(handle);
    service.install();  // takes the event that was kept
}
