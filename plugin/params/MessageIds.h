#pragma once

// Message ids. Each client numbers its own from 1; gaps are reserved and must not be reused.

namespace AtMessage {
enum : int {
    REGISTER_AT_COMMAND_IND = 1,
    PROCESS_AT_COMMAND = 2,
    SEND_LOG_CONTROL_RESP = 3,
};
}  // namespace AtMessage

namespace DmsMessage {
enum : int {
    GET_OPERATING_MODE = 1,
    SET_OPERATING_MODE = 2,
};
}  // namespace DmsMessage

/** What the clients that bind a subscription share. Their requests have higher ids. */
namespace SubscriptionMessage {
enum : int {
    BIND_SUBSCRIPTION = 1,
};
}  // namespace SubscriptionMessage

namespace NasMessage {
enum : int {
    SWITCH_NR_NETWORK_MODE = 4,
    GET_NR_NETWORK_MODE = 5,
    SET_VONR_MODE = 6,
    GET_VONR_MODE = 7,
    SET_DEPRIORITIZE_NR_MODE = 8,
};
}  // namespace NasMessage

namespace WdsMessage {
enum : int {
    CHECK_IMS_PROFILE_NORMAL = 2,
    DELETE_IMS_PROFILE = 3,
};
}  // namespace WdsMessage

namespace SarMessage {
enum : int {
    SET_SAR_STATE = 2,
};
}  // namespace SarMessage

namespace PdcMessage {
enum : int {
    GET_ACTIVE_MBN_INFO = 1,
    GET_META_MBN_INFO = 2,
    GET_MBN_LIST = 3,
    SELECT_MBN = 4,
    SELECT_MBN_EXT = 5,
    DELETE_ALL_MBNS = 6,
    LOAD_MBN_CONFIG = 7,
    ACTIVATE_MBN = 8,
    DEACTIVATE_MBN = 9,
    ACTIVATE_REGULAR_MBN = 10,
};
}  // namespace PdcMessage

namespace VsMessage {
enum : int {
    GET_BUILD_TIME = 1,
    GET_BUILD_ID = 2,
    ACTIVATE_MBN_BY_NAME = 4,
    RESTORE_MBN = 5,
    SET_AGPS_TEST_MODE = 7,
    GET_AGPS_TEST_MODE = 8,
    GET_MODEM_POWER_SAVE_MODE = 9,
    SET_MODEM_POWER_SAVE_MODE = 10,
    SET_MODEM_PROPERTY = 11,
    GET_MODEM_PROPERTY = 12,
    DELETE_MODEM_PROPERTY = 13,
    DO_COMMON_INTERFACE_DEBUG = 14,
    SET_MODEM_POWER_SAVE_STATUS = 15,
    READ_NV_ITEM = 16,
    WRITE_NV_ITEM = 17,
    READ_EFS_FILE = 18,
    WRITE_EFS_FILE = 19,
    DELETE_EFS_FILE = 20,
    READ_PRL = 21,
    WRITE_PRL = 22,
    VERIFY_NV = 23,
    GET_SIMLOCK_INFO_STATUS = 26,
    GET_SIMLOCK_INFO_CATEGORY = 27,
    GET_SIMLOCK_INFO_NUMBER_RETRIES_REMAIN = 28,
    GET_SIMLOCK_FUSE_STATUS = 34,
    REBOOT_MODEM = 37,
    GET_BANDS_INFO = 44,
    REMOVE_RAT_MASK = 48,
    ABORT_RRC_CONNECTION = 49,
    SET_RADIO_INFO_REPORT_ENABLED = 51,
    DELETE_EFS_FILE_DIR = 52,
};
}  // namespace VsMessage
