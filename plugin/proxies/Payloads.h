#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Records that a client fills and a proxy converts for the upper layer.

/** Answer to the two requests for modem configuration (MBN) information. */
struct PdcMbnInfo {
    int32_t result = 0;  ///< modem API result code of the answer
    std::vector<uint8_t> configId;
};

/** The first `count` entries of `bands` are valid. */
template <size_t Capacity>
struct BandList {
    static constexpr size_t CAPACITY = Capacity;

    int32_t count;
    uint32_t bands[Capacity];
};

/** Five band lists, in the order and the layout of the modem API's bands result. */
struct BandsInfoType {
    BandList<20> list1;
    BandList<20> list2;
    BandList<50> list3;
    BandList<20> list4;
    BandList<20> list5;
};

/** An RRC state event. */
struct rrc_state_type {
    int32_t lteValid;
    int32_t rrcState;
    int32_t wcdmaValid;
    int32_t wcdmaRrcState;
};

/** An NR radio information event; its fields have no known meaning and are numbered. */
struct NetworkStatusInfoType {
    uint32_t field1;
    uint32_t field2;
    uint64_t field3;
    uint32_t field4;
    uint32_t field5[4];
    uint8_t field6;
    uint16_t field7;
    uint32_t field8[4];
    uint32_t field9;
    uint32_t field10[4][4];
};
