// SPDX-License-Identifier: Apache-2.0
// The port setting: its bytes in both layouts, and what its unpack does with faults.
#include "tests/support/message_checks.h"

namespace {

using namespace tests;
using enum AfterHeaderFault;
using R = Nac_SetPortMsg;

class Port : public MessageTest {};

constexpr R kSetting = {word(0x80), word(0x81)};

TEST_F(Port, RecordIsTwoWords) {
    EXPECT_EQ(sizeof(R), 8U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1)}), (Offsets{0, 4}));
}

TEST_F(Port, AllFieldsPackTo24Bytes) {
    EXPECT_BYTES(packed(kSetting),
                 "0c 00 00 00"    // root reference
                 "08 00 0c 00"    // vtable length, table length
                 "04 00 08 00"    // places of f0, f1
                 "08 00 00 00"    // soffset
                 "80 22 33 44"    // f0
                 "81 22 33 44");  // f1
}

TEST_F(Port, ZeroesPackTo16BytesAndUnpackToZeroes) {
    const Bytes zeroes = packed(R{});
    EXPECT_BYTES(zeroes,
                 "0c 00 00 00"    // root reference
                 "08 00 04 00"    // vtable length, table length
                 "00 00 00 00"    // no field
                 "08 00 00 00");  // soffset
    EXPECT_TRUE(Unpacked<R>(zeroes, 0xAA).all(0));
}

TEST_F(Port, LeavesOutAZero) {
    EXPECT_BYTES(packed(R{word(0x80), 0}),
                 "0c 00 00 00"    // root reference
                 "08 00 08 00"    // vtable length, table length
                 "04 00 00 00"    // f0, f1 absent
                 "08 00 00 00"    // soffset
                 "80 22 33 44");  // f0
}

TEST_F(Port, GrowsBy4BytesAField) {
    EXPECT_EQ(packed_size(R{}), 16U);
    expect_each_costs(4, R{}, &R::f0, &R::f1);
}

TEST_F(Port, TravelsAsItsImageOf24Bytes) {
    expect_sends_image("Nac_SetPortMsg", 162890069, kSetting,
                       "04 00 00 00"    // root reference
                       "f4 ff ff ff"    // soffset -12: vtable at 16
                       "80 22 33 44"    // f0
                       "81 22 33 44"    // f1
                       "08 00 0c 00"    // vtable length, table length
                       "04 00 08 00");  // places of f0, f1
}

TEST_F(Port, UnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kSetting);
    expect_both_layouts_unpack_to(R{});
}

TEST_F(Port, ReadsWholeFieldsOnly) { expect_reads_whole_fields_only<R>(packed(kSetting), {4, 4}); }

TEST_F(Port, ReportsBadArguments) { expect_argument_faults<R>("Nac_SetPortMsg"); }

TEST_F(Port, IsUntouchedAfterAHeaderFault) { expect_header_faults<R>(untouched, "Nac_SetPortMsg_unpack"); }

TEST_F(Port, PackRefusals) { expect_pack_refusals("Nac_SetPortMsg", kSetting, 24); }

TEST_F(Port, FreeDoesNothing) { expect_free_does_nothing<R>(); }

TEST_F(Port, ModuleRegistersItsTypeAndPassesTheAnswerOn) {
    expect_registers<R>(nac_fwm_port_recv_init, {162890069});
    expect_stops_at_refusal(nac_fwm_port_recv_init, 1);
}

TEST_F(Port, ModuleRegistersAResourceCleanThatDoesNothing) {
    expect_registers_clean(nac_fwm_port_send_init, nac_fwm_port__send_resource_clean);
}

}  // namespace
