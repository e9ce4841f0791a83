#include <array>
#include <cstring>
#include <future>

#include "Desk.h"
#include "platform/libmodemapi_vendor/src/Scheduler.h"

using sim::Milliseconds;
using testing::HasSubstr;

TEST(Scheduler, RunsByTimeThenByPostingAndNeverBehindABusyThread) {
    auto& sequence = *new sim::Scheduler(1);
    auto& order = *new Inbox<int>;
    sequence.post(Milliseconds(0), [&] {
        sequence.post(Milliseconds(30), [&] { order.put(4); });
        sequence.post(Milliseconds(5), [&] { order.put(3); });
        sequence.post(Milliseconds(0), [&] { order.put(1); });
        sequence.post(Milliseconds(0), [&] { order.put(2); });
    });
    for (const int expected : {1, 2, 3, 4}) {
        EXPECT_EQ(expected, order.take());
    }
    auto& pool = *new sim::Scheduler(2);
    std::promise<void> release;
    pool.post(Milliseconds(0), [&] { release.get_future().wait(); });
    pool.post(Milliseconds(0), [&] { order.put(5); });
    EXPECT_EQ(5, order.take());
    release.set_value();
    pool.post(Milliseconds(0), [&] { order.put(6); });
    EXPECT_EQ(6, order.take());
}

using Start = std::function<int(void* cookie, modem_api_async_callback callback)>;

struct AsyncFunction {
    const char* name;
    Start start;
};

std::vector<AsyncFunction> asyncFunctions() {
    static modem_property_record property{0, "net.name", 8, "value", 5};
    return {{"modem_get_build_time", modem_get_build_time},
            {"modem_get_build_id", modem_get_build_id},
            {"modem_api_active_mbn",
             [](auto... rest) { return modem_api_active_mbn("generic/row/", rest...); }},
            {"modem_api_restore_mbn", modem_api_restore_mbn},
            {"modem_api_set_agps_test_mode",
             [](auto... rest) { return modem_api_set_agps_test_mode(7, rest...); }},
            {"modem_api_get_agps_test_mode", modem_api_get_agps_test_mode},
            {"modem_api_set_power_save_mode",
             [](auto... rest) { return modem_api_set_power_save_mode(9, rest...); }},
            {"modem_api_get_power_save_mode", modem_api_get_power_save_mode},
            {"modem_api_set_modem_property",
             [](auto... rest) { return modem_api_set_modem_property(&property, rest...); }},
            {"modem_api_get_modem_property",
             [](auto... rest) { return modem_api_get_modem_property("net.name", rest...); }},
            {"modem_api_set_power_save_status",
             [](auto... rest) { return modem_api_set_power_save_status(3, rest...); }},
            {"modem_get_bands_info", modem_get_bands_info},
            {"modem_api_remove_rat_mask", modem_api_remove_rat_mask},
            {"modem_abort_rrc_connection", modem_abort_rrc_connection},
            {"modem_api_set_radio_info_report_enabled",
             [](auto... rest) { return modem_api_set_radio_info_report_enabled(0, rest...); }}};
}

TEST_F(Desk, EveryKnobTurnsEveryAsynchronousFunction) {
    for (const auto& [name, start] : asyncFunctions()) {
        SCOPED_TRACE(name);
        const std::string function = name;
        int cookie = 0;
        const auto answer = [&, &start = start] {
            EXPECT_EQ(0, start(&cookie, onAnswer));
            Answer taken = answers.take();
            EXPECT_EQ(&cookie, taken.cookie);
            return taken;
        };
        EXPECT_EQ(sizeof(modem_async_response), answer().data.size());
        run("result " + function + " 5");
        EXPECT_EQ(5U, answer().result());
        run("answer-length " + function + " 549");
        EXPECT_EQ(549U, answer().data.size());
        run("answer-length " + function + " 0");
        EXPECT_TRUE(answer().isNull);
        run("ok " + function);
        run("patch " + function + " 8 2a000000");
        EXPECT_EQ(42, answer().data[8]);
        run("fail " + function + " 77 1 1");
        answer();
        EXPECT_EQ(77, start(&cookie, onAnswer));
        EXPECT_EQ("7\n", run("calls " + function));
        run("silence " + function);
        EXPECT_EQ(0, start(&cookie, onAnswer));
        run("ok " + function);
        EXPECT_EQ(0U, answer().result());
        run("disconnect vs");
        EXPECT_EQ(serviceEvent(false, 228), events.take());
        EXPECT_NE(0, start(&cookie, onAnswer));
        run("connect vs");
        EXPECT_EQ(serviceEvent(true, 228), events.take());
    }
}

