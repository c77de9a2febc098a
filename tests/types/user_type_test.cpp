// SPDX-License-Identifier: Apache-2.0
// The ACL rules and the detection settings: their bytes in both layouts, and what unpack does with faults.
#include "tests/support/message_checks.h"

namespace {

using namespace tests;
using enum AfterHeaderFault;

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
    "04 00 08 00 0c 00 10 00"                          // places of f0 to f3
    "33 00 37 00 3b 00 3f 00"                          // places of f4 to f7
    "14 00 16 00 18 00 1a 00 1c 00 1e 00 20 00 22 00"  // places of f8 to f15
    "43 00 47 00"                                      // places of f16, f17
    "24 00 26 00 28 00 2a 00"                          // places of f18 to f21
    "2c 00 2d 00 2e 00 2f 00 30 00"                    // places of f22 to f26
    "31 00"                                            // place of f27
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
    "04 00 08 00 0c 00 10 00"                          // places of f4 to f7
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f8 to f15 absent
    "14 00 18 00"                                      // places of f16, f17
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
    "0d 00 11 00 15 00 19 00"                          // places of f4 to f7
    "00 00 08 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f8 to f15: only f9
    "1d 00 21 00"                                      // places of f16, f17
    "00 00 00 00 00 00 00 00"                          // f18 to f21 absent
    "00 00 00 00 0a 00 00 00 00 00"                    // f22 to f26: only f24
    "0b 00"                                            // place of f27
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
    "04 00 00 00"                                      // f4 at 24: vector right behind
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
    "04 00 08 00 0c 00 10 00"                          // places of f0 to f3
    "14 00 2c 00 44 00 5c 00"                          // places of f4 to f7
    "74 00 76 00 78 00 7a 00 7c 00 7e 00 80 00 82 00"  // places of f8 to f15
    "84 00 92 00"                                      // places of f16, f17
    "a0 00 a2 00 a4 00 a6 00"                          // places of f18 to f21
    "a8 00 a9 00 aa 00 ab 00 ac 00"                    // places of f22 to f26
    "ad 00";                                           // place of f27

// ---- Nac_DaclRuleIpInfo ----

TEST_F(UserType, IpInfoRecordKeepsFieldOrderWithOneByteOfAlignment) {
    using R = Nac_DaclRuleIpInfo;
    EXPECT_EQ(sizeof(R), 124U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3)}),
              (Offsets{0, 4, 8, 12}));
    EXPECT_EQ((Offsets{offsetof(R, f4), offsetof(R, f5), offsetof(R, f6), offsetof(R, f7)}),
              (Offsets{16, 32, 48, 64}));
    EXPECT_EQ((Offsets{offsetof(R, f8), offsetof(R, f9), offsetof(R, f10), offsetof(R, f11), offsetof(R, f12),
                       offsetof(R, f13), offsetof(R, f14), offsetof(R, f15)}),
              (Offsets{80, 82, 84, 86, 88, 90, 92, 94}));
    EXPECT_EQ((Offsets{offsetof(R, f16), offsetof(R, f17)}), (Offsets{96, 102}));
    EXPECT_EQ((Offsets{offsetof(R, f18), offsetof(R, f19), offsetof(R, f20), offsetof(R, f21)}),
              (Offsets{108, 110, 112, 114}));
    EXPECT_EQ((Offsets{offsetof(R, f22), offsetof(R, f23), offsetof(R, f24), offsetof(R, f25),
                       offsetof(R, f26), offsetof(R, f27)}),
              (Offsets{116, 117, 118, 119, 120, 122}));
}

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

TEST_F(UserType, IpInfoGrowsByTheWidthOfEachScalarOnly) {
    using R = Nac_DaclRuleIpInfo;
    EXPECT_EQ(packed_size(R{}), 192U);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f3);
    expect_each_costs(2, R{}, &R::f8, &R::f9, &R::f10, &R::f11, &R::f12, &R::f13, &R::f14, &R::f15);
    expect_each_costs(2, R{}, &R::f18, &R::f19, &R::f20, &R::f21, &R::f27);
    expect_each_costs(1, R{}, &R::f22, &R::f23, &R::f24, &R::f25, &R::f26);
    R arrays = {};
    std::copy_n(kIpInfo.f4, 16, arrays.f4);
    std::copy_n(kIpInfo.f7, 16, arrays.f7);
    std::copy_n(kIpInfo.f17, 6, arrays.f17);
    EXPECT_EQ(packed_size(arrays), 192U);
    EXPECT_EQ(packed_size(kSparseIpInfo), 192U + 4 + 2 + 1 + 2);
    EXPECT_EQ(packed_size(kIpInfo), 192U + 16 + 26 + 5);
}

