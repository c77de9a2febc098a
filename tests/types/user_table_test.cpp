// SPDX-License-Identifier: Apache-2.0
// The access-user table's message: its bytes, its eight arrays' memory, and what its unpack does with faults.
#include <array>

#include "tests/support/message_checks.h"

namespace {

using namespace tests;
using enum AfterHeaderFault;
using R = Nac_SetUserTableMsg;

class UserTable : public MessageTest {};

constexpr const char* kNestedName = "Nac_SetUserTableMsg_unpack_non_root";
constexpr const char* kFreeName = "Nac_SetUserTableMsg_free_unpacked";

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
    "04 00 08 00 0c 00 10 00 14 00"                    // places of f0 to f4
    "6e 00"                                            // place of f5
    "18 00 1c 00 20 00 24 00 28 00 2c 00"              // places of f6 to f11
    "72 00"                                            // place of f12
    "30 00 34 00"                                      // places of f13, f14
    "76 00 7a 00"                                      // places of f15, f16
    "35 00 37 00"                                      // places of f17, f18
    "7e 00 82 00"                                      // places of f19, f20
    "39 00 3b 00 3d 00"                                // places of f21 to f23
    "3f 00"                                            // place of f24
    "40 00"                                            // place of f25
    "42 00 43 00"                                      // places of f26, f27
    "44 00"                                            // place of f28
    "48 00 49 00"                                      // places of f29, f30
    "86 00"                                            // place of f31
    "8a 00"                                            // place of f32
    "8e 00"                                            // place of f33
    "4a 00 4b 00 4c 00 4d 00"                          // places of f34 to f37
    "4e 00 52 00 56 00"                                // places of f38 to f40
    "5a 00"                                            // place of f41
    "92 00"                                            // place of f42
    "5b 00"                                            // place of f43
    "5f 00 60 00 61 00"                                // places of f44 to f46
    "62 00"                                            // place of f47
    "6a 00 6b 00 6c 00"                                // places of f48 to f50
    "96 00"                                            // place of f51
    "9a 00"                                            // place of f52
    "9e 00"                                            // place of f53
    "6d 00"                                            // place of f54
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
    "04 00"                                            // place of f0
    "06 00 00 00"                                      // soffset
    "04 00 00 00"                                      // f0: vector right behind
    "10 00 00 00"                                      // f0: count
    "c0 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e cf"  // f0
    // f12[1]
    "06 00 1c 00"                                      // vtable length, table length
    "04 00"                                            // place of f0
    "06 00 00 00"                                      // soffset
    "04 00 00 00"                                      // f0: vector right behind
    "10 00 00 00"                                      // f0: count
    "d0 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e df"  // f0
    // f19
    "0e 00 15 00"                    // vtable length, table length
    "04 00 05 00 09 00 0d 00 11 00"  // places of f0 to f4
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
    "04 00 05 00 09 00 0d 00 11 00 15 00 19 00"  // places of f0 to f6
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
    "04 00 08 00 0c 00 10 00"                          // places of f0 to f3
    "33 00 37 00 3b 00 3f 00"                          // places of f4 to f7
    "14 00 16 00 18 00 1a 00 1c 00 1e 00 20 00 22 00"  // places of f8 to f15
    "43 00 47 00"                                      // places of f16, f17
    "24 00 26 00 28 00 2a 00"                          // places of f18 to f21
    "2c 00 2d 00 2e 00 2f 00 30 00"                    // places of f22 to f26
    "31 00"                                            // place of f27
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
    "00 00 00 00 00 00"                                // f17
    // f33
    "0a 00 0a 00"        // vtable length, table length
    "04 00 05 00 06 00"  // places of f0 to f2
    "0a 00 00 00"        // soffset
    "61"                 // f0
    "62"                 // f1
    "63 22 33 44";       // f2

constexpr const char* kZeroes =
    "76 00 00 00"                                      // root reference
    "72 00"                                            // vtable length
    "46 00"                                            // table length: 24 inline, and 46 for f5 and f53
    "00 00 00 00 00 00 00 00 00 00"                    // f0 to f4 absent
    "04 00"                                            // place of f5
    "00 00 00 00 00 00 00 00 00 00"                    // f6 to f10 absent
    "00 00 00 00 00 00 00 00 00 00"                    // f11 to f15 absent
    "00 00 00 00 00 00"                                // f16 to f18 absent
    "08 00 0c 00"                                      // places of f19, f20
    "00 00 00 00 00 00 00 00 00 00"                    // f21 to f25 absent
    "00 00 00 00 00 00 00 00 00 00"                    // f26 to f30 absent
    "00 00 00 00"                                      // f31, f32 absent
    "10 00"                                            // place of f33
    "00 00 00 00 00 00 00 00 00 00"                    // f34 to f38 absent
    "00 00 00 00 00 00 00 00 00 00"                    // f39 to f43 absent
    "00 00 00 00 00 00 00 00 00 00"                    // f44 to f48 absent
    "00 00 00 00 00 00 00 00"                          // f49 to f52 absent
    "14 00"                                            // place of f53
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

// The vectors of the packed User, in the order of their allocation.
struct VectorOf {
    std::size_t field_id;
    std::size_t count_at;
    std::uint32_t count;
    std::uint32_t wire_width;  // of an element
    std::uint32_t array_bytes;
    std::uint32_t count_limit;  // 0: only the buffer's end
};
constexpr std::array<VectorOf, 8> kVectors = {{
    {12, 290, 2, 4, 32, 0x40000000},
    {15, 302, 2, 2, 4, 0x80000000},
    {16, 310, 1, 2, 2, 0x80000000},
    {31, 316, 2, 1, 2, 0},
    {32, 322, 2, 4, 296, 0x40000000},
    {42, 334, 1, 1, 1, 0},
    {51, 339, 2, 1, 2, 0},
    {52, 345, 2, 4, 8, 0x40000000},
}};
constexpr std::size_t kF5Count = 280;
constexpr std::size_t kF53Count = 357;

std::array<const void*, 8> pointers(const R& record) {
    return {record.f12, record.f15, record.f16, record.f31, record.f32, record.f42, record.f51, record.f52};
}
std::array<std::uint32_t, 8> counts(const R& record) {
    return {record.f12_count, record.f15_count, record.f16_count, record.f31_count,
            record.f32_count, record.f42_count, record.f51_count, record.f52_count};
}
constexpr std::array<const void*, 8> kAllNull = {};

// The counts of the first `vectors` as sent, the others 0.
std::array<std::uint32_t, 8> counts_of_first(std::size_t vectors) {
    std::array<std::uint32_t, 8> expected = {};
    for (std::size_t i = 0; i < vectors; ++i) expected[i] = kVectors[i].count;
    return expected;
}

// What a release hands to the host: the arrays of tables when there are any, the other six in any case.
std::size_t releases_after(std::size_t arrays) { return 6 + (arrays > 0 ? 1U : 0U) + (arrays > 4 ? 1U : 0U); }

TEST_F(UserTable, RecordKeepsFieldOrderAtNaturalAlignment) {
    EXPECT_EQ(sizeof(R), 328U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4),
                       offsetof(R, f5), offsetof(R, f6), offsetof(R, f7), offsetof(R, f8), offsetof(R, f9)}),
              (Offsets{0, 4, 8, 12, 16, 20, 28, 32, 36, 40}));
    EXPECT_EQ((Offsets{offsetof(R, f10), offsetof(R, f11), offsetof(R, f12_count), offsetof(R, f12),
                       offsetof(R, f13), offsetof(R, f14), offsetof(R, f15_count), offsetof(R, f15),
                       offsetof(R, f16_count), offsetof(R, f16)}),
              (Offsets{44, 48, 52, 56, 64, 68, 72, 80, 88, 96}));
    EXPECT_EQ(
        (Offsets{offsetof(R, f17), offsetof(R, f18), offsetof(R, f19), offsetof(R, f20), offsetof(R, f21),
                 offsetof(R, f22), offsetof(R, f23), offsetof(R, f24), offsetof(R, f25), offsetof(R, f26),
                 offsetof(R, f27), offsetof(R, f28), offsetof(R, f29), offsetof(R, f30)}),
        (Offsets{104, 106, 108, 128, 148, 150, 152, 154, 156, 158, 159, 160, 164, 165}));
    EXPECT_EQ((Offsets{offsetof(R, f31_count), offsetof(R, f31), offsetof(R, f32_count), offsetof(R, f32),
                       offsetof(R, f33), offsetof(R, f34), offsetof(R, f35), offsetof(R, f36),
                       offsetof(R, f37), offsetof(R, f38), offsetof(R, f39), offsetof(R, f40)}),
              (Offsets{168, 176, 184, 192, 200, 208, 209, 210, 211, 212, 216, 220}));
    EXPECT_EQ((Offsets{offsetof(R, f41), offsetof(R, f42_count), offsetof(R, f42), offsetof(R, f43),
                       offsetof(R, f44), offsetof(R, f45), offsetof(R, f46), offsetof(R, f47),
                       offsetof(R, f48), offsetof(R, f49), offsetof(R, f50)}),
              (Offsets{224, 228, 232, 240, 244, 245, 246, 248, 256, 257, 258}));
    EXPECT_EQ((Offsets{offsetof(R, f51_count), offsetof(R, f51), offsetof(R, f52_count), offsetof(R, f52),
                       offsetof(R, f53), offsetof(R, f54)}),
              (Offsets{260, 264, 272, 280, 288, 320}));
}

