// SPDX-License-Identifier: Apache-2.0
// What is expected of every message type, as a table for tests that hold for all of them.
#ifndef TESTS_SUPPORT_MESSAGE_EXPECTATIONS_H
#define TESTS_SUPPORT_MESSAGE_EXPECTATIONS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "nac/catalogue.h"
#include "runtime/size.h"

namespace tests {

// Whether the send functions send an image of fixed size, or the compact layout.
enum class Travels { as_image, compactly };
// Under which name a type logs a fault of its root table's header.
enum class HeaderFaults { as_unpack, as_nested_unpack };
// What such a fault leaves of the caller's record.
enum class AfterFault { untouched, cleared };

// A message type with its functions, the record's type forgotten: tests over all types compile once.
struct MessageExpectations {
    std::string name;
    std::uint32_t record_bytes;
    std::uint32_t empty_packed_bytes;  // packed size of an all-zero record
    Travels travels;
    HeaderFaults header_faults;
    AfterFault after_header_fault;
    std::uint32_t (*pack)(const void* record, std::uint8_t* buffer, std::uint32_t* length);
    std::uint32_t (*unpack)(const std::uint8_t* buffer, std::uint32_t length, void* record);
    void (*free)(void* record);
    std::uint32_t (*send)(std::uint32_t destination, const void* records, std::uint32_t count);

    std::string pack_name() const { return name + "_pack"; }
    std::string unpack_name() const { return name + "_unpack"; }
    std::string nested_unpack_name() const { return name + "_unpack_non_root"; }
    std::string free_name() const { return name + "_free_unpacked"; }
    std::string header_fault_name() const {
        return header_faults == HeaderFaults::as_unpack ? unpack_name() : nested_unpack_name();
    }
    // A byte of a record that was all 0xAA before a header fault.
    std::uint8_t left_by_header_fault() const { return after_header_fault == AfterFault::cleared ? 0 : 0xAA; }
};

inline std::ostream& operator<<(std::ostream& to, const MessageExpectations& type) { return to << type.name; }

#define TESTS_FUNCTIONS(Message, record_bytes, empty_bytes, travels, header_faults, after_fault) \
    MessageExpectations {                                                                        \
#Message, record_bytes, empty_bytes, travels, header_faults, after_fault,            \
            [](const void* record, std::uint8_t* buffer, std::uint32_t* length) {                      \
                return Message##__pack(static_cast<const Message*>(record), buffer, length);           \
            },                                                                                         \
            [](const std::uint8_t* buffer, std::uint32_t length, void* record) {                       \
                return Message##__unpack(buffer, length, static_cast<Message*>(record));               \
            },                                                                                         \
            [](void* record) { Message##_free__unpacked(static_cast<Message*>(record)); },             \
            [](std::uint32_t destination, const void* records, std::uint32_t count) {                  \
                return Message##__sendmsg(destination, static_cast<const Message*>(records), count);   \
            }           \
    }

#define TESTS_MESSAGE_TYPE(Message, record_bytes, empty_bytes, travels, header_faults, after_fault)    \
    TESTS_FUNCTIONS(Message, record_bytes, empty_bytes, Travels::travels, HeaderFaults::header_faults, \
                    AfterFault::after_fault)

// What a description says of a type whose numbers stand nowhere else.
#define TESTS_DESCRIBED_TYPE(Message)                                                        \
    TESTS_FUNCTIONS(                                                                         \
        Message, sizeof(Message), kaplo::message_bytes(&blank<Message>),                     \
        kaplo::owns_memory<Message> ? Travels::compactly : Travels::as_image,                \
        kaplo::Description<Message>::root_decodes_as_nested ? HeaderFaults::as_nested_unpack \
                                                            : HeaderFaults::as_unpack,       \
        kaplo::cleared_before_header_checks<Message> ? AfterFault::cleared : AfterFault::untouched),
template <class Message>
inline constexpr Message blank = {};

// clang-format off
// Those whose numbers are written down by hand.
inline const std::vector<MessageExpectations>& pinned_messages() {
    static const std::vector<MessageExpectations> types = {
        TESTS_MESSAGE_TYPE(Nac_UserDataFlowCfg, 32, 20, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_UserDataFlowInfo, 136, 104, as_image, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_UserDataFlowMsg, 16, 14, compactly, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_UserDataFlowQueryMsg, 8, 16, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_UserDataFlowQueryAckMsg, 144, 120, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_PortVlanChangeMsg, 12, 18, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_SetPortMsg, 8, 16, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_CfgUclGroupIp, 20, 22, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_ConfigAccessUserUclGroupIpMsg, 24, 38, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_ConfigAccessUserUclGroupIpAckMsg, 28, 40, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_UclGroupIpArray, 16, 16, compactly, as_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_UclGroupIpAckArray, 16, 16, compactly, as_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_SetUserTableMsg, 328, 238, compactly, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_SetUserTableAckMsg, 36, 30, as_image, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_UserTableHitMsg, 24, 24, as_image, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_L2NotifyNacUserOfflineMsg, 32, 42, as_image, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_TableVersionChangeMsg, 4, 14, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_UserTableSyncAckMsg, 20, 22, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_DaclRuleIpInfo, 124, 192, as_image, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_RadiusDaclRule, 148, 218, as_image, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_UserDetectInfo, 8, 18, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_IpsecAuthenReqMsg, 104, 58, compactly, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_IpsecAuthenAckMsg, 104, 46, compactly, as_nested_unpack, cleared),
        TESTS_MESSAGE_TYPE(Nac_IpsecDownReqMsg, 20, 22, as_image, as_unpack, untouched),
        TESTS_MESSAGE_TYPE(Nac_IpsecDownAckMsg, 20, 22, as_image, as_unpack, untouched),
    };
    return types;
}
// clang-format on

inline bool is_pinned(const std::string& name) {
    const std::vector<MessageExpectations>& types = pinned_messages();
    return std::any_of(types.begin(), types.end(),
                       [&name](const MessageExpectations& type) { return type.name == name; });
}

// Those, and after them the types that came later.
inline const std::vector<MessageExpectations>& all_messages() {
    static const std::vector<MessageExpectations> types = [] {
        std::vector<MessageExpectations> all = pinned_messages();
        for (const MessageExpectations& type : {NAC_ALL_MESSAGES(TESTS_DESCRIBED_TYPE)}) {
            if (!is_pinned(type.name)) all.push_back(type);
        }
        return all;
    }();
    return types;
}
#undef TESTS_DESCRIBED_TYPE
#undef TESTS_MESSAGE_TYPE
#undef TESTS_FUNCTIONS

inline std::vector<MessageExpectations> messages_that_travel(Travels how) {
    std::vector<MessageExpectations> types;
    for (const MessageExpectations& type : all_messages())
        if (type.travels == how) types.push_back(type);
    return types;
}

inline const MessageExpectations& message_type(const std::string& name) {
    for (const MessageExpectations& type : all_messages())
        if (type.name == name) return type;
    throw std::invalid_argument("no message type " + name);
}

// The type's name in the name of a test.
inline std::string message_name(const testing::TestParamInfo<MessageExpectations>& type) {
    return type.param.name;
}

}  // namespace tests

#endif