TEST_F(UserType, IpInfoTravelsAsItsImageOf240Bytes) {
    expect_sends_image("Nac_DaclRuleIpInfo", 3596447974, kIpInfo, kIpInfoImage);
    EXPECT_EQ(sent(kIpInfo).size(), 240U);
}

TEST_F(UserType, IpInfoUnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kIpInfo);
    expect_both_layouts_unpack_to(kSparseIpInfo);
    expect_both_layouts_unpack_to(Nac_DaclRuleIpInfo{});
    EXPECT_EQ(std::memcmp(&*Unpacked<Nac_DaclRuleIpInfo>(sent(kIpInfo)), &kIpInfo, 121), 0);
}

// In the packed kIpInfo: references of f4 from 115, counts from 139, the two short ones at 219 and 229.
struct ArrayField {
    std::size_t reference;
    std::size_t count_at;
    std::uint32_t count;
};
constexpr ArrayField kArrays[] = {{115, 139, 16}, {119, 159, 16}, {123, 179, 16},
                                  {127, 199, 16}, {131, 219, 6},  {135, 229, 6}};

// The record as kIpInfo up to the n-th array, which and what follows it in field-id order is zero.
Nac_DaclRuleIpInfo ip_info_before_array(std::size_t n) {
    Nac_DaclRuleIpInfo info = {};
    const std::size_t ends[] = {offsetof(Nac_DaclRuleIpInfo, f4),  offsetof(Nac_DaclRuleIpInfo, f5),
                                offsetof(Nac_DaclRuleIpInfo, f6),  offsetof(Nac_DaclRuleIpInfo, f7),
                                offsetof(Nac_DaclRuleIpInfo, f16), offsetof(Nac_DaclRuleIpInfo, f17)};
    std::memcpy(&info, &kIpInfo, ends[n]);
    return info;
}

TEST_F(UserType, ArrayOfAnotherLengthStopsUnpackingThere) {
    for (std::size_t n = 0; n < 6; ++n) {
        for (const std::uint32_t count :
             {kArrays[n].count - 1, kArrays[n].count + 1, 0U, 0xFFFFFFFFU, 0x80000000U}) {
            Bytes bytes = packed(kIpInfo);
            bytes.resize(bytes.size() + 1);  // so that one more would lie inside the buffer
            put32(bytes, kArrays[n].count_at, count);
            services.reset();
            const Unpacked<Nac_DaclRuleIpInfo> unpacked(bytes, 0xAA);
            EXPECT_EQ(logged(), Lines{});
            EXPECT_TRUE(same_bytes(packed(*unpacked), packed(ip_info_before_array(n)))) << n << ": " << count;
        }
    }
}

TEST_F(UserType, F4Of15Or17BytesLeavesOnlyF0ToF3) {
    for (const std::uint32_t count : {15U, 17U}) {
        Bytes bytes = packed(kIpInfo);
        put32(bytes, kArrays[0].count_at, count);
        const Unpacked<Nac_DaclRuleIpInfo> unpacked(bytes);
        Nac_DaclRuleIpInfo expected = {};
        expected.f0 = kIpInfo.f0;
        expected.f1 = kIpInfo.f1;
        expected.f2 = kIpInfo.f2;
        expected.f3 = kIpInfo.f3;
        EXPECT_EQ(std::memcmp(&*unpacked, &expected, sizeof expected), 0);
    }
}

