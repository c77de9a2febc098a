// SPDX-License-Identifier: Apache-2.0
// The data-flow messages: their bytes in both layouts, and what their unpack does with faults.
#include "tests/support/message.h"

namespace {

using namespace tests;

class Dataflow : public MessageTest {};

constexpr Nac_UserDataFlowCfg kCfg = {0x0102030405060708, 0x1112131415161718, 0x2122232425262728,
                                      0x3132333435363738};

TEST_F(Dataflow, CfgWithAllFieldsPacksTo52Bytes) {
    EXPECT_BYTES(packed(kCfg),
                 "10 00 00 00"                // root reference: table at 16
                 "0c 00"                      // vtable length
                 "24 00"                      // table length: soffset and four u64
                 "04 00 0c 00 14 00 1c 00"    // places of f0 to f3
                 "0c 00 00 00"                // soffset: vtable 12 before the table
                 "08 07 06 05 04 03 02 01"    // f0
                 "18 17 16 15 14 13 12 11"    // f1
                 "28 27 26 25 24 23 22 21"    // f2
                 "38 37 36 35 34 33 32 31");  // f3
}

TEST_F(Dataflow, CfgTravelsAsItsImageOf56Bytes) {
    EXPECT_BYTES(sent(kCfg),
                 "04 00 00 00"              // root reference
                 "dc ff ff ff"              // soffset -36: vtable at 40
                 "08 07 06 05 04 03 02 01"  // f0
                 "18 17 16 15 14 13 12 11"  // f1
                 "28 27 26 25 24 23 22 21"  // f2
                 "38 37 36 35 34 33 32 31"  // f3
                 "0c 00 24 00"              // vtable length, table length
                 "04 00 0c 00 14 00 1c 00"  // places of f0 to f3
                 "00 00 00 00");            // padding
}

TEST_F(Dataflow, EmptyListPacksTo14Bytes) {
    EXPECT_BYTES(packed(Nac_UserDataFlowMsg{}), "0a 00 00 00 06 00 04 00 00 00 06 00 00 00");
}

TEST_F(Dataflow, BothLayoutsOfTheQueryAnswerUnpackToTheSameRecord) {
    Nac_UserDataFlowQueryAckMsg answer = {};
    answer.f0 = 7;
    answer.f1 = {1, 0, kCfg, {}, kCfg, {0, 5, 0, 0}};
    const Unpacked<Nac_UserDataFlowQueryAckMsg> compact(packed(answer));
    const Unpacked<Nac_UserDataFlowQueryAckMsg> image(sent(answer));
    EXPECT_EQ(std::memcmp(&*compact, &*image, sizeof answer), 0);
    EXPECT_EQ(compact->f1.f4.f3, kCfg.f3);
}

TEST_F(Dataflow, BadRootReferenceClearsInfoButLeavesCfg) {
    const Bytes bad = hex("ff 00 00 00");
    EXPECT_TRUE(Unpacked<Nac_UserDataFlowInfo>(bad, 0xAA).all(0));
    EXPECT_TRUE(Unpacked<Nac_UserDataFlowCfg>(bad, 0xAA).all(0xAA));
    EXPECT_EQ(logged(),
              (Lines{"Nac_UserDataFlowInfo_unpack_non_root: [KAPLO]:Table offset(255) is out of range(4 - 4)",
                     "Nac_UserDataFlowCfg_unpack: [KAPLO]:Table offset(255) is out of range(4 - 4)"}));
}

}  // namespace
