// SPDX-License-Identifier: Apache-2.0
// The port setting: its bytes in both layouts.
#include "tests/support/byte_literals.h"

namespace {

using namespace tests;
using R = Nac_SetPortMsg;

class Port : public MessageTest {};

constexpr R kSetting = {word(0x80), word(0x81)};

TEST_F(Port, AllFieldsPackTo24Bytes) {
    EXPECT_BYTES(packed(kSetting),
                 "0c 00 00 00"    // root reference
                 "08 00 0c 00"    // vtable length, table length
                 "04 00 08 00"    // offsets of f0, f1
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

TEST_F(Port, TravelsAsItsImageOf24Bytes) {
    EXPECT_BYTES(sent(kSetting),
                 "04 00 00 00"    // root reference
                 "f4 ff ff ff"    // soffset -12: vtable at 16
                 "80 22 33 44"    // f0
                 "81 22 33 44"    // f1
                 "08 00 0c 00"    // vtable length, table length
                 "04 00 08 00");  // offsets of f0, f1
}

}  // namespace