TEST_F(UserTable, RecordsThatTravelOnlyInsideHaveNoGapsButOne) {
    EXPECT_EQ(sizeof(Nac_Ipv6Addr), 16U);
    EXPECT_EQ(offsetof(Nac_Ipv6Addr, f0), 0U);
    using Car = Nac_SrvCar;
    EXPECT_EQ(sizeof(Car), 20U);
    EXPECT_EQ((Offsets{offsetof(Car, f0), offsetof(Car, f1), offsetof(Car, f2), offsetof(Car, f3),
                       offsetof(Car, f4)}),
              (Offsets{0, 4, 8, 12, 16}));
}

TEST_F(UserTable, AllFieldsPackTo1038Bytes) {
    EXPECT_BYTES(packed(User().record), kUser);
    EXPECT_EQ(packed(User().record).size(), 1038U);
}

TEST_F(UserTable, ZeroesPackTo238Bytes) {
    EXPECT_BYTES(packed(R{}), kZeroes);
    EXPECT_EQ(packed(R{}).size(), 238U);
    EXPECT_TRUE(Unpacked<R>(hex(kZeroes), 0xAA).all(0));
    EXPECT_EQ(cache_allocations(), std::vector<Tag>{});
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
                 "11 00"                          // place of f5
                 "00 00 00 00 00 00 00 00 00 00"  // f6 to f10 absent
                 "00 00 00 00 00 00 00 00"        // f11 to f14 absent
                 "15 00"                          // place of f15
                 "00 00 00 00 00 00"              // f16 to f18 absent
                 "19 00 1d 00"                    // places of f19, f20
                 "00 00 00 00 00 00 00 00 00 00"  // f21 to f25 absent
                 "00 00 00 00 00 00 00 00 00 00"  // f26 to f30 absent
                 "00 00 00 00"                    // f31, f32 absent
                 "21 00"                          // place of f33
                 "00 00 00 00 00 00 00 00 00 00"  // f34 to f38 absent
                 "00 00 00 00 00 00 00 00 00 00"  // f39 to f43 absent
                 "00 00 00 00 00 00"              // f44 to f46 absent
                 "08 00"                          // place of f47
                 "00 00 00 00 00 00"              // f48 to f50 absent
                 "00 00 00 00"                    // f51, f52 absent
                 "25 00"                          // place of f53
                 "10 00"                          // place of f54
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

// ---- sizes ----

TEST_F(UserTable, EachScalarCostsItsWidth) {
    EXPECT_EQ(packed_size(R{}), 176U + 4 + 18 + 4 + 18 + 4 + 14);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f3, &R::f4, &R::f6, &R::f7, &R::f8, &R::f9, &R::f10,
                      &R::f11, &R::f13, &R::f28, &R::f38, &R::f39, &R::f40, &R::f43);
    expect_each_costs(2, R{}, &R::f17, &R::f18, &R::f21, &R::f22, &R::f23, &R::f25);
    expect_each_costs(1, R{}, &R::f14, &R::f24, &R::f26, &R::f27, &R::f29, &R::f30, &R::f34, &R::f35,
                      &R::f36);
    expect_each_costs(1, R{}, &R::f37, &R::f41, &R::f44, &R::f45, &R::f46, &R::f48, &R::f49, &R::f50,
                      &R::f54);
    expect_each_costs(8, R{}, &R::f47);
}

