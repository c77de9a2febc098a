// SPDX-License-Identifier: Apache-2.0
// The access-user table's message: its bytes.
#include <array>

#include "tests/support/byte_literals.h"

namespace {

using namespace tests;
using R = Nac_SetUserTableMsg;

class UserTable : public MessageTest {};

// A user with every scalar set and one or two elements in every vector.
struct User {
    Nac_Ipv6Addr addresses[2] = {{{0xc0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xcf}},
                                 {{0xd0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xdf}}};
    std::uint16_t f15[2] = {half(0x8f), half(0x10)};
    std::uint16_t f16[1] = {half(0x90)};
    std::uint8_t f31[2] = {0x9f, 0x31};
    Nac_RadiusDaclRule rules[2] = {{0x20,
                                    word(0x21),
                                    word(0x22),
                                    word(0x23),
                                    word(0x24),
                                    word(0x25),
                                    {word(0x30),
                                     word(0x31),
                                     word(0x32),
                                     word(0x33),
                                     {0x34, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xe4},
                                     {0x35, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xe5},
                                     {0x36, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xe6},
                                     {0x37, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xe7},
                                     half(0x38),
                                     half(0x39),
                                     half(0x3a),
                                     half(0x3b),
                                     half(0x3c),
                                     half(0x3d),
                                     half(0x3e),
                                     half(0x3f),
                                     {0x50, 1, 2, 3, 4, 0xd0},
                                     {0x51, 1, 2, 3, 4, 0xd1},
                                     half(0x52),
                                     half(0x53),
                                     half(0x54),
                                     half(0x55),
                                     0x56,
                                     0x57,
                                     0x58,
                                     0x59,
                                     0x5a,
                                     half(0x5b)}},
                                   {}};
    std::uint8_t f42[1] = {0xaa};
    std::uint8_t f51[2] = {0xb3, 0x33};
    std::uint32_t f52[2] = {word(0xb4), word(0x34)};
    R record = {};

