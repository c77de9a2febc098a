// SPDX-License-Identifier: Apache-2.0
// The user module's acknowledgements and notices: their bytes in both layouts, and unpack's faults.
#include "tests/support/message_checks.h"

namespace {

using namespace tests;
using enum AfterHeaderFault;

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

TEST_F(UserNotices, TableAckRecordKeepsFieldOrderWithTwoBytesOfAlignment) {
    using R = Nac_SetUserTableAckMsg;
    EXPECT_EQ(sizeof(R), 36U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4),
                       offsetof(R, f5), offsetof(R, f6), offsetof(R, f7), offsetof(R, f8)}),
              (Offsets{0, 4, 8, 12, 16, 20, 24, 28, 32}));
}

TEST_F(UserNotices, TableAckWithAllFieldsPacksTo64Bytes) {
    EXPECT_BYTES(packed(kTableAck),
                 "1a 00 00 00"              // root reference
                 "16 00 26 00"              // vtable length, table length
                 "04 00 08 00 0c 00 10 00"  // places of f0 to f3
                 "14 00"                    // place of f4
                 "16 00 1a 00 1e 00 22 00"  // places of f5 to f8
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
                 "08 00"                    // place of f4
                 "00 00 00 00 00 00 0a 00"  // f5 to f8: only f8
                 "16 00 00 00"              // soffset
                 "81 22 33 44"              // f1
                 "84 22"                    // f4
                 "88 22 33 44");            // f8
}

TEST_F(UserNotices, TableAckGrowsByTheWidthOfEachField) {
    using R = Nac_SetUserTableAckMsg;
    EXPECT_EQ(packed_size(R{}), 30U);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f3, &R::f5, &R::f6, &R::f7, &R::f8);
    expect_each_costs(2, R{}, &R::f4);
    EXPECT_EQ(packed_size(kTableAck), 64U);
}

// Its table of 38 bytes is followed by two that nobody writes: the soffset leads to the vtable.
TEST_F(UserNotices, TableAckTravelsAsItsImageOf72Bytes) {
    expect_sends_image("Nac_SetUserTableAckMsg", 563611466, kTableAck,
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
                       "04 00 08 00 0c 00 10 00"  // places of f0 to f3
                       "14 00"                    // place of f4
                       "16 00 1a 00 1e 00 22 00"  // places of f5 to f8
                       "00 00 00 00 00 00");      // padding
}

TEST_F(UserNotices, TableAckUnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kTableAck);
    expect_both_layouts_unpack_to(Nac_SetUserTableAckMsg{});
}

TEST_F(UserNotices, TableAckReadsWholeFieldsOnly) {
    expect_reads_whole_fields_only<Nac_SetUserTableAckMsg>(packed(kTableAck), {4, 4, 4, 4, 2, 4, 4, 4, 4});
}

TEST_F(UserNotices, TableAckOfAnOlderSenderWithFourSlotsHasZeroesInTheRest) {
    const Unpacked<Nac_SetUserTableAckMsg> ack(hex("10 00 00 00"              // root reference
                                                   "0c 00 14 00"              // vtable length, table length
                                                   "04 00 08 00 0c 00 10 00"  // places of f0 to f3
                                                   "0c 00 00 00"              // soffset
                                                   "80 22 33 44"              // f0
                                                   "81 22 33 44"              // f1
                                                   "82 22 33 44"              // f2
                                                   "83 22 33 44"),            // f3
                                               0xAA);
    const Nac_SetUserTableAckMsg expected = {word(0x80), word(0x81), word(0x82), word(0x83), 0, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&*ack, &expected, 18), 0);
    EXPECT_EQ(ack->f5 | ack->f6 | ack->f7 | ack->f8, 0U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(UserNotices, TableAckReportsBadArguments) {
    expect_argument_faults<Nac_SetUserTableAckMsg>("Nac_SetUserTableAckMsg");
}

TEST_F(UserNotices, TableAckIsClearedAfterAHeaderFault) {
    expect_header_faults<Nac_SetUserTableAckMsg>(cleared, "Nac_SetUserTableAckMsg_unpack_non_root");
}

TEST_F(UserNotices, TableAckPackRefusals) { expect_pack_refusals("Nac_SetUserTableAckMsg", kTableAck, 64); }

TEST_F(UserNotices, TableAckFreeDoesNothing) { expect_free_does_nothing<Nac_SetUserTableAckMsg>(); }

// ---- Nac_UserTableHitMsg ----

TEST_F(UserNotices, HitRecordIsSixWords) {
    using R = Nac_UserTableHitMsg;
    EXPECT_EQ(sizeof(R), 24U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4),
                       offsetof(R, f5)}),
              (Offsets{0, 4, 8, 12, 16, 20}));
}

