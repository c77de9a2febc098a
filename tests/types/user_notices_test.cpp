// SPDX-License-Identifier: Apache-2.0
// The user module's acknowledgements and notices: their bytes in both layouts.
#include "tests/support/byte_literals.h"

namespace {

using namespace tests;

class UserNotices : public MessageTest {};

constexpr Nac_SetUserTableAckMsg kTableAck = {word(0x80), word(0x81), word(0x82), word(0x83), half(0x84),
                                              word(0x85), word(0x86), word(0x87), word(0x88)};
constexpr Nac_UserTableHitMsg kHit = {word(0x80), word(0x81), word(0x82), word(0x83), word(0x84), word(0x85)};
constexpr Nac_L2NotifyNacUserOfflineMsg kOffline = {
    word(0x80), word(0x81), word(0x82), half(0x83), {0x84, 1, 2, 3, 4, 0xf4},
    word(0x85), word(0x86), word(0x87)};
constexpr Nac_TableVersionChangeMsg kVersion = {word(0x80)};
constexpr Nac_UserTableSyncAckMsg kSyncAck = {word(0x80), word(0x81), word(0x82), word(0x83), word(0x84)};

// ---- Nac_SetUserTableAckMsg ----

TEST_F(UserNotices, TableAckWithAllFieldsPacksTo64Bytes) {
    EXPECT_BYTES(packed(kTableAck),
                 "1a 00 00 00"              // root reference
                 "16 00 26 00"              // vtable length, table length
                 "04 00 08 00 0c 00 10 00"  // offsets of f0 to f3
                 "14 00"                    // offset of f4
                 "16 00 1a 00 1e 00 22 00"  // offsets of f5 to f8
                 "16 00 00 00"              // soffset
                 "80 22 33 44"              // f0
                 "81 22 33 44"              // f1
                 "82 22 33 44"              // f2
                 "83 22 33 44"              // f3
                 "84 22"                    // f4
                 "85 22 33 44"              // f5
                 "86 22 33 44"              // f6
                 "87 22 33 44"              // f7
                 "88 22 33 44");            // f8
}

TEST_F(UserNotices, TableAckOfZeroesPacksTo30Bytes) {
    EXPECT_BYTES(packed(Nac_SetUserTableAckMsg{}),
                 "1a 00 00 00"                                            // root reference
                 "16 00 04 00"                                            // vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // no field
                 "16 00 00 00");                                          // soffset
}

TEST_F(UserNotices, TableAckLeavesOutFieldsThatAreZero) {
    EXPECT_BYTES(packed(Nac_SetUserTableAckMsg{0, word(0x81), 0, 0, half(0x84), 0, 0, 0, word(0x88)}),
                 "1a 00 00 00"              // root reference
                 "16 00 0e 00"              // vtable length, table length
                 "00 00 04 00 00 00 00 00"  // f0 to f3: only f1
                 "08 00"                    // offset of f4
                 "00 00 00 00 00 00 0a 00"  // f5 to f8: only f8
                 "16 00 00 00"              // soffset
                 "81 22 33 44"              // f1
                 "84 22"                    // f4
                 "88 22 33 44");            // f8
}

// Its table of 38 bytes is followed by two that nobody writes: the soffset leads to the vtable.
TEST_F(UserNotices, TableAckTravelsAsItsImageOf72Bytes) {
    EXPECT_BYTES(sent(kTableAck),
                 "04 00 00 00"              // root reference
                 "d8 ff ff ff"              // soffset -40: vtable at 44
                 "80 22 33 44"              // f0
                 "81 22 33 44"              // f1
                 "82 22 33 44"              // f2
                 "83 22 33 44"              // f3
                 "84 22"                    // f4 at 24
                 "85 22 33 44"              // f5 at 26
                 "86 22 33 44"              // f6
                 "87 22 33 44"              // f7
                 "88 22 33 44"              // f8
                 "00 00"                    // padding in front of the vtable
                 "16 00 26 00"              // vtable length, table length 38
                 "04 00 08 00 0c 00 10 00"  // offsets of f0 to f3
                 "14 00"                    // offset of f4
                 "16 00 1a 00 1e 00 22 00"  // offsets of f5 to f8
                 "00 00 00 00 00 00");      // padding
}

// ---- Nac_UserTableHitMsg ----

TEST_F(UserNotices, HitWithAllFieldsPacksTo48Bytes) {
    EXPECT_BYTES(packed(kHit),
                 "14 00 00 00"                          // root reference
                 "10 00 1c 00"                          // vtable length, table length
                 "04 00 08 00 0c 00 10 00 14 00 18 00"  // offsets of f0 to f5
                 "10 00 00 00"                          // soffset
                 "80 22 33 44"                          // f0
                 "81 22 33 44"                          // f1
                 "82 22 33 44"                          // f2
                 "83 22 33 44"                          // f3
                 "84 22 33 44"                          // f4
                 "85 22 33 44");                        // f5
}

TEST_F(UserNotices, HitOfZeroesPacksTo24Bytes) {
    EXPECT_BYTES(packed(Nac_UserTableHitMsg{}),
                 "14 00 00 00"                          // root reference
                 "10 00 04 00"                          // vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00 00 00"  // no field
                 "10 00 00 00");                        // soffset
}

TEST_F(UserNotices, HitLeavesOutFieldsThatAreZero) {
    EXPECT_BYTES(packed(Nac_UserTableHitMsg{0, 0, word(0x82), 0, 0, word(0x85)}),
                 "14 00 00 00"                          // root reference
                 "10 00 0c 00"                          // vtable length, table length
                 "00 00 00 00 04 00 00 00 00 00 08 00"  // f2 at 4, f5 at 8
                 "10 00 00 00"                          // soffset
                 "82 22 33 44"                          // f2
                 "85 22 33 44");                        // f5
}

TEST_F(UserNotices, HitTravelsAsItsImageOf48Bytes) {
    EXPECT_BYTES(sent(kHit),
                 "04 00 00 00"                            // root reference
                 "e4 ff ff ff"                            // soffset -28: vtable at 32
                 "80 22 33 44"                            // f0
                 "81 22 33 44"                            // f1
                 "82 22 33 44"                            // f2
                 "83 22 33 44"                            // f3
                 "84 22 33 44"                            // f4
                 "85 22 33 44"                            // f5
                 "10 00 1c 00"                            // vtable length, table length
                 "04 00 08 00 0c 00 10 00 14 00 18 00");  // offsets of f0 to f5
}

// ---- Nac_L2NotifyNacUserOfflineMsg ----

// The scalars come first; the address closes the table, with its reference and count.
TEST_F(UserNotices, OfflineWithAllFieldsPacksTo68Bytes) {
    EXPECT_BYTES(packed(kOffline),
                 "18 00 00 00"          // root reference
                 "14 00 2c 00"          // vtable length, table length
                 "04 00 08 00 0c 00"    // offsets of f0 to f2
                 "10 00"                // offset of f3
                 "1e 00"                // offset of f4
                 "12 00 16 00 1a 00"    // offsets of f5 to f7
                 "14 00 00 00"          // soffset
                 "80 22 33 44"          // f0
                 "81 22 33 44"          // f1
                 "82 22 33 44"          // f2
                 "83 22"                // f3
                 "85 22 33 44"          // f5
                 "86 22 33 44"          // f6
                 "87 22 33 44"          // f7
                 "04 00 00 00"          // f4: vector right after
                 "06 00 00 00"          // f4: count
                 "84 01 02 03 04 f4");  // f4
}

TEST_F(UserNotices, OfflineOfZeroesStillHoldsItsAddressIn42Bytes) {
    const Bytes zeroes = packed(Nac_L2NotifyNacUserOfflineMsg{});
    EXPECT_BYTES(zeroes,
                 "18 00 00 00"              // root reference
                 "14 00 12 00"              // vtable length, table length 4 + 14
                 "00 00 00 00 00 00 00 00"  // f0 to f3 absent
                 "04 00"                    // offset of f4
                 "00 00 00 00 00 00"        // f5 to f7 absent
                 "14 00 00 00"              // soffset
                 "04 00 00 00"              // f4: vector right after
                 "06 00 00 00"              // f4: count
                 "00 00 00 00 00 00");      // f4
    EXPECT_TRUE(Unpacked<Nac_L2NotifyNacUserOfflineMsg>(zeroes, 0xAA).all(0));
}

TEST_F(UserNotices, OfflineLeavesOutFieldsThatAreZero) {
    EXPECT_BYTES(
        packed(Nac_L2NotifyNacUserOfflineMsg{0, word(0x81), 0, 0, {0, 0, 0, 0, 0, 0xf4}, 0, word(0x86), 0}),
        "18 00 00 00"              // root reference
        "14 00 1a 00"              // vtable length, table length 12 + 14
        "00 00 04 00 00 00 00 00"  // f0 to f3: only f1
        "0c 00"                    // offset of f4
        "00 00 08 00 00 00"        // f5 to f7: only f6
        "14 00 00 00"              // soffset
        "81 22 33 44"              // f1
        "86 22 33 44"              // f6
        "04 00 00 00"              // f4: vector right after
        "06 00 00 00"              // f4: count
        "00 00 00 00 00 f4");      // f4
}

TEST_F(UserNotices, OfflineTravelsAsItsImageOf72Bytes) {
    EXPECT_BYTES(sent(kOffline),
                 "04 00 00 00"        // root reference
                 "d4 ff ff ff"        // soffset -44: vtable at 48
                 "80 22 33 44"        // f0
                 "81 22 33 44"        // f1
                 "82 22 33 44"        // f2
                 "83 22"              // f3 at 20
                 "04 00 00 00"        // f4 at 22: vector right after
                 "06 00 00 00"        // f4: count
                 "84 01 02 03 04 f4"  // f4
                 "85 22 33 44"        // f5 at 36
                 "86 22 33 44"        // f6
                 "87 22 33 44"        // f7
                 "14 00 2c 00"        // vtable length, table length
                 "04 00 08 00 0c 00"  // offsets of f0 to f2
                 "10 00"              // offset of f3
                 "12 00"              // offset of f4
                 "20 00 24 00 28 00"  // offsets of f5 to f7
                 "00 00 00 00");      // padding
}

// ---- Nac_TableVersionChangeMsg ----

TEST_F(UserNotices, VersionPacksTo18Bytes) {
    EXPECT_BYTES(packed(kVersion),
                 "0a 00 00 00"    // root reference
                 "06 00 08 00"    // vtable length, table length
                 "04 00"          // offset of f0
                 "06 00 00 00"    // soffset
                 "80 22 33 44");  // f0
}

TEST_F(UserNotices, VersionOfZeroPacksTo14Bytes) {
    EXPECT_BYTES(packed(Nac_TableVersionChangeMsg{0}),
                 "0a 00 00 00"    // root reference
                 "06 00 04 00"    // vtable length, table length
                 "00 00"          // f0 absent
                 "06 00 00 00");  // soffset
}

TEST_F(UserNotices, VersionTravelsAsItsImageOf24Bytes) {
    EXPECT_BYTES(sent(kVersion),
                 "04 00 00 00"          // root reference
                 "f8 ff ff ff"          // soffset -8: vtable at 12
                 "80 22 33 44"          // f0
                 "06 00 08 00"          // vtable length, table length
                 "04 00"                // offset of f0
                 "00 00 00 00 00 00");  // padding
}

// ---- Nac_UserTableSyncAckMsg ----

TEST_F(UserNotices, SyncAckWithAllFieldsPacksTo42Bytes) {
    EXPECT_BYTES(packed(kSyncAck),
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

TEST_F(UserNotices, SyncAckOfZeroesPacksTo22Bytes) {
    EXPECT_BYTES(packed(Nac_UserTableSyncAckMsg{}),
                 "12 00 00 00"                    // root reference
                 "0e 00 04 00"                    // vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00"  // no field
                 "0e 00 00 00");                  // soffset
}

TEST_F(UserNotices, SyncAckLeavesOutFieldsThatAreZero) {
    EXPECT_BYTES(packed(Nac_UserTableSyncAckMsg{word(0x80), 0, 0, word(0x83), 0}),
                 "12 00 00 00"                    // root reference
                 "0e 00 0c 00"                    // vtable length, table length
                 "04 00 00 00 00 00 08 00 00 00"  // f0 at 4, f3 at 8
                 "0e 00 00 00"                    // soffset
                 "80 22 33 44"                    // f0
                 "83 22 33 44");                  // f3
}

TEST_F(UserNotices, SyncAckTravelsAsItsImageOf48Bytes) {
    EXPECT_BYTES(sent(kSyncAck),
                 "04 00 00 00"                    // root reference
                 "e8 ff ff ff"                    // soffset -24: vtable at 28
                 "80 22 33 44"                    // f0
                 "81 22 33 44"                    // f1
                 "82 22 33 44"                    // f2
                 "83 22 33 44"                    // f3
                 "84 22 33 44"                    // f4
                 "0e 00 18 00"                    // vtable length, table length
                 "04 00 08 00 0c 00 10 00 14 00"  // offsets of f0 to f4
                 "00 00 00 00 00 00");            // padding
}

}  // namespace