TEST_F(UserTable, NestedRecordsCostTheirScalars) {
    R record = {};
    record.f19 = {1, 0, 0, 0, 0};
    EXPECT_EQ(packed_size(record), 238U + 1);
    record.f19 = {1, 1, 0, 1, 1};
    EXPECT_EQ(packed_size(record), 238U + 1 + 12);
    record.f20 = {0, 1, 1, 1, 1};
    EXPECT_EQ(packed_size(record), 238U + 13 + 16);
    record.f33 = {1, 1, 1};
    EXPECT_EQ(packed_size(record), 238U + 13 + 16 + 6);
}

TEST_F(UserTable, FixedArraysAlwaysCostTheSame) {
    R record = {};
    record.f5[5] = 1;
    record.f53[15] = 1;
    EXPECT_EQ(packed_size(record), 238U);
}

TEST_F(UserTable, VectorsCostTheirReferenceCountAndElements) {
    const User user;
    R record = {};
    record.f15_count = 2;
    record.f15 = user.record.f15;
    EXPECT_EQ(packed_size(record), 238U + 8 + 4);
    record.f16_count = 1;
    record.f16 = user.record.f16;
    EXPECT_EQ(packed_size(record), 250U + 8 + 2);
    record.f31_count = 2;
    record.f31 = user.record.f31;
    EXPECT_EQ(packed_size(record), 260U + 8 + 2);
    record.f42_count = 1;
    record.f42 = user.record.f42;
    EXPECT_EQ(packed_size(record), 270U + 8 + 1);
    record.f51_count = 2;
    record.f51 = user.record.f51;
    EXPECT_EQ(packed_size(record), 279U + 8 + 2);
    record.f52_count = 2;
    record.f52 = user.record.f52;
    EXPECT_EQ(packed_size(record), 289U + 8 + 8);
    record.f12 = user.record.f12;
    record.f12_count = 1;
    EXPECT_EQ(packed_size(record), 305U + 8 + 4 + 34);
    record.f12_count = 2;
    EXPECT_EQ(packed_size(record), 305U + 8 + 8 + 68);
    record.f32 = user.record.f32 + 1;  // the empty rule
    record.f32_count = 1;
    EXPECT_EQ(packed_size(record), 389U + 8 + 4 + 26 + 188);
    record.f32 = user.record.f32;
    record.f32_count = 2;
    EXPECT_EQ(packed_size(record), 389U + 8 + 8 + (26 + 1 + 20 + 188 + 47) + (26 + 188));
}