TEST_F(Desk, AnswersCarryWhatWasWritten) {
    const std::map<std::string, std::string> payloads = {
            {"modem_get_build_id", "1900000053494d554c41"},  // 25 characters, SIMULA...
            {"modem_api_get_agps_test_mode", "07000000"},
            {"modem_api_get_power_save_mode", "09"},
            {"modem_api_get_modem_property", "76616c756500"},
            {"modem_get_bands_info", "03000000010000000300000008000000"}};
    size_t seen = 0;
    for (const auto& [name, start] : asyncFunctions()) {
        start(nullptr, onAnswer);
        const Answer answer = answers.take();
        if (const auto found = payloads.find(name); found != payloads.end()) {
            EXPECT_EQ(found->second, sim::toHex(answer.data).substr(16, found->second.size()));
            ++seen;
        }
    }
    EXPECT_EQ(payloads.size(), seen);
    EXPECT_EQ(0, modem_api_delete_modem_property_sync("net.name"));
    EXPECT_NE(0, modem_api_delete_modem_property_sync("net.name"));
}

TEST_F(Desk, PropertyLengthsAreTakenNoFurtherThanTheRecord) {
    modem_property_record property;
    memset(&property, 'x', sizeof property);
    modem_api_set_modem_property(&property, nullptr, onAnswer);
    EXPECT_EQ(0U, answers.take().result());
    EXPECT_EQ(0, modem_api_delete_modem_property_sync(std::string(60, 'x').c_str()));
}

TEST_F(Desk, StoresGiveBackWhatTheyGot) {
    const Bytes item{1, 2, 3};
    uint8_t buffer[10240];
    const auto readNv = [&](int32_t selector, int32_t number, size_t room) {
        const int result = modem_read_nv_for_subid(selector, number, 9, buffer, &room);
        return result == 0 ? static_cast<int>(room) : -1;
    };
    EXPECT_EQ(0, modem_write_nv_for_subid(-1, 5, item.data(), item.size()));
    EXPECT_EQ(0, modem_write_nv_for_subid(2, 6, nullptr, 0));
    EXPECT_EQ(3, readNv(-1, 5, 512));
    EXPECT_EQ(0, memcmp(buffer, item.data(), item.size()));
    EXPECT_EQ(-1, readNv(-1, 5, 2));
    EXPECT_EQ(0, readNv(2, 6, 512));
    EXPECT_EQ(-1, readNv(0, 5, 512));
    EXPECT_NE(0, modem_write_nv_for_subid(0, 7, buffer, 513));
    run("answer-length modem_read_nv_for_subid 600");
    EXPECT_EQ(600, readNv(-1, 5, 512));

    const auto verify = [&](int32_t number, const Bytes& data) {
        modem_nv_verification found{};
        EXPECT_EQ(0, modem_verify_nv(number, data.data(), data.size(), &found));
        return found.compared * 10 + found.differs;
    };
    EXPECT_EQ(10, verify(5, item));
    EXPECT_EQ(11, verify(5, {1, 2}));
    EXPECT_EQ(0, verify(8, item));

    size_t length = sizeof buffer;
    EXPECT_EQ(0, modem_write_efs_for_subid(1, 7, buffer, sizeof buffer));
    EXPECT_EQ(0, modem_read_efs_for_subid(1, 7, buffer, &length));
    EXPECT_EQ(sizeof buffer, length);
    EXPECT_EQ(0, modem_del_efs_for_subid(1, 7));
    EXPECT_NE(0, modem_read_efs_for_subid(1, 7, buffer, &length));
    EXPECT_EQ(0, modem_write_efs_for_subid(2, 7, item.data(), item.size()));
    EXPECT_EQ(0, modem_del_efs_file_dir(7));
    EXPECT_NE(0, modem_del_efs_file_dir(7));
    EXPECT_EQ(0, modem_write_prl(4, item.data(), item.size()));
    EXPECT_EQ(0, modem_read_prl(4, buffer, &length));
    EXPECT_EQ(3U, length);
}

TEST_F(Desk, ConfigurationsAreCompleteAtTheirTotalAndNotBeyond) {
    struct Row {
        const char* what;
        std::vector<std::array<int32_t, 3>> chunks;  // length, total, result
        bool complete;
    };
    const Row rows[] = {
            {"in three", {{900, 2000, 0}, {900, 2000, 0}, {200, 2000, 0}}, true},
            {"in one", {{1, 1, 0}}, true},
            {"unfinished", {{900, 901, 0}}, false},
            {"beyond the total", {{900, 1000, 0}, {900, 1000, 1}}, false},
            {"another total", {{900, 2000, 0}, {900, 1900, 1}}, false},
            {"again after a refusal", {{9, 20, 0}, {9, 10, 1}, {10, 10, 0}}, true},
            {"loaded twice", {{10, 10, 0}, {10, 20, 0}, {10, 20, 0}}, true},
            {"lengths of no sense",
             {{0, 10, 3}, {-1, 10, 3}, {11, 10, 3}, {1, INT32_MAX, 3}},
             false},
    };
    const Bytes chunk(900);
    uint8_t id[MODEM_PDC_CONFIG_ID_SIZE] = "MbnApp_/a";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        modem_pdc_delete_all_mbns();
        for (const auto& [length, total, result] : row.chunks) {
            EXPECT_EQ(result,
                      modem_pdc_load_configuration("MbnApp_/a", chunk.data(), length, total));
        }
        EXPECT_EQ(row.complete, modem_pdc_set_selected_config_info(0, id) == 0);
        EXPECT_EQ(row.complete, modem_pdc_activate_config(0) == 0);
        EXPECT_EQ(row.complete, modem_pdc_deactivate_config(0) == 0);
    }
    EXPECT_NE(0, modem_pdc_load_configuration(std::string(124, 'x').c_str(), chunk.data(), 1, 1));
}

