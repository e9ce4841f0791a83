#pragma once

/*
 * The modem API: operations of the baseband modem over QMI.
 *
 * Every function returns 0 on success and may be called from any thread. Pointers handed in are
 * borrowed for the call, unless a function says otherwise. Multi-byte fields of records are
 * little-endian, as the processors are that this library exists for.
 */

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define MODEM_API_EXPORT __attribute__((visibility("default")))

/* ---- Results, services, events ------------------------------------------------------------- */

/** Result of a modem operation, as answers and events carry it; 0 is success. */
typedef uint32_t modem_api_result_type;

enum {
    MODEM_API_RESULT_SUCCESS = 0,
    MODEM_API_RESULT_FAILURE = 1,
    MODEM_API_RESULT_INVALID_PARAM = 3,
    MODEM_API_RESULT_UNSUPPORTED = 5
};

/** A QMI service by its number. */
typedef int32_t modem_api_qmi_service_type;

enum {
    MODEM_API_QMI_SERVICE_WDS = 1,
    MODEM_API_QMI_SERVICE_DMS = 2,
    MODEM_API_QMI_SERVICE_NAS = 3,
    MODEM_API_QMI_SERVICE_AT = 8,
    MODEM_API_QMI_SERVICE_SAR = 17,
    MODEM_API_QMI_SERVICE_PDC = 36,
    MODEM_API_QMI_SERVICE_VS = 228,
    MODEM_API_QMI_SERVICE_VMS = 231
};

/** An event by its number. */
typedef int32_t modem_api_event_type;

enum {
    MODEM_API_EVENT_SERVICE_CONNECTED = 0,    /* data: modem_api_qmi_service_type */
    MODEM_API_EVENT_SERVICE_DISCONNECTED = 1, /* data: modem_api_qmi_service_type */
    MODEM_API_EVENT_AT_COMMAND = 2,           /* data: modem_atlog_cmd_type */
    MODEM_API_EVENT_RRC_STATE = 15,           /* data: modem_rrc_state_event */
    MODEM_API_EVENT_ACTIVE_MBN_INFO = 17,     /* data: modem_pdc_active_info_event */
    MODEM_API_EVENT_META_MBN_INFO = 18,       /* data: modem_pdc_meta_info_event */
    MODEM_API_EVENT_NR_RADIO_INFO = 19,       /* data: modem_nr_radio_info_event */
    MODEM_API_EVENT_POWER_SAVE_MODE = 20,     /* data: modem_power_save_mode_event */
    MODEM_API_EVENT_ACTIVATE_REGULAR_MBN = 22 /* data: modem_pdc_activate_regular_event */
};

/**
 * Takes the subscribed events, on the library's event thread, one at a time. `data` is the
 * library's and valid during the call; what it points to may be handed over (see the record).
 */
typedef void (*modem_api_event_callback)(modem_api_event_type event, void* data, size_t length);

/**
 * Takes the answer of one asynchronous request, once, on a thread of the library; it may come
 * before the requesting call has returned. A request whose call returned nonzero gets none.
 *
 * @param data the answer, a modem_async_response; the library's, valid during the call
 * @param cookie what the request gave; the library does not touch it
 */
typedef void (*modem_api_async_callback)(const void* data, size_t length, void* cookie,
                                         modem_api_result_type result);

/** Prepares the library; first call of all. */
MODEM_API_EXPORT int modem_api_init_pre(void);
MODEM_API_EXPORT int modem_api_set_event_callback(modem_api_event_callback callback);
MODEM_API_EXPORT int modem_api_subscribe_event(modem_api_event_type event);
/** Asks the vendor service for its indications; they start after this. */
MODEM_API_EXPORT int modem_api_register_indications(void);

/** Opens the connection to a service; a SERVICE_CONNECTED event follows, at once or later. */
MODEM_API_EXPORT int modem_api_init_qmi_connection(modem_api_qmi_service_type service, int flags);
MODEM_API_EXPORT int modem_api_release_qmi_connection(modem_api_qmi_service_type service);

/** Bind a service to the subscription of an instance, 0 or 1. */
MODEM_API_EXPORT int modem_api_bind_nas_subscription(int32_t instance);
MODEM_API_EXPORT int modem_api_bind_wds_subscription(int32_t instance);
MODEM_API_EXPORT int modem_api_bind_vs_subscription(int32_t instance);

/* ---- Device management (DMS) --------------------------------------------------------------- */