TEST_F(UserType, ArrayOutsideTheBufferStopsUnpackingThere) {
    for (std::size_t n = 0; n < 6; ++n) {
        Bytes wraps = packed(kIpInfo);
        put32(wraps, kArrays[n].reference, 0xFFFFFFFF);
        Bytes count_cut = packed(kIpInfo);  // one byte of the count is behind the end
        put32(count_cut, kArrays[n].reference, static_cast<std::uint32_t>(239 - 3 - kArrays[n].reference));
        Bytes array_cut = packed(kIpInfo);  // the bytes end one behind the end
        const std::uint32_t at = 239 + 1 - 4 - kArrays[n].count;
        put32(array_cut, at, kArrays[n].count);
        put32(array_cut, kArrays[n].reference, at - static_cast<std::uint32_t>(kArrays[n].reference));
        services.reset();
        for (const Bytes& bytes : {wraps, count_cut}) {
            const Unpacked<Nac_DaclRuleIpInfo> unpacked(bytes, 0xAA);
            EXPECT_TRUE(same_bytes(packed(*unpacked), packed(ip_info_before_array(n)))) << n;
        }
        const Unpacked<Nac_DaclRuleIpInfo> unpacked(array_cut, 0xAA);
        EXPECT_EQ(unpacked->f18, 0U);
        EXPECT_EQ(unpacked->f27, 0U);
    }
}

TEST_F(UserType, IpInfoOfAnOlderSenderReadsTheSlotsItHas) {
    for (std::uint16_t slots = 0; slots <= 28; ++slots) {
        Bytes bytes = packed(kIpInfo);
        put16(bytes, 4, static_cast<std::uint16_t>(4 + 2 * slots));
        const Unpacked<Nac_DaclRuleIpInfo> unpacked(bytes, 0xAA);
        EXPECT_EQ(unpacked->f0, slots > 0 ? kIpInfo.f0 : 0U);
        EXPECT_EQ(unpacked->f7[15], slots > 7 ? kIpInfo.f7[15] : 0U);
        EXPECT_EQ(unpacked->f15, slots > 15 ? kIpInfo.f15 : 0U);
        EXPECT_EQ(unpacked->f17[5], slots > 17 ? kIpInfo.f17[5] : 0U);
        EXPECT_EQ(unpacked->f26, slots > 26 ? kIpInfo.f26 : 0U);
        EXPECT_EQ(unpacked->f27, slots > 27 ? kIpInfo.f27 : 0U);
    }
    EXPECT_TRUE(services.allocations().empty());
}

TEST_F(UserType, IpInfoReportsBadArguments) {
    expect_argument_faults<Nac_DaclRuleIpInfo>("Nac_DaclRuleIpInfo");
}

TEST_F(UserType, IpInfoIsClearedAfterAHeaderFault) {
    expect_header_faults<Nac_DaclRuleIpInfo>(cleared, "Nac_DaclRuleIpInfo_unpack_non_root");
}

TEST_F(UserType, BadRootReferenceClearsIpInfoButLeavesDetectInfo) {
    const Bytes bad = hex("00 00 00 00 00 00 00 00");
    EXPECT_TRUE(Unpacked<Nac_DaclRuleIpInfo>(bad, 0xAA).all(0));
    EXPECT_TRUE(Unpacked<Nac_UserDetectInfo>(bad, 0xAA).all(0xAA));
    EXPECT_EQ(logged(),
              (Lines{"Nac_DaclRuleIpInfo_unpack_non_root: [KAPLO]:Table offset(0) is out of range(4 - 8)",
                     "Nac_UserDetectInfo_unpack: [KAPLO]:Table offset(0) is out of range(4 - 8)"}));
}

TEST_F(UserType, IpInfoPackRefusals) { expect_pack_refusals("Nac_DaclRuleIpInfo", kIpInfo, 239); }

TEST_F(UserType, IpInfoFreeDoesNothing) { expect_free_does_nothing<Nac_DaclRuleIpInfo>(); }

// ---- Nac_RadiusDaclRule ----

TEST_F(UserType, RuleRecordHoldsItsAddressesInline) {
    using R = Nac_RadiusDaclRule;
    EXPECT_EQ(sizeof(R), 148U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4),
                       offsetof(R, f5), offsetof(R, f6)}),
              (Offsets{0, 4, 8, 12, 16, 20, 24}));
}