TEST_F(UserTable, ArraysOfTablesAreSizedByTheirCount) {
    const User user;
    R record = {};
    record.f12 = user.record.f12;
    record.f32 = user.record.f32;
    EXPECT_BYTES(packed(record), kZeroes);
}

// The size goes by the pointer, the writer by the count: the last 8 bytes stay as they were in the
// caller's buffer, and are zero on the bus.
TEST_F(UserTable, EmptyVectorWithAPointerCostsEightBytesThatAreNotWritten) {
    const User user;
    std::array<R, 6> records = {};
    records[0].f15 = user.record.f15;
    records[1].f16 = user.record.f16;
    records[2].f31 = user.record.f31;
    records[3].f42 = user.record.f42;
    records[4].f51 = user.record.f51;
    records[5].f52 = user.record.f52;
    for (const R& record : records) {
        EXPECT_BYTES(packed(record), join({kZeroes, "ee ee ee ee ee ee ee ee"}));
        EXPECT_BYTES(sent(record), join({kZeroes, "00 00 00 00 00 00 00 00"}));
    }
    R all = {};
    all.f15 = user.record.f15;
    all.f16 = user.record.f16;
    all.f31 = user.record.f31;
    all.f42 = user.record.f42;
    all.f51 = user.record.f51;
    all.f52 = user.record.f52;
    EXPECT_EQ(packed_size(all), 238U + 6 * 8);
}

TEST_F(UserTable, CountWithoutAnArrayIsAbsent) {
    std::array<R, 8> records = {};
    records[0].f12_count = 2;
    records[1].f15_count = 2;
    records[2].f16_count = 2;
    records[3].f31_count = 2;
    records[4].f32_count = 2;
    records[5].f42_count = 2;
    records[6].f51_count = 2;
    records[7].f52_count = 2;
    for (const R& record : records) EXPECT_BYTES(packed(record), kZeroes);
}