    User() {
        record.f0 = word(0x80);
        record.f1 = word(0x81);
        record.f2 = word(0x82);
        record.f3 = word(0x83);
        record.f4 = word(0x84);
        constexpr std::array<std::uint8_t, 6> address = {0x85, 1, 2, 3, 4, 0xf5};
        std::copy(address.begin(), address.end(), record.f5);
        record.f6 = word(0x86);
        record.f7 = word(0x87);
        record.f8 = word(0x88);
        record.f9 = word(0x89);
        record.f10 = word(0x8a);
        record.f11 = word(0x8b);
        record.f12_count = 2;
        record.f12 = addresses;
        record.f13 = word(0x8d);
        record.f14 = 0x8e;
        record.f15_count = 2;
        record.f15 = f15;
        record.f16_count = 1;
        record.f16 = f16;
        record.f17 = half(0x91);
        record.f18 = half(0x92);
        record.f19 = {0x01, word(0x02), word(0x03), word(0x04), word(0x05)};
        record.f20 = {0, word(0x12), 0, 0, word(0x15)};
        record.f21 = half(0x95);
        record.f22 = half(0x96);
        record.f23 = half(0x97);
        record.f24 = 0x98;
        record.f25 = half(0x99);
        record.f26 = 0x9a;
        record.f27 = 0x9b;
        record.f28 = word(0x9c);
        record.f29 = 0x9d;
        record.f30 = 0x9e;
        record.f31_count = 2;
        record.f31 = f31;
        record.f32_count = 2;
        record.f32 = rules;
        record.f33 = {0x61, 0x62, word(0x63)};
        record.f34 = 0xa2;
        record.f35 = 0xa3;
        record.f36 = 0xa4;
        record.f37 = 0xa5;
        record.f38 = word(0xa6);
        record.f39 = word(0xa7);
        record.f40 = word(0xa8);
        record.f41 = 0xa9;
        record.f42_count = 1;
        record.f42 = f42;
        record.f43 = word(0xab);
        record.f44 = 0xac;
        record.f45 = 0xad;
        record.f46 = 0xae;
        record.f47 = quad(0xaf);
        record.f48 = 0xb0;
        record.f49 = 0xb1;
        record.f50 = 0xb2;
        record.f51_count = 2;
        record.f51 = f51;
        record.f52_count = 2;
        record.f52 = f52;
        for (std::uint8_t i = 0; i < 16; ++i) record.f53[i] = half(static_cast<std::uint8_t>(0x40 + i));
        record.f54 = 0xb6;
    }
    User(const User&) = delete;
    User& operator=(const User&) = delete;
};

// The table starts at 118. Scalars come first, then the references, then the vectors, then the tables.
constexpr const char* kUser =
    "76 00 00 00"                                      // root reference
    "72 00"                                            // vtable length
    "d0 00"                                            // table length: 162 inline, and 46 for f5 and f53
    "04 00 08 00 0c 00 10 00 14 00"                    // offsets of f0 to f4
    "6e 00"                                            // offset of f5
    "18 00 1c 00 20 00 24 00 28 00 2c 00"              // offsets of f6 to f11
    "72 00"                                            // offset of f12
    "30 00 34 00"                                      // offsets of f13, f14
    "76 00 7a 00"                                      // offsets of f15, f16
    "35 00 37 00"                                      // offsets of f17, f18
    "7e 00 82 00"                                      // offsets of f19, f20
    "39 00 3b 00 3d 00"                                // offsets of f21 to f23
    "3f 00"                                            // offset of f24
    "40 00"                                            // offset of f25
    "42 00 43 00"                                      // offsets of f26, f27
    "44 00"                                            // offset of f28
    "48 00 49 00"                                      // offsets of f29, f30
    "86 00"                                            // offset of f31
    "8a 00"                                            // offset of f32
    "8e 00"                                            // offset of f33
    "4a 00 4b 00 4c 00 4d 00"                          // offsets of f34 to f37
    "4e 00 52 00 56 00"                                // offsets of f38 to f40
    "5a 00"                                            // offset of f41
    "92 00"                                            // offset of f42
    "5b 00"                                            // offset of f43
    "5f 00 60 00 61 00"                                // offsets of f44 to f46
    "62 00"                                            // offset of f47
    "6a 00 6b 00 6c 00"                                // offsets of f48 to f50
    "96 00"                                            // offset of f51
    "9a 00"                                            // offset of f52
    "9e 00"                                            // offset of f53
    "6d 00"                                            // offset of f54
    "72 00 00 00"                                      // soffset
    "80 22 33 44"                                      // f0
    "81 22 33 44"                                      // f1
    "82 22 33 44"                                      // f2
    "83 22 33 44"                                      // f3
    "84 22 33 44"                                      // f4
    "86 22 33 44"                                      // f6
    "87 22 33 44"                                      // f7
    "88 22 33 44"                                      // f8
    "89 22 33 44"                                      // f9
    "8a 22 33 44"                                      // f10
    "8b 22 33 44"                                      // f11
    "8d 22 33 44"                                      // f13
    "8e"                                               // f14
    "91 22"                                            // f17
    "92 22"                                            // f18
    "95 22"                                            // f21
    "96 22"                                            // f22
    "97 22"                                            // f23
    "98"                                               // f24
    "99 22"                                            // f25
    "9a"                                               // f26
    "9b"                                               // f27
    "9c 22 33 44"                                      // f28
    "9d"                                               // f29
    "9e"                                               // f30
    "a2"                                               // f34
    "a3"                                               // f35
    "a4"                                               // f36
    "a5"                                               // f37
    "a6 22 33 44"                                      // f38
    "a7 22 33 44"                                      // f39
    "a8 22 33 44"                                      // f40
    "a9"                                               // f41
    "ab 22 33 44"                                      // f43
    "ac"                                               // f44
    "ad"                                               // f45
    "ae"                                               // f46
    "af 22 33 44 55 66 77 88"                          // f47
    "b0"                                               // f48
    "b1"                                               // f49
    "b2"                                               // f50
    "b6"                                               // f54
    "34 00 00 00"                                      // f5: vector 52 on
    "3a 00 00 00"                                      // f12: vector 58 on
    "42 00 00 00"                                      // f15: vector 66 on
    "46 00 00 00"                                      // f16: vector 70 on
    "e7 00 00 00"                                      // f19: table 231 on
    "06 01 00 00"                                      // f20: table 262 on
    "40 00 00 00"                                      // f31: vector 64 on
    "42 00 00 00"                                      // f32: vector 66 on
    "00 03 00 00"                                      // f33: table 768 on
    "46 00 00 00"                                      // f42: vector 70 on
    "47 00 00 00"                                      // f51: vector 71 on
    "49 00 00 00"                                      // f52: vector 73 on
    "51 00 00 00"                                      // f53: vector 81 on
    "06 00 00 00"                                      // f5: count
    "85 01 02 03 04 f5"                                // f5
    "02 00 00 00"                                      // f12: count
    "69 00 00 00"                                      // f12[0]: table 105 on
    "87 00 00 00"                                      // f12[1]: table 135 on
    "02 00 00 00"                                      // f15: count
    "8f 22 10 22"                                      // f15
    "01 00 00 00"                                      // f16: count
    "90 22"                                            // f16
    "02 00 00 00"                                      // f31: count
    "9f 31"                                            // f31
    "02 00 00 00"                                      // f32: count
    "d6 00 00 00"                                      // f32[0]: table 214 on
    "ec 01 00 00"                                      // f32[1]: table 492 on
    "01 00 00 00"                                      // f42: count
    "aa"                                               // f42
    "02 00 00 00"                                      // f51: count
    "b3 33"                                            // f51
    "02 00 00 00"                                      // f52: count
    "b4 22 33 44"                                      // f52[0]
    "34 22 33 44"                                      // f52[1]
    "10 00 00 00"                                      // f53: count
    "40 22 41 22 42 22 43 22 44 22 45 22 46 22 47 22"  // f53[0] to f53[7]
    "48 22 49 22 4a 22 4b 22 4c 22 4d 22 4e 22 4f 22"  // f53[8] to f53[15]
    // f12[0]
    "06 00 1c 00"                                      // vtable length, table length
    "04 00"                                            // offset of f0
    "06 00 00 00"                                      // soffset
    "04 00 00 00"                                      // f0: vector right after
    "10 00 00 00"                                      // f0: count
    "c0 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e cf"  // f0
    // f12[1]
    "06 00 1c 00"                                      // vtable length, table length
    "04 00"                                            // offset of f0
    "06 00 00 00"                                      // soffset
    "04 00 00 00"                                      // f0: vector right after
    "10 00 00 00"                                      // f0: count
    "d0 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e df"  // f0
    // f19
    "0e 00 15 00"                    // vtable length, table length
    "04 00 05 00 09 00 0d 00 11 00"  // offsets of f0 to f4
    "0e 00 00 00"                    // soffset
    "01"                             // f0
    "02 22 33 44"                    // f1
    "03 22 33 44"                    // f2
    "04 22 33 44"                    // f3
    "05 22 33 44"                    // f4
    // f20
    "0e 00 0c 00"                    // vtable length, table length
    "00 00 04 00 00 00 00 00 08 00"  // f1 at 4, f4 at 8
    "0e 00 00 00"                    // soffset
    "12 22 33 44"                    // f1
    "15 22 33 44"                    // f4
    // f32[0]
    "12 00 1d 00"                                // vtable length, table length
    "04 00 05 00 09 00 0d 00 11 00 15 00 19 00"  // offsets of f0 to f6
    "12 00 00 00"                                // soffset
    "20"                                         // f0
    "21 22 33 44"                                // f1
    "22 22 33 44"                                // f2
    "23 22 33 44"                                // f3
    "24 22 33 44"                                // f4
    "25 22 33 44"                                // f5
    "40 00 00 00"                                // f6: table 64 on
    // f32[0].f6
    "3c 00 af 00"                                      // vtable length, table length
    "04 00 08 00 0c 00 10 00"                          // offsets of f0 to f3
    "33 00 37 00 3b 00 3f 00"                          // offsets of f4 to f7
    "14 00 16 00 18 00 1a 00 1c 00 1e 00 20 00 22 00"  // offsets of f8 to f15
    "43 00 47 00"                                      // offsets of f16, f17
    "24 00 26 00 28 00 2a 00"                          // offsets of f18 to f21
    "2c 00 2d 00 2e 00 2f 00 30 00"                    // offsets of f22 to f26
    "31 00"                                            // offset of f27
    "3c 00 00 00"                                      // soffset
    "30 22 33 44"                                      // f0
    "31 22 33 44"                                      // f1
    "32 22 33 44"                                      // f2
    "33 22 33 44"                                      // f3
    "38 22"                                            // f8
    "39 22"                                            // f9
    "3a 22"                                            // f10
    "3b 22"                                            // f11
    "3c 22"                                            // f12
    "3d 22"                                            // f13
    "3e 22"                                            // f14
    "3f 22"                                            // f15
    "52 22"                                            // f18
    "53 22"                                            // f19
    "54 22"                                            // f20
    "55 22"                                            // f21
    "56"                                               // f22
    "57"                                               // f23
    "58"                                               // f24
    "59"                                               // f25
    "5a"                                               // f26
    "5b 22"                                            // f27
    "18 00 00 00"                                      // f4: vector 24 on
    "28 00 00 00"                                      // f5: vector 40 on
    "38 00 00 00"                                      // f6: vector 56 on
    "48 00 00 00"                                      // f7: vector 72 on
    "58 00 00 00"                                      // f16: vector 88 on
    "5e 00 00 00"                                      // f17: vector 94 on
    "10 00 00 00"                                      // f4: count
    "34 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e e4"  // f4
    "10 00 00 00"                                      // f5: count
    "35 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e e5"  // f5
    "10 00 00 00"                                      // f6: count
    "36 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e e6"  // f6
    "10 00 00 00"                                      // f7: count
    "37 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e e7"  // f7
    "06 00 00 00"                                      // f16: count
    "50 01 02 03 04 d0"                                // f16
    "06 00 00 00"                                      // f17: count
    "51 01 02 03 04 d1"                                // f17
    // f32[1]
    "12 00 08 00"                                // vtable length, table length
    "00 00 00 00 00 00 00 00 00 00 00 00 04 00"  // only f6
    "12 00 00 00"                                // soffset
    "40 00 00 00"                                // f6: table 64 on
    // f32[1].f6
    "3c 00 80 00"                                      // vtable length, table length
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
    "00 00 00 00 00 00"                                // f17
    // f33
    "0a 00 0a 00"        // vtable length, table length
    "04 00 05 00 06 00"  // offsets of f0 to f2
    "0a 00 00 00"        // soffset
    "61"                 // f0
    "62"                 // f1
    "63 22 33 44";       // f2

constexpr const char* kZeroes =
    "76 00 00 00"                                      // root reference
    "72 00"                                            // vtable length
    "46 00"                                            // table length: 24 inline, and 46 for f5 and f53
    "00 00 00 00 00 00 00 00 00 00"                    // f0 to f4 absent
    "04 00"                                            // offset of f5
    "00 00 00 00 00 00 00 00 00 00"                    // f6 to f10 absent
    "00 00 00 00 00 00 00 00 00 00"                    // f11 to f15 absent
    "00 00 00 00 00 00"                                // f16 to f18 absent
    "08 00 0c 00"                                      // offsets of f19, f20
    "00 00 00 00 00 00 00 00 00 00"                    // f21 to f25 absent
    "00 00 00 00 00 00 00 00 00 00"                    // f26 to f30 absent
    "00 00 00 00"                                      // f31, f32 absent
    "10 00"                                            // offset of f33
    "00 00 00 00 00 00 00 00 00 00"                    // f34 to f38 absent
    "00 00 00 00 00 00 00 00 00 00"                    // f39 to f43 absent
    "00 00 00 00 00 00 00 00 00 00"                    // f44 to f48 absent
    "00 00 00 00 00 00 00 00"                          // f49 to f52 absent
    "14 00"                                            // offset of f53
    "00 00"                                            // f54 absent
    "72 00 00 00"                                      // soffset
    "14 00 00 00"                                      // f5: vector 20 on
    "4c 00 00 00"                                      // f19: table 76 on
    "5a 00 00 00"                                      // f20: table 90 on
    "64 00 00 00"                                      // f33: table 100 on
    "0e 00 00 00"                                      // f53: vector 14 on
    "06 00 00 00"                                      // f5: count
    "00 00 00 00 00 00"                                // f5
    "10 00 00 00"                                      // f53: count
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f53[0] to f53[7]
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f53[8] to f53[15]
    "0e 00 04 00"                                      // f19: vtable length, table length
    "00 00 00 00 00 00 00 00 00 00"                    // f19: no field
    "0e 00 00 00"                                      // f19: soffset
    "0e 00 04 00"                                      // f20: vtable length, table length
    "00 00 00 00 00 00 00 00 00 00"                    // f20: no field
    "0e 00 00 00"                                      // f20: soffset
    "0a 00 04 00"                                      // f33: vtable length, table length
    "00 00 00 00 00 00"                                // f33: no field
    "0a 00 00 00";                                     // f33: soffset

TEST_F(UserTable, AllFieldsPackTo1038Bytes) {
    EXPECT_BYTES(packed(User().record), kUser);
    EXPECT_EQ(packed(User().record).size(), 1038U);
}

TEST_F(UserTable, ZeroesPackTo238Bytes) {
    EXPECT_BYTES(packed(R{}), kZeroes);
    EXPECT_EQ(packed(R{}).size(), 238U);
    EXPECT_TRUE(Unpacked<R>(hex(kZeroes), 0xAA).all(0));
}

TEST_F(UserTable, ScalarsPrecedeReferencesWhateverTheirFieldIds) {
    const User user;
    R record = {};
    record.f4 = word(0x84);
    record.f15_count = 2;
    record.f15 = user.record.f15;
    record.f47 = quad(0xaf);
    record.f54 = 0xb6;
    EXPECT_BYTES(packed(record),
                 "76 00 00 00"                    // root reference
                 "72 00"                          // vtable length
                 "57 00"                          // table length: 41 inline and 46, f15's 8 left out
                 "00 00 00 00 00 00 00 00 04 00"  // f0 to f4: only f4
                 "11 00"                          // offset of f5
                 "00 00 00 00 00 00 00 00 00 00"  // f6 to f10 absent
                 "00 00 00 00 00 00 00 00"        // f11 to f14 absent
                 "15 00"                          // offset of f15
                 "00 00 00 00 00 00"              // f16 to f18 absent
                 "19 00 1d 00"                    // offsets of f19, f20
                 "00 00 00 00 00 00 00 00 00 00"  // f21 to f25 absent
                 "00 00 00 00 00 00 00 00 00 00"  // f26 to f30 absent
                 "00 00 00 00"                    // f31, f32 absent
                 "21 00"                          // offset of f33
                 "00 00 00 00 00 00 00 00 00 00"  // f34 to f38 absent
                 "00 00 00 00 00 00 00 00 00 00"  // f39 to f43 absent
                 "00 00 00 00 00 00"              // f44 to f46 absent
                 "08 00"                          // offset of f47
                 "00 00 00 00 00 00"              // f48 to f50 absent
                 "00 00 00 00"                    // f51, f52 absent
                 "25 00"                          // offset of f53
                 "10 00"                          // offset of f54
                 "72 00 00 00"                    // soffset
                 "84 22 33 44"                    // f4
                 "af 22 33 44 55 66 77 88"        // f47
                 "b6"                             // f54
                 "18 00 00 00"                    // f5: vector 24 on
                 "1e 00 00 00"                    // f15: vector 30 on
                 "54 00 00 00"                    // f19: table 84 on
                 "62 00 00 00"                    // f20: table 98 on
                 "6c 00 00 00"                    // f33: table 108 on
                 "16 00 00 00"                    // f53: vector 22 on
                 "06 00 00 00"                    // f5: count
                 "00 00 00 00 00 00"              // f5
                 "02 00 00 00"                    // f15: count
                 "8f 22 10 22"                    // f15
                 "10 00 00 00"                    // f53: count
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f53[0] to f53[7]
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f53[8] to f53[15]
                 "0e 00 04 00"                                      // f19: vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00"                    // f19: no field
                 "0e 00 00 00"                                      // f19: soffset
                 "0e 00 04 00"                                      // f20: vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00"                    // f20: no field
                 "0e 00 00 00"                                      // f20: soffset
                 "0a 00 04 00"                                      // f33: vtable length, table length
                 "00 00 00 00 00 00"                                // f33: no field
                 "0a 00 00 00");                                    // f33: soffset
}

}  // namespace