MODEM_API_EXPORT int modem_get_operating_mode(int32_t* mode);
MODEM_API_EXPORT int modem_set_operating_mode(int32_t mode);

/* ---- Network access (NAS) ------------------------------------------------------------------ */

/** Stops the supplementary-services indications. */
MODEM_API_EXPORT int modem_suppress_nas_ss_inds(void);
MODEM_API_EXPORT int modem_switch_nr_network_mode(int32_t mode);
MODEM_API_EXPORT int modem_get_nr_network_mode(uint32_t* mode);
MODEM_API_EXPORT int modem_set_vonr_mode(int32_t mode);
MODEM_API_EXPORT int modem_get_vonr_mode(uint32_t* mode);
MODEM_API_EXPORT int modem_deprioritize_nr_mode(int32_t mode);

/* ---- Wireless data (WDS) ------------------------------------------------------------------- */

enum { MODEM_IMS_PROFILE_MAX = 24 };

/** An IMS profile; opaque, handed back as it came. */
typedef struct modem_ims_profile {
    uint8_t bytes[8];
} modem_ims_profile;

MODEM_API_EXPORT int modem_qdp_check_ims_profile(uint32_t* state);
/** @param count in: entries that `list` holds; out: entries filled */
MODEM_API_EXPORT int modem_qdp_get_ims_profile(modem_ims_profile* list, uint8_t* count);
MODEM_API_EXPORT int modem_qdp_delete_ims_profile(const modem_ims_profile* profile);

/* ---- Specific absorption rate (SAR) -------------------------------------------------------- */

MODEM_API_EXPORT int modem_set_sar_dsi(int32_t state);

/* ---- Persistent device configuration (PDC) ------------------------------------------------- */

enum { MODEM_PDC_CONFIG_ID_SIZE = 124, MODEM_PDC_METADATA_SIZE = 256 };

typedef struct modem_pdc_active_info_event {
    int32_t result;
    uint32_t unused;
    int32_t token;
    uint8_t config_id[MODEM_PDC_CONFIG_ID_SIZE];
    uint32_t config_id_length;
} modem_pdc_active_info_event;

typedef struct modem_pdc_meta_info_event {
    int32_t result;
    uint32_t unused;
    int32_t token;
    uint8_t metadata[MODEM_PDC_METADATA_SIZE];
    uint32_t metadata_length;
} modem_pdc_meta_info_event;

typedef struct modem_pdc_activate_regular_event {
    int32_t result;
    uint32_t unused;
    int32_t token;
} modem_pdc_activate_regular_event;

static_assert(offsetof(modem_pdc_active_info_event, config_id) == 12, "layout");
static_assert(offsetof(modem_pdc_active_info_event, config_id_length) == 136, "layout");
static_assert(offsetof(modem_pdc_meta_info_event, metadata) == 12, "layout");
static_assert(offsetof(modem_pdc_meta_info_event, metadata_length) == 268, "layout");
static_assert(offsetof(modem_pdc_activate_regular_event, token) == 8, "layout");

/*
 * The three requests with a token answer by an event that carries it. An identifier is a buffer of
 * MODEM_PDC_CONFIG_ID_SIZE bytes.
 */
MODEM_API_EXPORT int modem_pdc_get_activate_config_info(int32_t type, int32_t token);
MODEM_API_EXPORT int modem_pdc_get_config_info(const uint8_t* config_id, int32_t length,
                                               int32_t token);
MODEM_API_EXPORT int modem_pdc_set_selected_config_info(int32_t type, const uint8_t* config_id);
MODEM_API_EXPORT int modem_pdc_set_selected_config_info_ext(int32_t type, const uint8_t* config_id,
                                                            int32_t length);
MODEM_API_EXPORT int modem_pdc_delete_all_mbns(void);
MODEM_API_EXPORT int modem_pdc_activate_config(int32_t type);
MODEM_API_EXPORT int modem_pdc_deactivate_config(int32_t type);
MODEM_API_EXPORT int modem_pdc_activate_regular_config(int32_t type, int32_t token);
/**
 * Takes the next chunk of a configuration.
 *
 * @param identifier NUL-terminated within MODEM_PDC_CONFIG_ID_SIZE bytes
 * @param total_size bytes of the whole configuration, the same with every chunk
 */
MODEM_API_EXPORT int modem_pdc_load_configuration(const char* identifier, const uint8_t* chunk,
                                                  int32_t length, int32_t total_size);

/* ---- Vendor-specific service (VS) ---------------------------------------------------------- */