TEST_F(UserNotices, HitWithAllFieldsPacksTo48Bytes) {
    EXPECT_BYTES(packed(kHit),
                 "14 00 00 00"                          // root reference
                 "10 00 1c 00"                          // vtable length, table length
                 "04 00 08 00 0c 00 10 00 14 00 18 00"  // places of f0 to f5
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

TEST_F(UserNotices, HitGrowsBy4BytesAField) {
    using R = Nac_UserTableHitMsg;
    EXPECT_EQ(packed_size(R{}), 24U);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f3, &R::f4, &R::f5);
}

TEST_F(UserNotices, HitTravelsAsItsImageOf48Bytes) {
    expect_sends_image("Nac_UserTableHitMsg", 3693736224, kHit,
                       "04 00 00 00"                            // root reference
                       "e4 ff ff ff"                            // soffset -28: vtable at 32
                       "80 22 33 44"                            // f0
                       "81 22 33 44"                            // f1
                       "82 22 33 44"                            // f2
                       "83 22 33 44"                            // f3
                       "84 22 33 44"                            // f4
                       "85 22 33 44"                            // f5
                       "10 00 1c 00"                            // vtable length, table length
                       "04 00 08 00 0c 00 10 00 14 00 18 00");  // places of f0 to f5
}

TEST_F(UserNotices, HitUnpacksAlikeFromBothLayouts) { expect_both_layouts_unpack_to(kHit); }

TEST_F(UserNotices, HitReadsWholeFieldsOnly) {
    expect_reads_whole_fields_only<Nac_UserTableHitMsg>(packed(kHit), {4, 4, 4, 4, 4, 4});
}

TEST_F(UserNotices, HitReportsBadArguments) {
    expect_argument_faults<Nac_UserTableHitMsg>("Nac_UserTableHitMsg");
}

TEST_F(UserNotices, HitIsClearedAfterAHeaderFault) {
    expect_header_faults<Nac_UserTableHitMsg>(cleared, "Nac_UserTableHitMsg_unpack_non_root");
}

TEST_F(UserNotices, HitPackRefusals) { expect_pack_refusals("Nac_UserTableHitMsg", kHit, 48); }

TEST_F(UserNotices, HitFreeDoesNothing) { expect_free_does_nothing<Nac_UserTableHitMsg>(); }

// ---- Nac_L2NotifyNacUserOfflineMsg ----

TEST_F(UserNotices, OfflineRecordHoldsItsAddressInlineWithoutAGap) {
    using R = Nac_L2NotifyNacUserOfflineMsg;
    EXPECT_EQ(sizeof(R), 32U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4),
                       offsetof(R, f5), offsetof(R, f6), offsetof(R, f7)}),
              (Offsets{0, 4, 8, 12, 14, 20, 24, 28}));
}

