// SPDX-License-Identifier: Apache-2.0
// The ACL rules and the detection settings: their bytes in both layouts.
#include "tests/support/byte_literals.h"

namespace {

using namespace tests;

class UserType : public MessageTest {};

constexpr Nac_UserDetectInfo kDetect = {0x80, 0x81, word(0x82)};

constexpr Nac_DaclRuleIpInfo kIpInfo = {
    word(0x80),
    word(0x81),
    word(0x82),
    word(0x83),
    {0x84, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xf4},
    {0x85, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xf5},
    {0x86, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xf6},
    {0x87, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xf7},
    half(0x88),
    half(0x89),
    half(0x8a),
    half(0x8b),
    half(0x8c),
    half(0x8d),
    half(0x8e),
    half(0x8f),
    {0x90, 1, 2, 3, 4, 0xe0},
    {0x91, 1, 2, 3, 4, 0xe1},
    half(0x92),
    half(0x93),
    half(0x94),
    half(0x95),
    0x96,
    0x97,
    0x98,
    0x99,
    0x9a,
    half(0x9b),
};

// With f1, f9, f24 and f27, and one address that is not zero.
constexpr Nac_DaclRuleIpInfo sparse_ip_info() {
    Nac_DaclRuleIpInfo info = {};
    info.f1 = word(0x81);
    info.f5[15] = 0xf5;
    info.f9 = half(0x89);
    info.f24 = 0x98;
    info.f27 = half(0x9b);
    return info;
}
constexpr Nac_DaclRuleIpInfo kSparseIpInfo = sparse_ip_info();

constexpr Nac_RadiusDaclRule kRule = {0x70,       word(0x71), word(0x72), word(0x73),
                                      word(0x74), word(0x75), kIpInfo};

// The addresses as a table: vtable, then table. The scalars precede the six references, which always hold
// 24, 40, 56, 72, 88 and 94, and the six vectors close the table.
constexpr const char* kIpInfoTable =
    "3c 00"                                            // vtable length
    "af 00"                                            // table length: scalars up to 51, and 124
    "04 00 08 00 0c 00 10 00"                          // offsets of f0 to f3
    "33 00 37 00 3b 00 3f 00"                          // offsets of f4 to f7
    "14 00 16 00 18 00 1a 00 1c 00 1e 00 20 00 22 00"  // offsets of f8 to f15
    "43 00 47 00"                                      // offsets of f16, f17
    "24 00 26 00 28 00 2a 00"                          // offsets of f18 to f21
    "2c 00 2d 00 2e 00 2f 00 30 00"                    // offsets of f22 to f26
    "31 00"                                            // offset of f27
    "3c 00 00 00"                                      // soffset
    "80 22 33 44"                                      // f0
    "81 22 33 44"                                      // f1
    "82 22 33 44"                                      // f2
    "83 22 33 44"                                      // f3
    "88 22"                                            // f8
    "89 22"                                            // f9
    "8a 22"                                            // f10
    "8b 22"                                            // f11
    "8c 22"                                            // f12
    "8d 22"                                            // f13
    "8e 22"                                            // f14
    "8f 22"                                            // f15
    "92 22"                                            // f18
    "93 22"                                            // f19
    "94 22"                                            // f20
    "95 22"                                            // f21
    "96"                                               // f22
    "97"                                               // f23
    "98"                                               // f24
    "99"                                               // f25
    "9a"                                               // f26
    "9b 22"                                            // f27
    "18 00 00 00"                                      // f4: vector 24 on
    "28 00 00 00"                                      // f5: vector 40 on
    "38 00 00 00"                                      // f6: vector 56 on
    "48 00 00 00"                                      // f7: vector 72 on
    "58 00 00 00"                                      // f16: vector 88 on
    "5e 00 00 00"                                      // f17: vector 94 on
    "10 00 00 00"                                      // f4: count
    "84 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e f4"  // f4
    "10 00 00 00"                                      // f5: count
    "85 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e f5"  // f5
    "10 00 00 00"                                      // f6: count
    "86 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e f6"  // f6
    "10 00 00 00"                                      // f7: count
    "87 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e f7"  // f7
    "06 00 00 00"                                      // f16: count
    "90 01 02 03 04 e0"                                // f16
    "06 00 00 00"                                      // f17: count
    "91 01 02 03 04 e1";                               // f17

constexpr const char* kEmptyIpInfoTable =
    "3c 00"                                            // vtable length
    "80 00"                                            // table length: 4 and 124
    "00 00 00 00 00 00 00 00"                          // f0 to f3 absent
    "04 00 08 00 0c 00 10 00"                          // offsets of f4 to f7
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f8 to f15 absent
    "14 00 18 00"                                      // offsets of f16, f17
    "00 00 00 00 00 00 00 00"                          // f18 to f21 absent
    "00 00 00 00 00 00 00 00 00 00"                    // f22 to f26 absent
    "00 00"                                            // f27 absent
    "3c 00 00 00"                                      // soffset
    "18 00 00 00"                                      // f4: vector 24 on
    "28 00 00 00"                                      // f5: vector 40 on
    "38 00 00 00"                                      // f6: vector 56 on
    "48 00 00 00"                                      // f7: vector 72 on
    "58 00 00 00"                                      // f16: vector 88 on
    "5e 00 00 00"                                      // f17: vector 94 on
    "10 00 00 00"                                      // f4: count
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f4
    "10 00 00 00"                                      // f5: count
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f5
    "10 00 00 00"                                      // f6: count
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f6
    "10 00 00 00"                                      // f7: count
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f7
    "06 00 00 00"                                      // f16: count
    "00 00 00 00 00 00"                                // f16
    "06 00 00 00"                                      // f17: count
    "00 00 00 00 00 00";                               // f17

// As kSparseIpInfo.
constexpr const char* kSparseIpInfoTable =
    "3c 00"                                            // vtable length
    "89 00"                                            // table length: 13 and 124
    "00 00 04 00 00 00 00 00"                          // f0 to f3: only f1
    "0d 00 11 00 15 00 19 00"                          // offsets of f4 to f7
    "00 00 08 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f8 to f15: only f9
    "1d 00 21 00"                                      // offsets of f16, f17
    "00 00 00 00 00 00 00 00"                          // f18 to f21 absent
    "00 00 00 00 0a 00 00 00 00 00"                    // f22 to f26: only f24
    "0b 00"                                            // offset of f27
    "3c 00 00 00"                                      // soffset
    "81 22 33 44"                                      // f1
    "89 22"                                            // f9
    "98"                                               // f24
    "9b 22"                                            // f27
    "18 00 00 00"                                      // f4: vector 24 on
    "28 00 00 00"                                      // f5: vector 40 on
    "38 00 00 00"                                      // f6: vector 56 on
    "48 00 00 00"                                      // f7: vector 72 on
    "58 00 00 00"                                      // f16: vector 88 on
    "5e 00 00 00"                                      // f17: vector 94 on
    "10 00 00 00"                                      // f4: count
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f4
    "10 00 00 00"                                      // f5: count
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 f5"  // f5
    "10 00 00 00"                                      // f6: count
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f6
    "10 00 00 00"                                      // f7: count
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f7
    "06 00 00 00"                                      // f16: count
    "00 00 00 00 00 00"                                // f16
    "06 00 00 00"                                      // f17: count
    "00 00 00 00 00 00";                               // f17

// The fixed image of kIpInfo, alone or inside a rule's. Each address follows its own reference and count.
constexpr const char* kIpInfoImage =
    "04 00 00 00"                                      // root reference
    "50 ff ff ff"                                      // soffset -176: vtable at 180
    "80 22 33 44"                                      // f0 at 8
    "81 22 33 44"                                      // f1
    "82 22 33 44"                                      // f2
    "83 22 33 44"                                      // f3
    "04 00 00 00"                                      // f4 at 24: vector right after
    "10 00 00 00"                                      // f4: count
    "84 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e f4"  // f4
    "04 00 00 00"                                      // f5 at 48
    "10 00 00 00"                                      // f5: count
    "85 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e f5"  // f5
    "04 00 00 00"                                      // f6 at 72
    "10 00 00 00"                                      // f6: count
    "86 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e f6"  // f6
    "04 00 00 00"                                      // f7 at 96
    "10 00 00 00"                                      // f7: count
    "87 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e f7"  // f7
    "88 22"                                            // f8 at 120
    "89 22"                                            // f9
    "8a 22"                                            // f10
    "8b 22"                                            // f11
    "8c 22"                                            // f12
    "8d 22"                                            // f13
    "8e 22"                                            // f14
    "8f 22"                                            // f15
    "04 00 00 00"                                      // f16 at 136
    "06 00 00 00"                                      // f16: count
    "90 01 02 03 04 e0"                                // f16
    "04 00 00 00"                                      // f17 at 150
    "06 00 00 00"                                      // f17: count
    "91 01 02 03 04 e1"                                // f17
    "92 22"                                            // f18 at 164
    "93 22"                                            // f19
    "94 22"                                            // f20
    "95 22"                                            // f21
    "96"                                               // f22 at 172
    "97"                                               // f23
    "98"                                               // f24
    "99"                                               // f25
    "9a"                                               // f26
    "9b 22"                                            // f27 at 177
    "00"                                               // padding in front of the vtable
    "3c 00 af 00"                                      // vtable length, table length 175
    "04 00 08 00 0c 00 10 00"                          // offsets of f0 to f3
    "14 00 2c 00 44 00 5c 00"                          // offsets of f4 to f7
    "74 00 76 00 78 00 7a 00 7c 00 7e 00 80 00 82 00"  // offsets of f8 to f15
    "84 00 92 00"                                      // offsets of f16, f17
    "a0 00 a2 00 a4 00 a6 00"                          // offsets of f18 to f21
    "a8 00 a9 00 aa 00 ab 00 ac 00"                    // offsets of f22 to f26
    "ad 00";                                           // offset of f27

// ---- Nac_DaclRuleIpInfo ----

TEST_F(UserType, IpInfoWithAllFieldsPacksTo239Bytes) {
    EXPECT_BYTES(packed(kIpInfo), join({"40 00 00 00", kIpInfoTable}));  // root reference: table at 64
    EXPECT_EQ(packed(kIpInfo).size(), 239U);
}

TEST_F(UserType, IpInfoOfZeroesHoldsItsSixArraysIn192Bytes) {
    EXPECT_BYTES(packed(Nac_DaclRuleIpInfo{}), join({"40 00 00 00", kEmptyIpInfoTable}));
    EXPECT_EQ(packed(Nac_DaclRuleIpInfo{}).size(), 192U);
}

TEST_F(UserType, IpInfoLeavesOutScalarsThatAreZeroButNoArray) {
    EXPECT_BYTES(packed(kSparseIpInfo), join({"40 00 00 00", kSparseIpInfoTable}));
}

TEST_F(UserType, IpInfoTravelsAsItsImageOf240Bytes) {
    EXPECT_BYTES(sent(kIpInfo), kIpInfoImage);
    EXPECT_EQ(sent(kIpInfo).size(), 240U);
}

// ---- Nac_RadiusDaclRule ----

// The reference of the addresses is always 64: their vtable of 60 bytes follows it at once.
TEST_F(UserType, RuleWithAllFieldsPacksTo286Bytes) {
    EXPECT_BYTES(packed(kRule), join({"16 00 00 00"                                // root reference
                                      "12 00 1d 00"                                // vtable, table length
                                      "04 00 05 00 09 00 0d 00 11 00 15 00 19 00"  // offsets of f0 to f6
                                      "12 00 00 00"                                // soffset
                                      "70"                                         // f0
                                      "71 22 33 44"                                // f1
                                      "72 22 33 44"                                // f2
                                      "73 22 33 44"                                // f3
                                      "74 22 33 44"                                // f4
                                      "75 22 33 44"                                // f5
                                      "40 00 00 00",                               // f6: table 64 on
                                      kIpInfoTable}));
    EXPECT_EQ(packed(kRule).size(), 286U);
}

TEST_F(UserType, RuleOfZeroesPacksTo218Bytes) {
    EXPECT_BYTES(packed(Nac_RadiusDaclRule{}), join({"16 00 00 00"                                // root
                                                     "12 00 08 00"                                // lengths
                                                     "00 00 00 00 00 00 00 00 00 00 00 00 04 00"  // only f6
                                                     "12 00 00 00"                                // soffset
                                                     "40 00 00 00",                               // f6
                                                     kEmptyIpInfoTable}));
    EXPECT_EQ(packed(Nac_RadiusDaclRule{}).size(), 218U);
}

TEST_F(UserType, RuleLeavesOutScalarsThatAreZero) {
    EXPECT_BYTES(packed(Nac_RadiusDaclRule{0, 0, 0, word(0x73), 0, 0, kSparseIpInfo}),
                 join({"16 00 00 00"                                // root reference
                       "12 00 0c 00"                                // vtable length, table length
                       "00 00 00 00 00 00 04 00 00 00 00 00 08 00"  // f3 at 4, f6 at 8
                       "12 00 00 00"                                // soffset
                       "73 22 33 44"                                // f3
                       "40 00 00 00",                               // f6: table 64 on
                       kSparseIpInfoTable}));
}

TEST_F(UserType, RuleTravelsAsItsImageOf296Bytes) {
    EXPECT_BYTES(sent(kRule), join({"04 00 00 00"                            // root reference
                                    "f4 fe ff ff"                            // soffset -268: vtable at 272
                                    "70"                                     // f0
                                    "71 22 33 44"                            // f1 at 9
                                    "72 22 33 44"                            // f2
                                    "73 22 33 44"                            // f3
                                    "74 22 33 44"                            // f4
                                    "75 22 33 44",                           // f5
                                    kIpInfoImage,                            // f6 at 29
                                    "00 00 00"                               // padding in front of the vtable
                                    "12 00",                                 // vtable length
                                    in_full_or_shortened("09 01", "09 00"),  // table length 265
                                    "04 00 05 00 09 00 0d 00 11 00 15 00 19 00"  // offsets of f0 to f6
                                    "00 00 00 00 00 00"}));                      // padding
    EXPECT_EQ(sent(kRule).size(), 296U);
}

// ---- Nac_UserDetectInfo ----

TEST_F(UserType, DetectInfoWithAllFieldsPacksTo24Bytes) {
    EXPECT_BYTES(packed(kDetect),
                 "0e 00 00 00"        // root reference
                 "0a 00 0a 00"        // vtable length, table length
                 "04 00 05 00 06 00"  // offsets of f0 to f2
                 "0a 00 00 00"        // soffset
                 "80"                 // f0
                 "81"                 // f1
                 "82 22 33 44");      // f2
}

TEST_F(UserType, DetectInfoOfZeroesPacksTo18Bytes) {
    EXPECT_BYTES(packed(Nac_UserDetectInfo{}),
                 "0e 00 00 00"        // root reference
                 "0a 00 04 00"        // vtable length, table length
                 "00 00 00 00 00 00"  // no field
                 "0a 00 00 00");      // soffset
}

TEST_F(UserType, DetectInfoLeavesOutAZero) {
    EXPECT_BYTES(packed(Nac_UserDetectInfo{0, 0x81, word(0x82)}),
                 "0e 00 00 00"        // root reference
                 "0a 00 09 00"        // vtable length, table length
                 "00 00 04 00 05 00"  // f0 absent, f1, f2
                 "0a 00 00 00"        // soffset
                 "81"                 // f1
                 "82 22 33 44");      // f2
}

TEST_F(UserType, DetectInfoTravelsAsItsImageOf32Bytes) {
    EXPECT_BYTES(sent(kDetect),
                 "04 00 00 00"          // root reference
                 "f4 ff ff ff"          // soffset -12: vtable at 16
                 "80"                   // f0
                 "81"                   // f1
                 "82 22 33 44"          // f2 at 10
                 "00 00"                // padding in front of the vtable
                 "0a 00 0a 00"          // vtable length, table length
                 "04 00 05 00 06 00"    // offsets of f0 to f2
                 "00 00 00 00 00 00");  // padding
}

}  // namespace