enum { MODEM_BANDS_MAX = 20, MODEM_BANDS_LONG_MAX = 50 };

typedef struct modem_bands_info {
    uint32_t count1;
    uint32_t bands1[MODEM_BANDS_MAX];
    uint32_t count2;
    uint32_t bands2[MODEM_BANDS_MAX];
    uint32_t count3;
    uint32_t bands3[MODEM_BANDS_LONG_MAX];
    uint32_t count4;
    uint32_t bands4[MODEM_BANDS_MAX];
    uint32_t count5;
    uint32_t bands5[MODEM_BANDS_MAX];
} modem_bands_info;

/** Build time and build id. */
typedef struct modem_build_text {
    uint32_t length;
    char text[536];
} modem_build_text;

/** Answer of every asynchronous request; which payload it carries, the request tells. */
typedef struct modem_async_response {
    uint32_t unused;
    modem_api_result_type result;
    union {
        uint8_t bytes[540];
        modem_build_text build;
        char property_value[540]; /* NUL-terminated */
        uint32_t agps_test_mode;
        uint8_t power_save_mode;
        modem_bands_info bands;
    } payload;
} modem_async_response;

typedef struct modem_property_record {
    uint8_t unused; /* 0 */
    char name[55];  /* not terminated when full */
    uint32_t name_length;
    char value[512]; /* not terminated when full */
    uint32_t value_length;
} modem_property_record;

typedef struct modem_simlock_info {
    uint8_t status;
    uint8_t category;
    uint8_t retries_remaining;
} modem_simlock_info;

typedef struct modem_nv_verification {
    uint8_t compared; /* nonzero: a comparison was made */
    uint8_t unused;
    uint8_t differs; /* nonzero: the contents differ */
} modem_nv_verification;

typedef struct modem_rrc_state_event {
    uint32_t unused[2];
    int32_t lte_valid;
    int32_t rrc_state;
    int32_t wcdma_valid;
    int32_t wcdma_rrc_state;
} modem_rrc_state_event;

typedef struct modem_power_save_mode_event {
    uint32_t unused;
    int32_t mode;
} modem_power_save_mode_event;

/** Fields are named by their place: this library's users hand them through unchanged. */
typedef struct modem_nr_radio_info_event {
    uint32_t unused[2];
    uint32_t field1;
    uint32_t field2;
    uint8_t field3[8]; /* a 64-bit value */
    uint32_t field4;
    uint32_t field5[4];
    uint8_t field6;
    uint8_t unused45;
    uint16_t field7;
    uint32_t field8[4];
    uint32_t field9;
    uint32_t field10[4][4];
} modem_nr_radio_info_event;

static_assert(sizeof(modem_bands_info) == 540, "layout");
static_assert(sizeof(modem_async_response) == 548, "layout");
static_assert(offsetof(modem_async_response, result) == 4, "layout");
static_assert(offsetof(modem_async_response, payload) == 8, "layout");
static_assert(sizeof(modem_property_record) == 576, "layout");
static_assert(offsetof(modem_property_record, name) == 1, "layout");
static_assert(offsetof(modem_property_record, name_length) == 56, "layout");
static_assert(offsetof(modem_property_record, value) == 60, "layout");
static_assert(offsetof(modem_property_record, value_length) == 572, "layout");
static_assert(sizeof(modem_rrc_state_event) == 24, "layout");
static_assert(offsetof(modem_rrc_state_event, lte_valid) == 8, "layout");
static_assert(sizeof(modem_power_save_mode_event) == 8, "layout");
static_assert(sizeof(modem_nr_radio_info_event) == 132, "layout");
static_assert(offsetof(modem_nr_radio_info_event, field1) == 8, "layout");
static_assert(offsetof(modem_nr_radio_info_event, field3) == 16, "layout");
static_assert(offsetof(modem_nr_radio_info_event, field6) == 44, "layout");
static_assert(offsetof(modem_nr_radio_info_event, field7) == 46, "layout");
static_assert(offsetof(modem_nr_radio_info_event, field10) == 68, "layout");