// The scalars come first; the address closes the table, with its reference and count.
TEST_F(UserNotices, OfflineWithAllFieldsPacksTo68Bytes) {
    EXPECT_BYTES(packed(kOffline),
                 "18 00 00 00"          // root reference
                 "14 00 2c 00"          // vtable length, table length
                 "04 00 08 00 0c 00"    // places of f0 to f2
                 "10 00"                // place of f3
                 "1e 00"                // place of f4
                 "12 00 16 00 1a 00"    // places of f5 to f7
                 "14 00 00 00"          // soffset
                 "80 22 33 44"          // f0
                 "81 22 33 44"          // f1
                 "82 22 33 44"          // f2
                 "83 22"                // f3
                 "85 22 33 44"          // f5
                 "86 22 33 44"          // f6
                 "87 22 33 44"          // f7
                 "04 00 00 00"          // f4: vector right behind
                 "06 00 00 00"          // f4: count
                 "84 01 02 03 04 f4");  // f4
}

TEST_F(UserNotices, OfflineOfZeroesStillHoldsItsAddressIn42Bytes) {
    const Bytes zeroes = packed(Nac_L2NotifyNacUserOfflineMsg{});
    EXPECT_BYTES(zeroes,
                 "18 00 00 00"              // root reference
                 "14 00 12 00"              // vtable length, table length 4 + 14
                 "00 00 00 00 00 00 00 00"  // f0 to f3 absent
                 "04 00"                    // place of f4
                 "00 00 00 00 00 00"        // f5 to f7 absent
                 "14 00 00 00"              // soffset
                 "04 00 00 00"              // f4: vector right behind
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
        "0c 00"                    // place of f4
        "00 00 08 00 00 00"        // f5 to f7: only f6
        "14 00 00 00"              // soffset
        "81 22 33 44"              // f1
        "86 22 33 44"              // f6
        "04 00 00 00"              // f4: vector right behind
        "06 00 00 00"              // f4: count
        "00 00 00 00 00 f4");      // f4
}

TEST_F(UserNotices, OfflineGrowsByTheWidthOfEachScalarFrom42To68Bytes) {
    using R = Nac_L2NotifyNacUserOfflineMsg;
    EXPECT_EQ(packed_size(R{}), 42U);
    EXPECT_EQ(packed_size(R{0, 0, 0, 0, {1, 2, 3, 4, 5, 6}, 0, 0, 0}), 42U);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f5, &R::f6, &R::f7);
    expect_each_costs(2, R{}, &R::f3);
    EXPECT_EQ(packed_size(kOffline), 68U);
}

TEST_F(UserNotices, OfflineTravelsAsItsImageOf72Bytes) {
    expect_sends_image("Nac_L2NotifyNacUserOfflineMsg", 65888119, kOffline,
                       "04 00 00 00"        // root reference
                       "d4 ff ff ff"        // soffset -44: vtable at 48
                       "80 22 33 44"        // f0
                       "81 22 33 44"        // f1
                       "82 22 33 44"        // f2
                       "83 22"              // f3 at 20
                       "04 00 00 00"        // f4 at 22: vector right behind
                       "06 00 00 00"        // f4: count
                       "84 01 02 03 04 f4"  // f4
                       "85 22 33 44"        // f5 at 36
                       "86 22 33 44"        // f6
                       "87 22 33 44"        // f7
                       "14 00 2c 00"        // vtable length, table length
                       "04 00 08 00 0c 00"  // places of f0 to f2
                       "10 00"              // place of f3
                       "12 00"              // place of f4
                       "20 00 24 00 28 00"  // places of f5 to f7
                       "00 00 00 00");      // padding
}

TEST_F(UserNotices, OfflineUnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kOffline);
    expect_both_layouts_unpack_to(Nac_L2NotifyNacUserOfflineMsg{});
}

// What is left when f4 cannot be read: f0 to f3 as sent, the rest zero.
constexpr Nac_L2NotifyNacUserOfflineMsg kUpToF3 = {word(0x80), word(0x81), word(0x82), half(0x83),
                                                   {},         0,          0,          0};

