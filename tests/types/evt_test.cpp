// SPDX-License-Identifier: Apache-2.0
// The port event: its bytes in both layouts.
#include "tests/support/byte_literals.h"

namespace {

using namespace tests;
using R = Nac_PortVlanChangeMsg;

class Evt : public MessageTest {};

constexpr R kChange = {word(0x80), word(0x81), half(0x82)};

TEST_F(Evt, AllFieldsPackTo28Bytes) {
    EXPECT_BYTES(packed(kChange),
                 "0e 00 00 00"        // root reference
                 "0a 00 0e 00"        // vtable length, table length
                 "04 00 08 00 0c 00"  // offsets of f0 to f2
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

TEST_F(Evt, TravelsAsItsImageOf32Bytes) {
    EXPECT_BYTES(sent(kChange),
                 "04 00 00 00"        // root reference
                 "f0 ff ff ff"        // soffset -16: vtable at 20
                 "80 22 33 44"        // f0
                 "81 22 33 44"        // f1
                 "82 22"              // f2
                 "00 00"              // padding in front of the vtable
                 "0a 00 0e 00"        // vtable length, table length
                 "04 00 08 00 0c 00"  // offsets of f0 to f2
                 "00 00");            // padding
}

}  // namespace