// The reference of the addresses is always 64: their vtable of 60 bytes follows it at once.
TEST_F(UserType, RuleWithAllFieldsPacksTo286Bytes) {
    EXPECT_BYTES(packed(kRule), join({"16 00 00 00"                                // root reference
                                      "12 00 1d 00"                                // vtable, table length
                                      "04 00 05 00 09 00 0d 00 11 00 15 00 19 00"  // places of f0 to f6
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

TEST_F(UserType, RuleGrowsByItsScalarsAndItsAddresses) {
    using R = Nac_RadiusDaclRule;
    EXPECT_EQ(packed_size(R{}), 30U + 188);
    expect_each_costs(1, R{}, &R::f0);
    expect_each_costs(4, R{}, &R::f1, &R::f2, &R::f3, &R::f4, &R::f5);
    EXPECT_EQ(packed_size(R{0, 0, 0, 0, 0, 0, kSparseIpInfo}), 30U + 188 + 9);
    EXPECT_EQ(packed_size(R{1, 0, 0, 0, 0, 2, kIpInfo}), 30U + 1 + 4 + 235);
    EXPECT_EQ(packed_size(kRule), 30U + 1 + 20 + 235);
}

TEST_F(UserType, RuleTravelsAsItsImageOf296Bytes) {
    expect_sends_image("Nac_RadiusDaclRule", 803935917, kRule,
                       join({"04 00 00 00"                                // root reference
                             "f4 fe ff ff"                                // soffset -268: vtable at 272
                             "70"                                         // f0
                             "71 22 33 44"                                // f1 at 9
                             "72 22 33 44"                                // f2
                             "73 22 33 44"                                // f3
                             "74 22 33 44"                                // f4
                             "75 22 33 44",                               // f5
                             kIpInfoImage,                                // f6 at 29
                             "00 00 00"                                   // padding in front of the vtable
                             "12 00",                                     // vtable length
                             in_full_or_shortened("09 01", "09 00"),      // table length 265
                             "04 00 05 00 09 00 0d 00 11 00 15 00 19 00"  // places of f0 to f6
                             "00 00 00 00 00 00"}));                      // padding
    EXPECT_EQ(sent(kRule).size(), 296U);
}

TEST_F(UserType, RuleUnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kRule);
    expect_both_layouts_unpack_to(Nac_RadiusDaclRule{0, 0, 0, word(0x73), 0, 0, kSparseIpInfo});
    expect_both_layouts_unpack_to(Nac_RadiusDaclRule{});
}

TEST_F(UserType, RuleWithAVtableShorterThan18HasZeroAddresses) {
    for (const std::uint16_t vtable_length : std::initializer_list<std::uint16_t>{17, 16}) {
        Bytes bytes = packed(kRule);
        put16(bytes, 4, vtable_length);
        services.reset();
        const Unpacked<Nac_RadiusDaclRule> rule(bytes, 0xAA);
        EXPECT_EQ(logged(), Lines{});
        Nac_RadiusDaclRule expected = kRule;
        expected.f6 = {};
        EXPECT_TRUE(same_bytes(packed(*rule), packed(expected)));
    }
}

TEST_F(UserType, RuleWithAFaultInItsAddressesIsPartlyFilled) {
    Bytes bytes = packed(kRule);
    put32(bytes, 51 + 60 + 51 + 24 + 20, 15);  // count of the addresses' f5
    services.reset();
    const Unpacked<Nac_RadiusDaclRule> rule(bytes, 0xAA);
    EXPECT_EQ(logged(), Lines{});
    Nac_RadiusDaclRule expected = kRule;
    expected.f6 = ip_info_before_array(1);
    EXPECT_TRUE(same_bytes(packed(*rule), packed(expected)));
}

TEST_F(UserType, RuleWhoseAddressReferenceIsOutsideKeepsItsScalars) {
    Bytes wraps = packed(kRule);
    put32(wraps, 47, 0xFFFFFFFF);
    Bytes cut = packed(kRule);
    cut.resize(50);  // one byte of f6's reference is missing
    services.reset();
    Nac_RadiusDaclRule expected = kRule;
    expected.f6 = {};
    for (const Bytes& bytes : {wraps, cut}) {
        const Unpacked<Nac_RadiusDaclRule> rule(bytes, 0xAA);
        EXPECT_EQ(logged(), Lines{});
        EXPECT_TRUE(same_bytes(packed(*rule), packed(expected)));
        services.reset();
    }
}

TEST_F(UserType, FaultsOfTheAddressesInARuleCarryTheirNestedName) {
    Bytes bytes = packed(kRule);
    put32(bytes, 111, 111);  // the addresses' soffset: vtable at 0
    services.reset();
    const Unpacked<Nac_RadiusDaclRule> rule(bytes);
    EXPECT_EQ(rule->f5, kRule.f5);
    EXPECT_EQ(
        logged(),
        Lines{"Nac_DaclRuleIpInfo_unpack_non_root: [KAPLO]:Vtable offset(111) is out of range(4 - 282)"});
}

TEST_F(UserType, RuleReportsBadArguments) {
    expect_argument_faults<Nac_RadiusDaclRule>("Nac_RadiusDaclRule");
}

TEST_F(UserType, RuleIsClearedAfterAHeaderFault) {
    expect_header_faults<Nac_RadiusDaclRule>(cleared, "Nac_RadiusDaclRule_unpack_non_root");
}

TEST_F(UserType, RulePackRefusals) { expect_pack_refusals("Nac_RadiusDaclRule", kRule, 286); }

TEST_F(UserType, RuleFreeDoesNothing) { expect_free_does_nothing<Nac_RadiusDaclRule>(); }

// ---- Nac_UserDetectInfo ----

TEST_F(UserType, DetectInfoRecordIsTwoBytesAndAWord) {
    using R = Nac_UserDetectInfo;
    EXPECT_EQ(sizeof(R), 8U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2)}), (Offsets{0, 1, 4}));
}