TEST_F(UserNotices, OfflineAddressOf5Or7BytesLeavesF4ToF7Zero) {
    for (const std::uint32_t count : {5U, 7U, 0U, 0xFFFFFFFFU}) {
        Bytes bytes = packed(kOffline);
        bytes.push_back(0);  // so that a seventh byte would lie inside the buffer
        put32(bytes, 58, count);
        services.reset();
        const Unpacked<Nac_L2NotifyNacUserOfflineMsg> offline(bytes, 0xAA);
        EXPECT_EQ(std::memcmp(&*offline, &kUpToF3, sizeof kUpToF3), 0) << count;
        EXPECT_EQ(logged(), Lines{});
    }
}

TEST_F(UserNotices, OfflineAddressOutsideTheBufferLeavesF4ToF7Zero) {
    Bytes wraps = packed(kOffline);
    put32(wraps, 54, 0xFFFFFFFF);
    Bytes count_cut = packed(kOffline);
    put32(count_cut, 54, 68 - 3 - 54);  // one byte of the count is behind the end
    Bytes address_cut = packed(kOffline);
    address_cut.resize(67);
    Bytes slot_outside = packed(kOffline);
    put16(slot_outside, 16, 68 - 24 - 3);  // one byte of the reference is behind the end
    services.reset();
    for (const Bytes& bytes : {wraps, count_cut, address_cut, slot_outside}) {
        const Unpacked<Nac_L2NotifyNacUserOfflineMsg> offline(bytes, 0xAA);
        EXPECT_EQ(std::memcmp(&*offline, &kUpToF3, sizeof kUpToF3), 0);
    }
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(UserNotices, OfflineOfAnOlderSenderReadsTheSlotsItHas) {
    Bytes bytes = packed(kOffline);
    put16(bytes, 4, 12);  // four slots
    const Unpacked<Nac_L2NotifyNacUserOfflineMsg> offline(bytes, 0xAA);
    EXPECT_EQ(std::memcmp(&*offline, &kUpToF3, sizeof kUpToF3), 0);
}

TEST_F(UserNotices, OfflineReportsBadArguments) {
    expect_argument_faults<Nac_L2NotifyNacUserOfflineMsg>("Nac_L2NotifyNacUserOfflineMsg");
}

TEST_F(UserNotices, OfflineIsClearedAfterAHeaderFault) {
    expect_header_faults<Nac_L2NotifyNacUserOfflineMsg>(cleared,
                                                        "Nac_L2NotifyNacUserOfflineMsg_unpack_non_root");
}

TEST_F(UserNotices, OfflinePackRefusals) {
    expect_pack_refusals("Nac_L2NotifyNacUserOfflineMsg", kOffline, 68);
}

TEST_F(UserNotices, OfflineFreeDoesNothing) { expect_free_does_nothing<Nac_L2NotifyNacUserOfflineMsg>(); }

// ---- Nac_TableVersionChangeMsg ----

TEST_F(UserNotices, VersionRecordIsAWord) {
    EXPECT_EQ(sizeof(Nac_TableVersionChangeMsg), 4U);
    EXPECT_EQ(offsetof(Nac_TableVersionChangeMsg, f0), 0U);
}

TEST_F(UserNotices, VersionPacksTo18Bytes) {
    EXPECT_BYTES(packed(kVersion),
                 "0a 00 00 00"    // root reference
                 "06 00 08 00"    // vtable length, table length
                 "04 00"          // place of f0
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

TEST_F(UserNotices, VersionGrowsBy4BytesWhateverItsValue) {
    using R = Nac_TableVersionChangeMsg;
    EXPECT_EQ(packed_size(R{}), 14U);
    expect_each_costs(4, R{}, &R::f0);
    for (const std::uint32_t value : {0x00000100U, 0x00010000U, 0x01000000U, 0x80000000U})
        EXPECT_EQ(packed_size(R{value}), 18U);
}

TEST_F(UserNotices, VersionTravelsAsItsImageOf24Bytes) {
    expect_sends_image("Nac_TableVersionChangeMsg", 1937903990, kVersion,
                       "04 00 00 00"          // root reference
                       "f8 ff ff ff"          // soffset -8: vtable at 12
                       "80 22 33 44"          // f0
                       "06 00 08 00"          // vtable length, table length
                       "04 00"                // place of f0
                       "00 00 00 00 00 00");  // padding
}

TEST_F(UserNotices, VersionUnpacksAlikeFromBothLayouts) { expect_both_layouts_unpack_to(kVersion); }

TEST_F(UserNotices, VersionReadsWholeFieldsOnly) {
    expect_reads_whole_fields_only<Nac_TableVersionChangeMsg>(packed(kVersion), {4});
}

TEST_F(UserNotices, VersionReportsBadArguments) {
    expect_argument_faults<Nac_TableVersionChangeMsg>("Nac_TableVersionChangeMsg");
}

TEST_F(UserNotices, VersionIsUntouchedAfterAHeaderFault) {
    expect_header_faults<Nac_TableVersionChangeMsg>(untouched, "Nac_TableVersionChangeMsg_unpack");
}

TEST_F(UserNotices, VersionPackRefusals) { expect_pack_refusals("Nac_TableVersionChangeMsg", kVersion, 18); }

TEST_F(UserNotices, VersionFreeDoesNothing) { expect_free_does_nothing<Nac_TableVersionChangeMsg>(); }

// ---- Nac_UserTableSyncAckMsg ----

TEST_F(UserNotices, SyncAckRecordIsFiveWords) {
    using R = Nac_UserTableSyncAckMsg;
    EXPECT_EQ(sizeof(R), 20U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4)}),
              (Offsets{0, 4, 8, 12, 16}));
}