TEST_F(Desk, ConfigurationEventsAnswerByTokenAndAsTheKnobsSay) {
    uint8_t id[MODEM_PDC_CONFIG_ID_SIZE] = "factory";
    run("delay modem_pdc_get_activate_config_info 50");
    EXPECT_EQ(0, modem_pdc_get_activate_config_info(0, -5));
    EXPECT_EQ(0, modem_pdc_get_config_info(id, 7, 6));
    const Event meta = events.take();
    EXPECT_EQ(18, meta.number);
    EXPECT_EQ(6, meta.word(8));
    EXPECT_STREQ("name=factory size=1", reinterpret_cast<const char*>(meta.data.data() + 12));
    EXPECT_EQ(19, meta.word(268));
    const Event active = events.take();
    EXPECT_EQ(17, active.number);
    EXPECT_EQ(-5, active.word(8));
    EXPECT_EQ(7, active.word(136));
    run("pdc-token 99");
    run("pdc-length 4294967295");
    run("result modem_pdc_activate_regular_config 3");
    EXPECT_EQ(0, modem_pdc_activate_regular_config(4, 1));
    const Event regular = events.take();
    EXPECT_EQ((Event{22, {3, 0, 0, 0, 0, 0, 0, 0, 99, 0, 0, 0}}), regular);
    EXPECT_EQ(0, modem_pdc_get_activate_config_info(4, 1));
    EXPECT_EQ(-1, events.take().word(136));
    EXPECT_EQ(0, modem_pdc_get_config_info(id, 3, 1));  // no configuration "fac"
    EXPECT_EQ(1, events.take().word(0));
}

TEST_F(Desk, ProfilesAreDeletedOneByOneAndTheirCountMayLie) {
    run("profiles 0102030405060708 1111111111111111 2222222222222222");
    modem_ims_profile list[MODEM_IMS_PROFILE_MAX];
    uint8_t count = MODEM_IMS_PROFILE_MAX;
    EXPECT_EQ(0, modem_qdp_get_ims_profile(list, &count));
    ASSERT_EQ(3, count);
    run("fail modem_qdp_delete_ims_profile 1 1 1");
    EXPECT_EQ(0, modem_qdp_delete_ims_profile(&list[0]));
    EXPECT_NE(0, modem_qdp_delete_ims_profile(&list[1]));
    EXPECT_EQ(0, modem_qdp_delete_ims_profile(&list[2]));
    EXPECT_EQ("profile.0           1111111111111111\n", run("state profile."));
    run("answer-length modem_qdp_get_ims_profile 240");
    EXPECT_EQ(0, modem_qdp_get_ims_profile(list, &count));
    EXPECT_EQ(30, count);
}

TEST_F(Desk, RestartLosesConnectionsAndKeepsTheMemory) {
    EXPECT_EQ(0, modem_set_operating_mode(-1));
    EXPECT_EQ(0, modem_switch_nr_network_mode(2));
    EXPECT_EQ(0, modem_subsystem_reboot());
    int32_t mode = 0;
    EXPECT_NE(0, modem_get_operating_mode(&mode));
    for (const bool up : {false, true}) {
        for (const modem_api_qmi_service_type service : {1, 2, 3, 8, 17, 36, 228}) {
            EXPECT_EQ(serviceEvent(up, service), events.take());
        }
    }
    EXPECT_EQ(0, modem_get_operating_mode(&mode));
    EXPECT_EQ(-1, mode);
    uint32_t nrMode = 0;
    EXPECT_NE(0, modem_get_nr_network_mode(&nrMode));
    EXPECT_THAT(sim::runCommand("rrc 1 2 3 4"), HasSubstr("error: rrc: "));
    bindAndSubscribe();
    EXPECT_EQ(0, modem_get_nr_network_mode(&nrMode));
    EXPECT_EQ(2U, nrMode);
    run("rrc 1 2 3 -4");
    EXPECT_EQ(-4, events.take().word(20));
}

TEST_F(Desk, RadioReportsComeWhileTheyAreOn) {
    run("set radio-interval-ms 1");
    EXPECT_EQ(0, modem_api_set_radio_info_report_enabled(1, nullptr, onAnswer));
    answers.take();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(19, events.take().number);
    }
    EXPECT_EQ(0, modem_api_set_radio_info_report_enabled(0, nullptr, onAnswer));
    answers.take();
    run("event 1000 -");
    while (events.take().number != 1000) {
    }
    run("radio 1 2 3 4 5 6 7 8 255 65535");
    const Event radio = events.take();
    EXPECT_EQ(132U, radio.data.size());
    EXPECT_EQ(3, radio.word(16));
    EXPECT_EQ(static_cast<int32_t>(0xffff00ff), radio.word(44));
}
