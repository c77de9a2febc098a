// SPDX-License-Identifier: Apache-2.0
// The port event: its bytes in both layouts, and what its unpack does with faults.
#include "tests/support/message_checks.h"

namespace {

using namespace tests;
using enum AfterHeaderFault;
using R = Nac_PortVlanChangeMsg;

class Evt : public MessageTest {};

constexpr R kChange = {word(0x80), word(0x81), half(0x82)};

TEST_F(Evt, RecordIsTwoWordsAndAHalf) {
    EXPECT_EQ(sizeof(R), 12U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2)}), (Offsets{0, 4, 8}));
}

TEST_F(Evt, AllFieldsPackTo28Bytes) {
    EXPECT_BYTES(packed(kChange),
                 "0e 00 00 00"        // root reference
                 "0a 00 0e 00"        // vtable length, table length
                 "04 00 08 00 0c 00"  // places of f0 to f2
                 "0a 00 00 00"        // soffset
                 "80 22 33 44"        // f0
                 "81 22 33 44"        // f1
                 "82 22");            // f2
}

TEST_F(Evt, ZeroesPackTo18BytesAndUnpackToZeroes) {
    const Bytes zeroes = packed(R{});
    EXPECT_BYTES(zeroes,
                 "0e 00 00 00"        // root reference
                 "0a 00 04 00"        // vtable length, table length
                 "00 00 00 00 00 00"  // no field
                 "0a 00 00 00");      // soffset
    EXPECT_TRUE(Unpacked<R>(zeroes, 0xAA).all(0));
}

TEST_F(Evt, WithoutF0TheOthersMoveUp) {
    EXPECT_BYTES(packed(R{0, word(0x81), half(0x82)}),
                 "0e 00 00 00"        // root reference
                 "0a 00 0a 00"        // vtable length, table length
                 "00 00 04 00 08 00"  // f0 absent, f1, f2
                 "0a 00 00 00"        // soffset
                 "81 22 33 44"        // f1
                 "82 22");            // f2
}

TEST_F(Evt, GrowsByTheWidthOfEachField) {
    EXPECT_EQ(packed_size(R{}), 18U);
    expect_each_costs(4, R{}, &R::f0, &R::f1);
    expect_each_costs(2, R{}, &R::f2);
    expect_each_costs(2, R{1, 1, 0}, &R::f2);
}

TEST_F(Evt, TravelsAsItsImageOf32Bytes) {
    expect_sends_image("Nac_PortVlanChangeMsg", 3722180448, kChange,
                       "04 00 00 00"        // root reference
                       "f0 ff ff ff"        // soffset -16: vtable at 20
                       "80 22 33 44"        // f0
                       "81 22 33 44"        // f1
                       "82 22"              // f2
                       "00 00"              // padding in front of the vtable
                       "0a 00 0e 00"        // vtable length, table length
                       "04 00 08 00 0c 00"  // places of f0 to f2
                       "00 00");            // padding
}

TEST_F(Evt, ImageWritesZeroFieldsToo) {
    EXPECT_BYTES(sent(R{}),
                 "04 00 00 00"        // root reference
                 "f0 ff ff ff"        // soffset
                 "00 00 00 00"        // f0
                 "00 00 00 00"        // f1
                 "00 00"              // f2
                 "00 00"              // padding
                 "0a 00 0e 00"        // vtable length, table length
                 "04 00 08 00 0c 00"  // places of f0 to f2
                 "00 00");            // padding
}

TEST_F(Evt, UnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kChange);
    expect_both_layouts_unpack_to(R{});
}

TEST_F(Evt, F2KeepsItsSixteenBitsThroughBothLayouts) {
    for (const std::uint16_t value :
         std::initializer_list<std::uint16_t>{0xFFFF, 0x8000, 0x0100, 0x00FF, 1}) {
        EXPECT_EQ(Unpacked<R>(packed(R{0, 0, value}))->f2, value);
        EXPECT_EQ(Unpacked<R>(sent(R{0, 0, value}))->f2, value);
    }
}

TEST_F(Evt, ReadsWholeFieldsOnly) { expect_reads_whole_fields_only<R>(packed(kChange), {4, 4, 2}); }

TEST_F(Evt, VtableOfTwoSlotsLeavesF2Zero) {
    const Unpacked<R> change(hex("0c 00 00 00"    // root reference
                                 "08 00 0c 00"    // vtable length, table length
                                 "04 00 08 00"    // places of f0, f1
                                 "08 00 00 00"    // soffset
                                 "80 22 33 44"    // f0
                                 "81 22 33 44"),  // f1
                             0xAA);
    EXPECT_EQ(change->f0, kChange.f0);
    EXPECT_EQ(change->f1, kChange.f1);
    EXPECT_EQ(change->f2, 0U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(Evt, ReportsBadArguments) { expect_argument_faults<R>("Nac_PortVlanChangeMsg"); }

TEST_F(Evt, IsUntouchedAfterAHeaderFault) {
    expect_header_faults<R>(untouched, "Nac_PortVlanChangeMsg_unpack");
}

TEST_F(Evt, PackRefusals) { expect_pack_refusals("Nac_PortVlanChangeMsg", kChange, 28); }

TEST_F(Evt, FreeDoesNothing) { expect_free_does_nothing<R>(); }

TEST_F(Evt, ModuleRegistersItsTypeAndPassesTheAnswerOn) {
    expect_registers<R>(nac_fwm_evt_recv_init, {3722180448});
    expect_stops_at_refusal(nac_fwm_evt_recv_init, 1);
}

TEST_F(Evt, ModuleRegistersAResourceCleanThatDoesNothing) {
    expect_registers_clean(nac_fwm_evt_send_init, nac_fwm_evt__send_resource_clean);
}

}  // namespace