/* Asynchronous requests: 0 means that `callback` takes the answer and `cookie` with it. */
MODEM_API_EXPORT int modem_get_build_time(void* cookie, modem_api_async_callback callback);
MODEM_API_EXPORT int modem_get_build_id(void* cookie, modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_active_mbn(const char* name, void* cookie,
                                          modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_restore_mbn(void* cookie, modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_set_agps_test_mode(uint32_t mode, void* cookie,
                                                  modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_get_agps_test_mode(void* cookie, modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_get_power_save_mode(void* cookie, modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_set_power_save_mode(uint8_t mode, void* cookie,
                                                   modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_set_modem_property(const modem_property_record* property,
                                                  void* cookie, modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_get_modem_property(const char* name, void* cookie,
                                                  modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_set_power_save_status(uint8_t status, void* cookie,
                                                     modem_api_async_callback callback);
MODEM_API_EXPORT int modem_get_bands_info(void* cookie, modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_remove_rat_mask(void* cookie, modem_api_async_callback callback);
MODEM_API_EXPORT int modem_abort_rrc_connection(void* cookie, modem_api_async_callback callback);
MODEM_API_EXPORT int modem_api_set_radio_info_report_enabled(uint32_t enabled, void* cookie,
                                                             modem_api_async_callback callback);

/* Synchronous requests. */
MODEM_API_EXPORT int modem_api_delete_modem_property_sync(const char* name);
MODEM_API_EXPORT int modem_common_interface_debug(uint32_t value);
MODEM_API_EXPORT int modem_api_get_simlock_info(modem_simlock_info* info);
MODEM_API_EXPORT int modem_api_get_simlock_fuse_status(uint32_t* status);
/** Restarts the modem: its services disconnect, and connect again when it is back. */
MODEM_API_EXPORT int modem_subsystem_reboot(void);

/*
 * Reads take in `length` the size of `buffer` and give back the bytes produced.
 */
MODEM_API_EXPORT int modem_read_nv_for_subid(int32_t selector1, int32_t item, uint8_t selector2,
                                             uint8_t* buffer, size_t* length);
MODEM_API_EXPORT int modem_write_nv_for_subid(int32_t selector1, int32_t item, const uint8_t* data,
                                              size_t size);
MODEM_API_EXPORT int modem_verify_nv(int32_t item, const uint8_t* data, size_t size,
                                     modem_nv_verification* verification);
MODEM_API_EXPORT int modem_read_efs_for_subid(uint32_t sub_selector, int32_t file, uint8_t* buffer,
                                              size_t* length);
MODEM_API_EXPORT int modem_write_efs_for_subid(uint32_t sub_selector, int32_t file,
                                               const uint8_t* data, size_t size);
MODEM_API_EXPORT int modem_del_efs_for_subid(uint32_t sub_selector, int32_t file);
MODEM_API_EXPORT int modem_del_efs_file_dir(int32_t directory);
MODEM_API_EXPORT int modem_read_prl(uint8_t selector, uint8_t* buffer, size_t* length);
MODEM_API_EXPORT int modem_write_prl(uint8_t selector, const uint8_t* data, size_t size);

/* ---- AT command forwarding ----------------------------------------------------------------- */

enum { MODEM_ATLOG_NAME_SIZE = 22, MODEM_ATLOG_TOKENS_MAX = 60, MODEM_ATLOG_OP_CODE = 11 };

/**
 * An AT command that was typed at the modem. The receiver of the event owns the token strings and
 * frees each with free(); a token may be null.
 */
typedef struct modem_atlog_cmd_type {
    uint64_t handle;
    uint64_t op_code;
    char name[MODEM_ATLOG_NAME_SIZE];
    uint16_t token_count;
    char* tokens[MODEM_ATLOG_TOKENS_MAX];
} modem_atlog_cmd_type;

typedef struct modem_atlog_resp_type {
    uint64_t handle;
    uint32_t result; /* 1 success, 0 error */
    uint32_t kind;   /* 3 */
    uint64_t unused; /* 0 */
} modem_atlog_resp_type;

static_assert(sizeof(modem_atlog_cmd_type) == 520, "layout");
static_assert(offsetof(modem_atlog_cmd_type, name) == 16, "layout");
static_assert(offsetof(modem_atlog_cmd_type, token_count) == 38, "layout");
static_assert(offsetof(modem_atlog_cmd_type, tokens) == 40, "layout");
static_assert(sizeof(modem_atlog_resp_type) == 24, "layout");

/** Asks for the AT commands of one name as AT_COMMAND events. */
MODEM_API_EXPORT int modem_atlog_cmd_reg(const char* name);
/** Ends the open command of that handle; the operator then sees the result. */
MODEM_API_EXPORT int modem_atlog_send_resp(const modem_atlog_resp_type* response);

#ifdef __cplusplus
}
#endif
