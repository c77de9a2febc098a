// SPDX-License-Identifier: Apache-2.0
// The IPsec access messages: their bytes in both layouts.
#include "tests/support/byte_literals.h"

namespace {

using namespace tests;

class IpsecAccess : public MessageTest {};

// The byte strings are only read: the record's pointers are not const because unpack's arrays are freed.
std::uint8_t long_string[] = {0xa0, 0xa1, 0xa2};
std::uint8_t string[] = {0xb0, 0xb1};
std::uint8_t short_string[] = {0xc0};
std::uint8_t longest_string[] = {0xd0, 0xd1, 0xd2, 0xd3};

Nac_IpsecAuthenReqMsg full_request() {
    return {word(0x80),
            word(0x81),
            word(0x82),
            word(0x83),
            word(0x84),
            3,
            long_string,
            2,
            string,
            0x87,
            1,
            short_string,
            {0x89, 1, 2, 3, 4, 0xf9},
            word(0x8a),
            word(0x8b),
            word(0x8c),
            word(0x8d),
            word(0x8e),
            4,
            longest_string};
}

// The references stand among the scalars, where their field ids put them.
constexpr const char* kRequest =
    "28 00 00 00"                    // root reference
    "24 00"                          // vtable length
    "65 00"                          // table length: 65 inline, the five byte strings 36
    "04 00 08 00 0c 00 10 00 14 00"  // offsets of f0 to f4
    "18 00 1c 00"                    // offsets of f5, f6
    "20 00"                          // offset of f7
    "21 00"                          // offset of f8
    "25 00"                          // offset of f9
    "29 00 2d 00 31 00 35 00 39 00"  // offsets of f10 to f14
    "3d 00"                          // offset of f15
    "24 00 00 00"                    // soffset
    "80 22 33 44"                    // f0
    "81 22 33 44"                    // f1
    "82 22 33 44"                    // f2
    "83 22 33 44"                    // f3
    "84 22 33 44"                    // f4
    "29 00 00 00"                    // f5: vector 41 on
    "2c 00 00 00"                    // f6: vector 44 on
    "87"                             // f7
    "2d 00 00 00"                    // f8: vector 45 on
    "2e 00 00 00"                    // f9: vector 46 on
    "8a 22 33 44"                    // f10
    "8b 22 33 44"                    // f11
    "8c 22 33 44"                    // f12
    "8d 22 33 44"                    // f13
    "8e 22 33 44"                    // f14
    "20 00 00 00"                    // f15: vector 32 on
    "03 00 00 00"                    // f5: count
    "a0 a1 a2"                       // f5
    "02 00 00 00"                    // f6: count
    "b0 b1"                          // f6
    "01 00 00 00"                    // f8: count
    "c0"                             // f8
    "06 00 00 00"                    // f9: count
    "89 01 02 03 04 f9"              // f9
    "04 00 00 00"                    // f15: count
    "d0 d1 d2 d3";                   // f15

Nac_IpsecAuthenAckMsg full_answer() {
    return {word(0x80), word(0x81),  word(0x82), word(0x83), word(0x84), word(0x85),  word(0x86),
            word(0x87), word(0x88),  word(0x89), word(0x8a), word(0x8b), word(0x8c),  word(0x8d),
            3,          long_string, 2,          string,     1,          short_string};
}

constexpr const char* kAnswer =
    "2a 00 00 00"                                // root reference
    "26 00"                                      // vtable length
    "5a 00"                                      // table length: 72 inline, strings 18
    "04 00 08 00 0c 00 10 00 14 00 18 00 1c 00"  // offsets of f0 to f6
    "20 00 24 00 28 00 2c 00 30 00 34 00 38 00"  // offsets of f7 to f13
    "3c 00 40 00 44 00"                          // offsets of f14 to f16
    "26 00 00 00"                                // soffset
    "80 22 33 44"                                // f0
    "81 22 33 44"                                // f1
    "82 22 33 44"                                // f2
    "83 22 33 44"                                // f3
    "84 22 33 44"                                // f4
    "85 22 33 44"                                // f5
    "86 22 33 44"                                // f6
    "87 22 33 44"                                // f7
    "88 22 33 44"                                // f8
    "89 22 33 44"                                // f9
    "8a 22 33 44"                                // f10
    "8b 22 33 44"                                // f11
    "8c 22 33 44"                                // f12
    "8d 22 33 44"                                // f13
    "0c 00 00 00"                                // f14: vector 12 on
    "0f 00 00 00"                                // f15: vector 15 on
    "11 00 00 00"                                // f16: vector 17 on
    "03 00 00 00"                                // f14: count
    "a0 a1 a2"                                   // f14
    "02 00 00 00"                                // f15: count
    "b0 b1"                                      // f15
    "01 00 00 00"                                // f16: count
    "c0";                                        // f16

// ---- Nac_IpsecAuthenReqMsg ----

TEST_F(IpsecAccess, RequestWithAllFieldsPacksTo141Bytes) {
    EXPECT_BYTES(packed(full_request()), kRequest);
    EXPECT_EQ(packed(full_request()).size(), 141U);
}

TEST_F(IpsecAccess, RequestOfZeroesStillCarriesItsAddressIn58Bytes) {
    const Bytes zeroes = packed(Nac_IpsecAuthenReqMsg{});
    EXPECT_BYTES(zeroes,
                 "28 00 00 00"                          // root reference
                 "24 00 12 00"                          // vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00"        // f0 to f4 absent
                 "00 00 00 00 00 00 00 00"              // f5 to f8 absent
                 "04 00"                                // offset of f9
                 "00 00 00 00 00 00 00 00 00 00 00 00"  // f10 to f15 absent
                 "24 00 00 00"                          // soffset
                 "04 00 00 00"                          // f9: vector right after
                 "06 00 00 00"                          // f9: count
                 "00 00 00 00 00 00");                  // f9
    EXPECT_TRUE(Unpacked<Nac_IpsecAuthenReqMsg>(zeroes, 0xAA).all(0));
}

TEST_F(IpsecAccess, RequestLeavesOutFieldsThatAreZeroOrEmpty) {
    Nac_IpsecAuthenReqMsg request = {};
    request.f1 = word(0x81);
    request.f6_count = 2;
    request.f6 = string;
    request.f9[5] = 0xf9;
    request.f12 = word(0x8c);
    EXPECT_BYTES(packed(request),
                 "28 00 00 00"                          // root reference
                 "24 00 24 00"                          // vtable length, table length 20 + 6 + 10
                 "00 00 04 00 00 00 00 00 00 00"        // f0 to f4: only f1
                 "00 00 08 00"                          // f5 absent, f6
                 "00 00 00 00"                          // f7, f8 absent
                 "0c 00"                                // offset of f9
                 "00 00 00 00 10 00 00 00 00 00 00 00"  // f10 to f15: only f12
                 "24 00 00 00"                          // soffset
                 "81 22 33 44"                          // f1
                 "0c 00 00 00"                          // f6: vector 12 on
                 "0e 00 00 00"                          // f9: vector 14 on
                 "8c 22 33 44"                          // f12
                 "02 00 00 00"                          // f6: count
                 "b0 b1"                                // f6
                 "06 00 00 00"                          // f9: count
                 "00 00 00 00 00 f9");                  // f9
}

// ---- Nac_IpsecAuthenAckMsg ----

TEST_F(IpsecAccess, AnswerWithAllFieldsPacksTo132Bytes) {
    EXPECT_BYTES(packed(full_answer()), kAnswer);
    EXPECT_EQ(packed(full_answer()).size(), 132U);
}

TEST_F(IpsecAccess, AnswerOfZeroesPacksTo46Bytes) {
    const Bytes zeroes = packed(Nac_IpsecAuthenAckMsg{});
    EXPECT_BYTES(zeroes,
                 "2a 00 00 00"                                // root reference
                 "26 00 04 00"                                // vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f0 to f6 absent
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f7 to f13 absent
                 "00 00 00 00 00 00"                          // f14 to f16 absent
                 "26 00 00 00");                              // soffset
    EXPECT_TRUE(Unpacked<Nac_IpsecAuthenAckMsg>(zeroes, 0xAA).all(0));
}

TEST_F(IpsecAccess, AnswerLeavesOutFieldsThatAreZeroOrEmpty) {
    Nac_IpsecAuthenAckMsg answer = {};
    answer.f13 = word(0x8d);
    answer.f16_count = 1;
    answer.f16 = short_string;
    EXPECT_BYTES(packed(answer),
                 "2a 00 00 00"                                // root reference
                 "26 00 11 00"                                // vtable length, table length 12 + 5
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f0 to f6 absent
                 "00 00 00 00 00 00 00 00 00 00 00 00 04 00"  // f7 to f13: only f13
                 "00 00 00 00 08 00"                          // f14 to f16: only f16
                 "26 00 00 00"                                // soffset
                 "8d 22 33 44"                                // f13
                 "04 00 00 00"                                // f16: vector right after
                 "01 00 00 00"                                // f16: count
                 "c0");                                       // f16
}

// ---- Nac_IpsecDownReqMsg, Nac_IpsecDownAckMsg ----

// Two message types of the same layout.
template <class Record>
class IpsecDown : public MessageTest {
  protected:
    static constexpr Record kDown = {word(0x80), word(0x81), word(0x82), word(0x83), word(0x84)};
};
using DownTypes = testing::Types<Nac_IpsecDownReqMsg, Nac_IpsecDownAckMsg>;
TYPED_TEST_SUITE(IpsecDown, DownTypes);

TYPED_TEST(IpsecDown, AllFieldsPackTo42Bytes) {
    EXPECT_BYTES(packed(this->kDown),
                 "12 00 00 00"                    // root reference
                 "0e 00 18 00"                    // vtable length, table length
                 "04 00 08 00 0c 00 10 00 14 00"  // offsets of f0 to f4
                 "0e 00 00 00"                    // soffset
                 "80 22 33 44"                    // f0
                 "81 22 33 44"                    // f1
                 "82 22 33 44"                    // f2
                 "83 22 33 44"                    // f3
                 "84 22 33 44");                  // f4
}

TYPED_TEST(IpsecDown, ZeroesPackToTheFrameOf22Bytes) {
    EXPECT_BYTES(packed(TypeParam{}),
                 "12 00 00 00"                    // root reference
                 "0e 00 04 00"                    // vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00"  // no field
                 "0e 00 00 00");                  // soffset
}

TYPED_TEST(IpsecDown, LeavesOutFieldsThatAreZero) {
    EXPECT_BYTES(packed(TypeParam{0, word(0x81), 0, 0, word(0x84)}),
                 "12 00 00 00"                    // root reference
                 "0e 00 0c 00"                    // vtable length, table length
                 "00 00 04 00 00 00 00 00 08 00"  // f1 at 4, f4 at 8
                 "0e 00 00 00"                    // soffset
                 "81 22 33 44"                    // f1
                 "84 22 33 44");                  // f4
}

TYPED_TEST(IpsecDown, TravelsAsItsImageOf48Bytes) {
    EXPECT_BYTES(sent(this->kDown),
                 "04 00 00 00"          // root reference
                 "e8 ff ff ff"          // soffset -24: vtable at 28
                 "80 22 33 44"          // f0
                 "81 22 33 44"          // f1
                 "82 22 33 44"          // f2
                 "83 22 33 44"          // f3
                 "84 22 33 44"          // f4
                 "0e 00"                // vtable length
                 "18 00"                // table length
                 "04 00"                // offset of f0
                 "08 00"                // offset of f1
                 "0c 00"                // offset of f2
                 "10 00"                // offset of f3
                 "14 00"                // offset of f4
                 "00 00 00 00 00 00");  // padding
}

}  // namespace