TEST_F(UserType, DetectInfoWithAllFieldsPacksTo24Bytes) {
    EXPECT_BYTES(packed(kDetect),
                 "0e 00 00 00"        // root reference
                 "0a 00 0a 00"        // vtable length, table length
                 "04 00 05 00 06 00"  // places of f0 to f2
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

TEST_F(UserType, DetectInfoGrowsByTheWidthOfEachField) {
    using R = Nac_UserDetectInfo;
    EXPECT_EQ(packed_size(R{}), 18U);
    expect_each_costs(1, R{}, &R::f0, &R::f1);
    expect_each_costs(4, R{}, &R::f2);
    expect_each_costs(4, R{1, 1, 0}, &R::f2);
}

TEST_F(UserType, DetectInfoTravelsAsItsImageOf32Bytes) {
    expect_sends_image("Nac_UserDetectInfo", 1793511829, kDetect,
                       "04 00 00 00"          // root reference
                       "f4 ff ff ff"          // soffset -12: vtable at 16
                       "80"                   // f0
                       "81"                   // f1
                       "82 22 33 44"          // f2 at 10
                       "00 00"                // padding in front of the vtable
                       "0a 00 0a 00"          // vtable length, table length
                       "04 00 05 00 06 00"    // places of f0 to f2
                       "00 00 00 00 00 00");  // padding
}

TEST_F(UserType, DetectInfoUnpacksAlikeFromBothLayouts) { expect_both_layouts_unpack_to(kDetect); }

TEST_F(UserType, DetectInfoReadsWholeFieldsOnly) {
    expect_reads_whole_fields_only<Nac_UserDetectInfo>(packed(kDetect), {1, 1, 4});
}

TEST_F(UserType, DetectInfoReportsBadArguments) {
    expect_argument_faults<Nac_UserDetectInfo>("Nac_UserDetectInfo");
}

TEST_F(UserType, DetectInfoIsUntouchedAfterAHeaderFault) {
    expect_header_faults<Nac_UserDetectInfo>(untouched, "Nac_UserDetectInfo_unpack");
}

TEST_F(UserType, DetectInfoPackRefusals) { expect_pack_refusals("Nac_UserDetectInfo", kDetect, 24); }

TEST_F(UserType, DetectInfoFreeDoesNothing) { expect_free_does_nothing<Nac_UserDetectInfo>(); }

// ---- the module ----

TEST_F(UserType, ModuleRegistersItsThreeTypesInOrder) {
    expect_registers<Nac_DaclRuleIpInfo, Nac_RadiusDaclRule, Nac_UserDetectInfo>(
        nac_fwm_user_type_recv_init, {3596447974, 803935917, 1793511829});
}

TEST_F(UserType, RefusedRegistrationEndsTheModuleWithTheBusAnswer) {
    bus.refuse_registration(0, -5);
    EXPECT_EQ(nac_fwm_user_type_recv_init(), -5);
    EXPECT_EQ(bus.registration_calls(), 1U);
    EXPECT_TRUE(bus.registrations().empty());
    expect_stops_at_refusal(nac_fwm_user_type_recv_init, 3);
}

TEST_F(UserType, ModuleRegistersAResourceCleanThatDoesNothing) {
    expect_registers_clean(nac_fwm_user_type_send_init, nac_fwm_user_type__send_resource_clean);
}

}  // namespace