TEST_F(UserNotices, SyncAckWithAllFieldsPacksTo42Bytes) {
    EXPECT_BYTES(packed(kSyncAck),
                 "12 00 00 00"                    // root reference
                 "0e 00 18 00"                    // vtable length, table length
                 "04 00 08 00 0c 00 10 00 14 00"  // places of f0 to f4
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

TEST_F(UserNotices, SyncAckGrowsBy4BytesAField) {
    using R = Nac_UserTableSyncAckMsg;
    EXPECT_EQ(packed_size(R{}), 22U);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f3, &R::f4);
}

TEST_F(UserNotices, SyncAckTravelsAsItsImageOf48Bytes) {
    expect_sends_image("Nac_UserTableSyncAckMsg", 3987961879, kSyncAck,
                       "04 00 00 00"                    // root reference
                       "e8 ff ff ff"                    // soffset -24: vtable at 28
                       "80 22 33 44"                    // f0
                       "81 22 33 44"                    // f1
                       "82 22 33 44"                    // f2
                       "83 22 33 44"                    // f3
                       "84 22 33 44"                    // f4
                       "0e 00 18 00"                    // vtable length, table length
                       "04 00 08 00 0c 00 10 00 14 00"  // places of f0 to f4
                       "00 00 00 00 00 00");            // padding
}

TEST_F(UserNotices, SyncAckUnpacksAlikeFromBothLayouts) { expect_both_layouts_unpack_to(kSyncAck); }

TEST_F(UserNotices, SyncAckReadsWholeFieldsOnly) {
    expect_reads_whole_fields_only<Nac_UserTableSyncAckMsg>(packed(kSyncAck), {4, 4, 4, 4, 4});
}

TEST_F(UserNotices, SyncAckReportsBadArguments) {
    expect_argument_faults<Nac_UserTableSyncAckMsg>("Nac_UserTableSyncAckMsg");
}

TEST_F(UserNotices, SyncAckIsUntouchedAfterAHeaderFault) {
    expect_header_faults<Nac_UserTableSyncAckMsg>(untouched, "Nac_UserTableSyncAckMsg_unpack");
}

TEST_F(UserNotices, SyncAckPackRefusals) { expect_pack_refusals("Nac_UserTableSyncAckMsg", kSyncAck, 42); }

TEST_F(UserNotices, SyncAckFreeDoesNothing) { expect_free_does_nothing<Nac_UserTableSyncAckMsg>(); }

}  // namespace