TEST_F(UserTable, SizeAbove32BitsIsRefused) {
    const User user;
    R largest = {};
    largest.f31 = user.record.f31;  // never read: there is no buffer to copy to
    largest.f31_count = 0xFFFFFFFF - 238 - 8;
    EXPECT_EQ(packed_size(largest), 0xFFFFFFFFU);

    std::array<R, 7> records = {};
    records[0].f31 = user.record.f31;
    records[0].f31_count = 0xFFFFFFFF - 238 - 8 + 1;
    records[1].f42 = user.record.f42;
    records[1].f42_count = 0xFFFFFFFF;
    records[2].f51 = user.record.f51;
    records[2].f51_count = 0xFFFFFFFF;
    records[3].f15 = user.record.f15;
    records[3].f15_count = 0x80000000;
    records[4].f16 = user.record.f16;
    records[4].f16_count = 0xFFFFFFFF;
    records[5].f52 = user.record.f52;
    records[5].f52_count = 0x40000000;
    records[6].f12 = user.record.f12;
    records[6].f12_count = 0x10000000;
    services.reset();
    for (const R& record : records) {
        std::uint32_t length = 0xFFFFFFFF;
        EXPECT_EQ(Nac_SetUserTableMsg__pack(&record, nullptr, &length), kRefused);
        EXPECT_EQ(length, 0xFFFFFFFFU);
        EXPECT_EQ(Nac_SetUserTableMsg__sendsingle(1, &record, 0, 0), kRefused);
    }
    EXPECT_TRUE(bus.sends().empty());
    EXPECT_TRUE(services.allocations().empty());
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(UserTable, PackRefusals) { expect_pack_refusals("Nac_SetUserTableMsg", User().record, 1038); }

// ---- sending ----

TEST_F(UserTable, TravelsCompactly) {
    expect_sends_compact("Nac_SetUserTableMsg", 1201171741, User().record, kUser);
}

TEST_F(UserTable, ThousandRulesGoSinglyButNotInABatch) {
    std::vector<Nac_RadiusDaclRule> rules(1000);
    R record = {};
    record.f32_count = 1000;
    record.f32 = rules.data();
    const std::uint32_t size = 238 + 8 + 1000 * (4 + 26 + 188);
    services.reset();
    EXPECT_EQ(Nac_SetUserTableMsg__sendbatch(1, &record, 1, 0), kRefused);
    EXPECT_TRUE(bus.sends().empty());
    EXPECT_EQ(services.releases().size(), 1U);
    EXPECT_EQ(Nac_SetUserTableMsg__sendsingle(1, &record, 0, 0), 0U);
    ASSERT_EQ(bus.sends().size(), 1U);
    EXPECT_EQ(bus.sends().front().messages.at(0).size(), size);
    EXPECT_EQ(services.allocations().at(1).size, size);
    expect_unpacks_to(bus.sends().front().messages.at(0), record);
}

TEST_F(UserTable, BatchMayEndWhereItsAreaEndsButNotGoOn) {
    std::vector<std::uint8_t> text(65536 - 238 - 8, 0x77);
    R full = {};
    full.f31_count = static_cast<std::uint32_t>(text.size());
    full.f31 = text.data();
    ASSERT_EQ(packed_size(full), 65536U);
    const R records[] = {full, {}, full};
    services.reset();
    EXPECT_EQ(Nac_SetUserTableMsg__sendbatch(1, records, 1, 0), 0U);
    EXPECT_EQ(Nac_SetUserTableMsg__sendbatch(1, records, 2, 0), kRefused);      // the area is full
    EXPECT_EQ(Nac_SetUserTableMsg__sendbatch(1, records + 1, 2, 0), kRefused);  // more than is left
    EXPECT_EQ(bus.sends().size(), 1U);
    EXPECT_EQ(services.allocations().size(), 3U);
    EXPECT_EQ(services.releases().size(), 3U);
}

TEST_F(UserTable, FailedAllocationRefusesASend) {
    const R records[2] = {};
    services.fail_allocation(0);
    EXPECT_EQ(Nac_SetUserTableMsg__sendsingle(1, records, 0, 0), kRefused);
    services.fail_allocation(0);
    EXPECT_EQ(Nac_SetUserTableMsg__sendbatch(1, records, 2, 0), kRefused);
    EXPECT_TRUE(bus.sends().empty());
    EXPECT_TRUE(services.releases().empty());
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(UserTable, SingleSendReturnsTheBusAnswerAndReleasesItsBlock) {
    bus.answer_sends(42);
    const R record = {};
    EXPECT_EQ(Nac_SetUserTableMsg__sendsingle(1, &record, 0, 0), 42U);
    EXPECT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.releases().size(), 1U);
}

// ---- unpacking ----

TEST_F(UserTable, UnpacksToAllItsFieldsAndArrays) {
    const User user;
    expect_unpacks_to(hex(kUser), user.record);
    const Unpacked<R> unpacked(hex(kUser), 0xAA);
    EXPECT_EQ(unpacked->f47, quad(0xaf));
    EXPECT_EQ(unpacked->f54, 0xb6U);
    EXPECT_EQ(unpacked->f53[15], half(0x4f));
    EXPECT_EQ(std::memcmp(unpacked->f5, user.record.f5, 6), 0);
    EXPECT_EQ(unpacked->f20.f4, word(0x15));
    EXPECT_EQ(unpacked->f33.f2, word(0x63));
    ASSERT_EQ(counts(*unpacked), counts(user.record));
    EXPECT_EQ(std::memcmp(unpacked->f12, user.addresses, sizeof user.addresses), 0);
    EXPECT_EQ(std::memcmp(unpacked->f15, user.f15, sizeof user.f15), 0);
    EXPECT_EQ(std::memcmp(unpacked->f16, user.f16, sizeof user.f16), 0);
    EXPECT_EQ(std::memcmp(unpacked->f31, user.f31, sizeof user.f31), 0);
    EXPECT_EQ(std::memcmp(unpacked->f42, user.f42, sizeof user.f42), 0);
    EXPECT_EQ(std::memcmp(unpacked->f51, user.f51, sizeof user.f51), 0);
    EXPECT_EQ(std::memcmp(unpacked->f52, user.f52, sizeof user.f52), 0);
    EXPECT_EQ(unpacked->f32[0].f6.f17[5], 0xd1U);
    EXPECT_EQ(unpacked->f32[0].f6.f27, half(0x5b));
    EXPECT_EQ(unpacked->f32[1].f0, 0U);
}

TEST_F(UserTable, ReportsBadArguments) { expect_argument_faults<R>("Nac_SetUserTableMsg"); }

TEST_F(UserTable, IsClearedAfterAHeaderFault) { expect_header_faults<R>(cleared, kNestedName); }

TEST_F(UserTable, ArraysAreAllocatedUnderTheNestedName) {
    services.reset();
    const Unpacked<R> unpacked(hex(kUser));
    std::vector<Tag> expected;
    for (const VectorOf& vector : kVectors) expected.push_back({vector.array_bytes, 12, kNestedName});
    EXPECT_EQ(cache_allocations(), expected);
    const auto blocks = services.allocations();
    for (std::size_t i = 0; i < kVectors.size(); ++i) EXPECT_EQ(blocks[i].block, pointers(*unpacked)[i]);
}

TEST_F(UserTable, FreeHandsBackAllArraysAndASecondTimeOnlyNulls) {
    Unpacked<R> unpacked(hex(kUser));
    const auto blocks = services.allocations();
    services.reset();
    Nac_SetUserTableMsg_free__unpacked(&unpacked.record());
    EXPECT_EQ(release_callers(), Lines(8, kFreeName));
    for (std::size_t i = 0; i < kVectors.size(); ++i)
        EXPECT_EQ(services.releases()[i].block, blocks[i].block);
    EXPECT_EQ(pointers(*unpacked), kAllNull);
    EXPECT_EQ(counts(*unpacked), counts_of_first(8));
    EXPECT_EQ(unpacked->f54, 0xb6U);

    services.reset();
    Nac_SetUserTableMsg_free__unpacked(&unpacked.record());
    EXPECT_EQ(release_callers(), Lines(6, kFreeName));
    for (const host::Release& release : services.releases()) EXPECT_EQ(release.block, nullptr);

    services.reset();
    Nac_SetUserTableMsg_free__unpacked(nullptr);
    EXPECT_TRUE(services.releases().empty());
}

TEST_F(UserTable, FailedAllocationIsLoggedWithSixteenBlanksAndReleasesTheOthers) {
    for (std::size_t failing = 0; failing < kVectors.size(); ++failing) {
        services.reset();
        services.fail_allocation(failing);
        const Unpacked<R> unpacked(hex(kUser), 0xAA);
        EXPECT_EQ(logged(), Lines{std::string(kNestedName) +
                                  ": [KAPLO]:Malloc unpack data unsuccess,                size(" +
                                  std::to_string(kVectors[failing].array_bytes) + ")"});
        EXPECT_EQ(logged_categories(), std::vector<std::uint32_t>{12});
        EXPECT_EQ(release_callers(), Lines(releases_after(failing), kFreeName));
        EXPECT_EQ(pointers(*unpacked), kAllNull);
        EXPECT_EQ(counts(*unpacked), counts_of_first(failing + 1));
        EXPECT_EQ(unpacked->f11, word(0x8b));
        EXPECT_EQ(unpacked->f54, 0U);
    }
}

TEST_F(UserTable, HardwareAddressOf5BytesFailsAsAWhole) {
    for (const std::uint32_t count : {5U, 7U, 0U, 0xFFFFFFFFU}) {
        Bytes bytes = hex(kUser);
        put32(bytes, kF5Count, count);
        services.reset();
        const Unpacked<R> unpacked(bytes, 0xAA);
        EXPECT_EQ(logged(), Lines{});
        EXPECT_TRUE(services.allocations().empty());
        EXPECT_EQ(release_callers(), Lines(6, kFreeName));
        R expected = {};
        expected.f0 = word(0x80);
        expected.f1 = word(0x81);
        expected.f2 = word(0x82);
        expected.f3 = word(0x83);
        expected.f4 = word(0x84);
        EXPECT_EQ(counts(*unpacked), counts(expected));
        EXPECT_EQ(pointers(*unpacked), kAllNull);
        EXPECT_TRUE(same_bytes(packed(*unpacked), packed(expected)));
    }
}

TEST_F(UserTable, FixedArrayOf15Or17NumbersReleasesAllEightArrays) {
    for (const std::uint32_t count : {15U, 17U}) {
        Bytes bytes = hex(kUser);
        put32(bytes, kF53Count, count);
        services.reset();
        const Unpacked<R> unpacked(bytes, 0xAA);
        EXPECT_EQ(logged(), Lines{});
        EXPECT_EQ(services.allocations().size(), 8U);
        EXPECT_EQ(release_callers(), Lines(8, kFreeName));
        EXPECT_EQ(pointers(*unpacked), kAllNull);
        EXPECT_EQ(counts(*unpacked), counts_of_first(8));
        EXPECT_EQ(unpacked->f50, 0xb2U);
        EXPECT_EQ(unpacked->f53[0], 0U);
        EXPECT_EQ(unpacked->f54, 0U);
    }
}

TEST_F(UserTable, VectorPastItsLimitOrTheBufferFailsBeforeItsAllocation) {
    for (std::size_t n = 0; n < kVectors.size(); ++n) {
        const VectorOf& vector = kVectors[n];
        const auto fitting = static_cast<std::uint32_t>((1038 - vector.count_at - 4) / vector.wire_width);
        for (const std::uint32_t count : {fitting + 1, vector.count_limit, 0xFFFFFFFFU, 0x3FFFFFFFU}) {
            if (count == 0) continue;  // no limit of its own
            Bytes bytes = hex(kUser);
            put32(bytes, vector.count_at, count);
            services.reset();
            const Unpacked<R> unpacked(bytes, 0xAA);
            EXPECT_EQ(logged(), Lines{});
            EXPECT_EQ(services.allocations().size(), n) << vector.field_id << ": " << count;
            EXPECT_EQ(release_callers(), Lines(releases_after(n), kFreeName));
            EXPECT_EQ(pointers(*unpacked), kAllNull);
            EXPECT_EQ(counts(*unpacked), counts_of_first(n));
        }
    }
}

TEST_F(UserTable, VectorReferenceThatWrapsReleasesWhatIsThere) {
    for (std::size_t n = 0; n < kVectors.size(); ++n) {
        Bytes bytes = hex(kUser);
        const std::size_t reference = 118 + get16(bytes, 8 + 2 * kVectors[n].field_id);
        put32(bytes, reference, 0xFFFFFFFF);
        services.reset();
        const Unpacked<R> unpacked(bytes, 0xAA);
        EXPECT_EQ(logged(), Lines{});
        EXPECT_EQ(services.allocations().size(), n);
        EXPECT_EQ(pointers(*unpacked), kAllNull);
        EXPECT_EQ(counts(*unpacked), counts_of_first(n));
    }
}

TEST_F(UserTable, ScalarOutsideTheBufferReleasesWhatIsThere) {
    Bytes bytes = hex(kUser);
    put16(bytes, 8 + 2 * 47, 1038 - 118 - 7);  // f47 would end one byte behind the end
    services.reset();
    const Unpacked<R> unpacked(bytes, 0xAA);
    EXPECT_EQ(logged(), Lines{});
    EXPECT_EQ(services.allocations().size(), 6U);  // up to f42
    EXPECT_EQ(release_callers(), Lines(8, kFreeName));
    EXPECT_EQ(pointers(*unpacked), kAllNull);
    EXPECT_EQ(counts(*unpacked), counts_of_first(6));
    EXPECT_EQ(unpacked->f46, 0xaeU);
    EXPECT_EQ(unpacked->f47, 0U);
    EXPECT_EQ(unpacked->f48, 0U);
}

TEST_F(UserTable, VectorOfCount0AllocatesNothing) {
    for (std::size_t n = 0; n < kVectors.size(); ++n) {
        Bytes bytes = hex(kUser);
        put32(bytes, kVectors[n].count_at, 0);
        services.reset();
        const Unpacked<R> unpacked(bytes, 0xAA);
        EXPECT_EQ(logged(), Lines{});
        EXPECT_EQ(services.allocations().size(), 7U);
        EXPECT_EQ(counts(*unpacked)[n], 0U);
        EXPECT_EQ(pointers(*unpacked)[n], nullptr);
        EXPECT_EQ(unpacked->f54, 0xb6U);
    }
}

// Where each table of the packed User starts, the name under which its faults are reported, and how many
// arrays are there by then.
struct TableOf {
    std::uint32_t table_at;
    std::size_t vtable_at;
    const char* name;
    std::size_t arrays;
};
constexpr TableOf kTables[] = {
    {399, 393, "Nac_Ipv6Addr_unpack_non_root", 1},          // f12[0]
    {433, 427, "Nac_Ipv6Addr_unpack_non_root", 1},          // f12[1]
    {475, 461, "Nac_SrvCar_unpack_non_root", 3},            // f19
    {510, 496, "Nac_SrvCar_unpack_non_root", 3},            // f20
    {540, 522, "Nac_RadiusDaclRule_unpack_non_root", 5},    // f32[0]
    {629, 569, "Nac_DaclRuleIpInfo_unpack_non_root", 5},    // f32[0].f6
    {822, 804, "Nac_RadiusDaclRule_unpack_non_root", 5},    // f32[1]
    {890, 830, "Nac_DaclRuleIpInfo_unpack_non_root", 5},    // f32[1].f6
    {1028, 1018, "Nac_UserDetectInfo_unpack_non_root", 5},  // f33
};

TEST_F(UserTable, FaultsOfNestedTablesCarryTheirNestedNames) {
    for (const TableOf& table : kTables) {
        Bytes vtable_outside = hex(kUser);
        put32(vtable_outside, table.table_at, table.table_at);  // soffset: vtable at 0
        Bytes vtable_too_long = hex(kUser);
        put16(vtable_too_long, table.vtable_at, 0x1000);
        const std::string expected[] = {
            "Vtable offset(" + std::to_string(table.table_at) + ") is out of range(4 - 1034)",
            "Vtable Len(4096) is out of range(0 - " + std::to_string(1038 - table.vtable_at) + ")"};
        std::size_t fault = 0;
        for (const Bytes& bytes : {vtable_outside, vtable_too_long}) {
            services.reset();
            const Unpacked<R> unpacked(bytes, 0xAA);
            EXPECT_EQ(logged(), Lines{std::string(table.name) + ": [KAPLO]:" + expected[fault++]});
            EXPECT_EQ(services.allocations().size(), table.arrays);
            EXPECT_EQ(release_callers(), Lines(releases_after(table.arrays), kFreeName));
            EXPECT_EQ(pointers(*unpacked), kAllNull);
            EXPECT_EQ(counts(*unpacked), counts_of_first(table.arrays));
            EXPECT_EQ(unpacked->f54, 0U);
        }
    }
}

// A wrong count or a place outside the buffer inside a nested table ends everything, without a line.
TEST_F(UserTable, FieldsOfNestedTablesFailTheWholeRecordSilently) {
    Bytes address_of_15 = hex(kUser);
    put32(address_of_15, 399 + 8, 15);
    Bytes address_of_17 = hex(kUser);
    put32(address_of_17, 433 + 8, 17);
    Bytes car_outside = hex(kUser);
    put16(car_outside, 461 + 4, 0x1000);
    Bytes second_car_outside = hex(kUser);
    put16(second_car_outside, 496 + 6, 0x1000);
    Bytes rule_outside = hex(kUser);
    put16(rule_outside, 522 + 4, 0x1000);
    Bytes rule_address_of_15 = hex(kUser);
    put32(rule_address_of_15, 629 + 51 + 24, 15);
    Bytes rule_hardware_address_of_7 = hex(kUser);
    put32(rule_hardware_address_of_7, 890 + 4 + 24 + 80 + 10, 7);
    Bytes detection_outside = hex(kUser);
    put16(detection_outside, 1018 + 8, 0x1000);
    const struct {
        const Bytes& bytes;
        std::size_t arrays;
    } cases[] = {{address_of_15, 1},
                 {address_of_17, 1},
                 {car_outside, 3},
                 {second_car_outside, 3},
                 {rule_outside, 5},
                 {rule_address_of_15, 5},
                 {rule_hardware_address_of_7, 5},
                 {detection_outside, 5}};
    for (const auto& [bytes, arrays] : cases) {
        services.reset();
        const Unpacked<R> unpacked(bytes, 0xAA);
        EXPECT_EQ(logged(), Lines{});
        EXPECT_EQ(services.allocations().size(), arrays);
        EXPECT_EQ(release_callers(), Lines(releases_after(arrays), kFreeName));
        EXPECT_EQ(pointers(*unpacked), kAllNull);
        EXPECT_EQ(counts(*unpacked), counts_of_first(arrays));
        EXPECT_EQ(unpacked->f54, 0U);
    }
}

TEST_F(UserTable, ShorterVtableOfAnOlderSenderLeavesTheRestZeroAndEmpty) {
    for (std::uint16_t slots = 0; slots <= 55; ++slots) {
        Bytes bytes = hex(kUser);
        put16(bytes, 4, static_cast<std::uint16_t>(4 + 2 * slots));
        services.reset();
        const Unpacked<R> unpacked(bytes, 0xAA);
        EXPECT_EQ(logged(), Lines{});
        std::size_t arrays = 0;
        while (arrays < kVectors.size() && kVectors[arrays].field_id < slots) ++arrays;
        EXPECT_EQ(services.allocations().size(), arrays);
        EXPECT_EQ(counts(*unpacked), counts_of_first(arrays));
        EXPECT_EQ(unpacked->f0, slots > 0 ? word(0x80) : 0U);
        EXPECT_EQ(unpacked->f18, slots > 18 ? half(0x92) : 0U);
        EXPECT_EQ(unpacked->f20.f4, slots > 20 ? word(0x15) : 0U);
        EXPECT_EQ(unpacked->f33.f0, slots > 33 ? 0x61U : 0U);
        EXPECT_EQ(unpacked->f47, slots > 47 ? quad(0xaf) : 0U);
        EXPECT_EQ(unpacked->f53[0], slots > 53 ? half(0x40) : 0U);
        EXPECT_EQ(unpacked->f54, slots > 54 ? 0xb6U : 0U);
    }
}

// ---- the module ----

TEST_F(UserTable, ModuleRegistersItsSixTypesInOrder) {
    expect_registers<Nac_SetUserTableMsg, Nac_SetUserTableAckMsg, Nac_UserTableHitMsg,
                     Nac_L2NotifyNacUserOfflineMsg, Nac_TableVersionChangeMsg, Nac_UserTableSyncAckMsg>(
        nac_fwm_user_recv_init, {1201171741, 563611466, 3693736224, 65888119, 1937903990, 3987961879});
    expect_stops_at_refusal(nac_fwm_user_recv_init, 6);
}

TEST_F(UserTable, ModuleRegistersAResourceCleanThatDoesNothing) {
    expect_registers_clean(nac_fwm_user_send_init, nac_fwm_user__send_resource_clean);
}

}  // namespace
