// SPDX-License-Identifier: Apache-2.0
// The units in their start-up order, each with what resolves its hooks.
#ifndef TESTS_SUPPORT_UNITS_H
#define TESTS_SUPPORT_UNITS_H

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <ostream>
#include <string>

#include "nac/catalogue.h"

namespace tests {

// `use` succeeds and needs the memory hooks only; `complain` also needs the log hook, once.
struct UnitCalls {
    const char* name;
    void (*use)();
    void (*complain)();
};

template <class Record>
void unpack_nothing() {
    // Root table at 8, its vtable at 4 without slots: every field is absent.
    constexpr std::array<std::uint8_t, 12> bytes = {8, 0, 0, 0, 4, 0, 4, 0, 4, 0, 0, 0};
    Record record = {};
    EXPECT_EQ(nac::Functions<Record>::unpack(bytes.data(), bytes.size(), &record), sizeof(Record));
}

template <class Record>
void unpack_without_buffer() {
    Record record = {};
    EXPECT_EQ(nac::Functions<Record>::unpack(nullptr, 12, &record), sizeof(Record));
}

template <class Record>
void pack_zeros() {
    const Record record = {};
    std::array<std::uint8_t, 64> buffer = {};
    std::uint32_t length = buffer.size();
    EXPECT_EQ(nac::Functions<Record>::pack(&record, buffer.data(), &length), 0U);
}

template <class Record>
void pack_without_buffer() {
    const Record record = {};
    std::uint32_t length = 64;
    EXPECT_EQ(nac::Functions<Record>::pack(&record, nullptr, &length), 0U);
}

template <class Record>
constexpr UnitCalls receive_unit(const char* name) {
    return {name, unpack_nothing<Record>, unpack_without_buffer<Record>};
}

template <class Record>
constexpr UnitCalls send_unit(const char* name) {
    return {name, pack_zeros<Record>, pack_without_buffer<Record>};
}

inline constexpr std::array kUnits = {
    receive_unit<Nac_UserDataFlowMsg>("dataflow_recv"),
    send_unit<Nac_UserDataFlowMsg>("dataflow_send"),
    receive_unit<Nac_PortVlanChangeMsg>("evt_recv"),
    send_unit<Nac_PortVlanChangeMsg>("evt_send"),
    receive_unit<Nac_SetPortMsg>("port_recv"),
    send_unit<Nac_SetPortMsg>("port_send"),
    receive_unit<Nac_UclGroupIpArray>("uclgroup_recv"),
    send_unit<Nac_UclGroupIpArray>("uclgroup_send"),
    receive_unit<Nac_TableVersionChangeMsg>("user_recv"),
    send_unit<Nac_TableVersionChangeMsg>("user_send"),
    receive_unit<Nac_UserDetectInfo>("user_type_recv"),
    send_unit<Nac_UserDetectInfo>("user_type_send"),
    receive_unit<Nac_IpsecDownReqMsg>("ipsec_access_recv"),
    send_unit<Nac_IpsecDownReqMsg>("ipsec_access_send"),
};

// Names the parameters of tests over all units.
inline std::string unit_name(const testing::TestParamInfo<UnitCalls>& unit) { return unit.param.name; }

inline void PrintTo(const UnitCalls& unit, std::ostream* out) { *out << unit.name; }

}  // namespace tests

#endif
