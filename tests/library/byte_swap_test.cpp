// SPDX-License-Identifier: Apache-2.0
// A unit with its byte-swap flag set, as a build for a big-endian host has it: every number is reversed.
//
// Expected numbers stand with their highest digits first, as a little-endian host that reverses writes them;
// reversed() turns them round where this host is big-endian.
#include <array>
#include <bit>

#include "runtime/pack.h"
#include "runtime/unpack.h"
#include "tests/support/message.h"

namespace example {

// A record with a number of every width and a vector of every kind of scalar.
struct Numbers {
    std::uint8_t f0;
    std::uint16_t f1;
    std::uint32_t f2;
    std::uint64_t f3;
    std::uint32_t f4_count;
    std::uint8_t* f4;
    std::uint32_t f5_count;
    std::uint16_t* f5;
    std::uint32_t f6_count;
    std::uint32_t* f6;
    std::uint16_t f7[2];
};

// A field after a nested image of 256 bytes, so at an offset above 255.
struct FarField {
    Nac_UserDataFlowInfo f0;
    std::uint32_t f1;
};

// A table longer than 255 bytes through a fixed array.
struct LongArray {
    std::uint8_t f0[300];
};

}  // namespace example

namespace kaplo {

template <>
struct Description<example::Numbers> : Usual {
    using R = example::Numbers;
    static constexpr Text name = "Numbers";
    using Fields =
        List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Vector<&R::f4_count, &R::f4>,
             Vector<&R::f5_count, &R::f5>, Vector<&R::f6_count, &R::f6>, Field<&R::f7>>;
};
template <>
struct Description<example::FarField> : Usual {
    using R = example::FarField;
    static constexpr Text name = "FarField";
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};
template <>
struct Description<example::LongArray> : Usual {
    using R = example::LongArray;
    static constexpr Text name = "LongArray";
    using Fields = List<Field<&R::f0>>;
};

}  // namespace kaplo

namespace {

using namespace tests;

class ByteSwap : public MessageTest {
  protected:
    // The first resolution of the hooks resets the flag, so it is set after that.
    ByteSwap() {
        kaplo::KaploMemHooksInit(unit);
        unit.byte_swap = 1;
    }

    template <class Record>
    Bytes packed_by(kaplo::Unit& packer, const Record& record) {
        Bytes bytes(kaplo::message_bytes(&record), 0xEE);
        auto length = static_cast<std::uint32_t>(bytes.size());
        EXPECT_EQ(kaplo::pack(packer, &record, bytes.data(), &length), 0U);
        EXPECT_EQ(length, bytes.size());
        return bytes;
    }
    template <class Record>
    Bytes packed(const Record& record) {
        return packed_by(unit, record);
    }
    template <class Record>
    Bytes image(const Record& record) {
        Bytes bytes(kaplo::Image<Record>::bytes, 0xEE);
        kaplo::write_image(unit, record, bytes.data());
        return bytes;
    }
    template <class Record>
    Record unpacked(const Bytes& bytes) {
        Record record;
        std::memset(static_cast<void*>(&record), 0xAA, sizeof record);
        EXPECT_EQ(kaplo::unpack(unit, bytes.data(), static_cast<std::uint32_t>(bytes.size()), &record),
                  sizeof record);
        return record;
    }
    // Unpacks what the unit packed and packs it again; frees the record in between.
    template <class Record>
    void expect_round_trip(const Record& record) {
        const Bytes bytes = packed(record);
        Record read = unpacked<Record>(bytes);
        EXPECT_TRUE(same_bytes(packed(read), bytes));
        // Packed in the host's order: the values themselves came through.
        kaplo::Unit other;
        kaplo::KaploMemHooksInit(other);
        other.byte_swap = 0;
        EXPECT_TRUE(same_bytes(packed_by(other, read), packed_by(other, record)));
        kaplo::free_unpacked(unit, &read);
        EXPECT_EQ(logged(), Lines{});
    }

    kaplo::Unit unit;
};

constexpr std::endian kOtherOrder =
    std::endian::native == std::endian::little ? std::endian::big : std::endian::little;

// What a reversing unit writes, from the numbers in it; what the same unit writes without its flag.
Bytes reversed(std::string_view text) { return numbers_in(kOtherOrder, text); }
void expect_reversed(const Bytes& actual, std::string_view text) {
    EXPECT_TRUE(same_bytes(actual, reversed(text)));
}
void expect_unreversed(const Bytes& actual, std::string_view text) {
    EXPECT_TRUE(same_bytes(actual, numbers_in(std::endian::native, text)));
}

// The flag with which units start makes the wire little-endian; the other one makes it big-endian.
static_assert(kaplo::kByteSwap == (std::endian::native == std::endian::little ? 0 : 1));
constexpr std::uint32_t kOtherFlag = 1 - kaplo::kByteSwap;

constexpr Nac_UserDataFlowCfg kCfg = {0x0102030405060708, 0x1112131415161718, 0x2122232425262728,
                                      0x3132333435363738};

constexpr std::string_view kReversedCfg =
    "00000010 "             // root reference
    "000c 0024 "            // vtable length, table length
    "0004 000c 0014 001c "  // offsets of f0 to f3
    "0000000c "             // soffset
    "0102030405060708 "     // f0, reversed as a whole
    "1112131415161718 "     // f1
    "2122232425262728 "     // f2
    "3132333435363738";     // f3

constexpr std::string_view kReversedCfgImage =
    "00000004 "             // root reference
    "ffffffdc "             // soffset -36
    "0102030405060708 "     // f0
    "1112131415161718 "     // f1
    "2122232425262728 "     // f2
    "3132333435363738 "     // f3
    "000c 0024 "            // vtable length, table length
    "0004 000c 0014 001c "  // offsets
    "00000000";             // padding

TEST_F(ByteSwap, ReversesEveryNumberOfTheCompactLayout) { expect_reversed(packed(kCfg), kReversedCfg); }

TEST_F(ByteSwap, ReversesEveryNumberOfTheImage) { expect_reversed(image(kCfg), kReversedCfgImage); }

TEST_F(ByteSwap, UnpacksBothReversedLayouts) {
    const auto from_compact = unpacked<Nac_UserDataFlowCfg>(reversed(kReversedCfg));
    const auto from_image = unpacked<Nac_UserDataFlowCfg>(reversed(kReversedCfgImage));
    EXPECT_EQ(std::memcmp(&from_compact, &kCfg, sizeof kCfg), 0);
    EXPECT_EQ(std::memcmp(&from_image, &kCfg, sizeof kCfg), 0);
    EXPECT_EQ(logged(), Lines{});
}

constexpr std::string_view kReversedNumbers =
    "00000018 "                    // root reference: table at 24
    "0014 0046 "                   // vtable length; table length 70, which counts the vectors
    "0004 0005 0007 000b "         // offsets of f0 to f3
    "0013 0017 001b 001f "         // offsets of f4 to f7
    "00000014 "                    // soffset
    "11 "                          // f0
    "1234 "                        // f1
    "12345678 "                    // f2
    "0102030405060708 "            // f3
    "00000010 "                    // f4, at 19: its vector at 35
    "00000013 "                    // f5, at 23: its vector at 42
    "00000017 "                    // f6, at 27: its vector at 50
    "0000001f "                    // f7, at 31: its vector at 62
    "00000003 61 62 63 "           // f4: bytes stay as they are
    "00000002 0102 0304 "          // f5: two u16
    "00000002 01020304 05060708 "  // f6: two u32
    "00000002 0a0b 0c0d";          // f7: two u16

TEST_F(ByteSwap, ReversesNumbersOfEveryWidthInFieldsAndVectorsButNoBytes) {
    std::array<std::uint8_t, 3> bytes = {'a', 'b', 'c'};
    std::array<std::uint16_t, 2> words = {0x0102, 0x0304};
    std::array<std::uint32_t, 2> longs = {0x01020304, 0x05060708};
    const example::Numbers numbers = {
        0x11,         0x1234, 0x12345678,   0x0102030405060708, 3, bytes.data(), 2,
        words.data(), 2,      longs.data(), {0x0A0B, 0x0C0D}};
    expect_reversed(packed(numbers), kReversedNumbers);
}

TEST_F(ByteSwap, ReadsNumbersOfEveryWidth) {
    auto numbers = unpacked<example::Numbers>(reversed(kReversedNumbers));
    EXPECT_EQ(numbers.f0, 0x11);
    EXPECT_EQ(numbers.f1, 0x1234);
    EXPECT_EQ(numbers.f2, 0x12345678U);
    EXPECT_EQ(numbers.f3, 0x0102030405060708U);
    ASSERT_EQ(numbers.f4_count, 3U);
    EXPECT_EQ(std::memcmp(numbers.f4, "abc", 3), 0);
    ASSERT_EQ(numbers.f5_count, 2U);
    EXPECT_EQ(numbers.f5[0], 0x0102);
    EXPECT_EQ(numbers.f5[1], 0x0304);
    ASSERT_EQ(numbers.f6_count, 2U);
    EXPECT_EQ(numbers.f6[0], 0x01020304U);
    EXPECT_EQ(numbers.f6[1], 0x05060708U);
    EXPECT_EQ(numbers.f7[0], 0x0A0B);
    EXPECT_EQ(numbers.f7[1], 0x0C0D);
    kaplo::free_unpacked(unit, &numbers);
}

TEST_F(ByteSwap, ReversesFixedArraysOfTheImageToo) {
    const Nac_L2NotifyNacUserOfflineMsg notice = {1, 2, 3, 0x0405, {10, 11, 12, 13, 14, 15}, 5, 6, 7};
    expect_reversed(image(notice),
                    "00000004 "             // root reference
                    "ffffffd4 "             // soffset -44
                    "00000001 "             // f0
                    "00000002 "             // f1
                    "00000003 "             // f2
                    "0405 "                 // f3
                    "00000004 "             // f4: the vector follows
                    "00000006 "             // its count
                    "0a 0b 0c 0d 0e 0f "    // its bytes, as they are
                    "00000005 "             // f5
                    "00000006 "             // f6
                    "00000007 "             // f7
                    "0014 002c "            // vtable length, table length
                    "0004 0008 000c 0010 "  // offsets of f0 to f3
                    "0012 0020 0024 0028 "  // offsets of f4 to f7
                    "00000000");            // padding
}

// ---- the shortened reversal: numbers that nobody reads, or that are below 256 ------------------------

TEST_F(ByteSwap, KeepsOnlyTheLowByteOfTheLengthOfATableWithoutVectors) {
    const Bytes answer = image(Nac_UserDataFlowQueryAckMsg{});
    expect_reversed(Bytes(answer.begin() + 268, answer.end()),
                    "0008 "       // vtable length
                    "0008 "       // table length 264 = 0x0108
                    "0004 0008 "  // offsets of f0 and f1
                    "00000000");  // padding
    const Bytes rule = image(Nac_RadiusDaclRule{});
    expect_reversed(Bytes(rule.begin() + 272, rule.end()),
                    "0012 "                                // vtable length
                    "0009 "                                // table length 265 = 0x0109
                    "0004 0005 0009 000d 0011 0015 0019 "  // offsets of f0 to f6
                    "00 00 00 00 00 00");                  // padding
}

TEST_F(ByteSwap, ReversesTheLengthOfATableWithVectorsInFull) {
    std::vector<Nac_UserDataFlowInfo> infos(100);
    const Bytes list = packed(Nac_UserDataFlowMsg{100, infos.data()});
    expect_reversed(Bytes(list.begin(), list.begin() + 22),
                    "0000000a "   // root reference
                    "0006 "       // vtable length
                    "019c "       // table length 412
                    "0004 "       // offset of f0
                    "00000006 "   // soffset
                    "00000004 "   // f0
                    "00000064");  // its count
    // The elements, without vectors, have short tables.
    expect_reversed(Bytes(list.begin() + 422, list.begin() + 426), "0010 0014");
}

TEST_F(ByteSwap, ReversesTheLengthOfATableWithByteVectorsInFull) {
    Bytes content(300, 0x61);
    Nac_IpsecAuthenAckMsg ack = {};
    ack.f14_count = 300;
    ack.f14 = content.data();
    const Bytes bytes = packed(ack);
    expect_reversed(Bytes(bytes.begin() + 4, bytes.begin() + 8), "0026 0138");  // 4 + 4 + 4 + 300
}

TEST_F(ByteSwap, ReversesTheLengthOfATableWithFixedArraysInFull) {
    const example::LongArray array = {};
    const Bytes compact = packed(array);
    expect_reversed(Bytes(compact.begin(), compact.begin() + 10), "0000000a 0006 0138 0004");
    const Bytes fixed = image(array);
    expect_reversed(Bytes(fixed.begin() + 4 + 312, fixed.begin() + 4 + 312 + 6), "0006 0138 0004");
}

TEST_F(ByteSwap, KeepsOnlyTheLowByteOfAFieldOffset) {
    const Bytes bytes = image(example::FarField{});
    ASSERT_EQ(bytes.size(), 280U);
    expect_reversed(Bytes(bytes.begin() + 268, bytes.begin() + 276),
                    "0008 "   // vtable length
                    "0008 "   // table length 264
                    "0004 "   // offset of f0
                    "0004");  // offset of f1: 260 = 0x0104
}

TEST_F(ByteSwap, ShowsNoneOfThisWithoutTheFlag) {
    unit.byte_swap = 0;
    const Bytes far_field = image(example::FarField{});
    expect_unreversed(Bytes(far_field.begin() + 268, far_field.begin() + 276), "0008 0108 0004 0104");
    const Bytes rule = image(Nac_RadiusDaclRule{});
    expect_unreversed(Bytes(rule.begin() + 272, rule.begin() + 276), "0012 0109");
}

// ---- round trips -------------------------------------------------------------------------------------

TEST_F(ByteSwap, RoundTripsNestedTables) {
    Nac_UserDataFlowQueryAckMsg answer = {};
    answer.f0 = 0x01020304;
    answer.f1 = {1, 0x10000, kCfg, {}, {0, 1, 0, 2}, kCfg};
    expect_round_trip(answer);
}

TEST_F(ByteSwap, RoundTripsVectorsOfTables) {
    std::vector<Nac_UserDataFlowInfo> infos(100);
    infos[0].f0 = 0x01020304;
    infos[99].f5 = kCfg;
    expect_round_trip(Nac_UserDataFlowMsg{100, infos.data()});
}

TEST_F(ByteSwap, RoundTripsTheUserTable) {
    std::array<std::uint8_t, 3> bytes = {1, 2, 3};
    std::array<std::uint16_t, 200> words = {0x0102, 0x0304};
    std::array<std::uint32_t, 2> longs = {0x01020304, 0x05060708};
    std::array<Nac_Ipv6Addr, 2> addresses = {};
    addresses[1].f0[15] = 0xFE;
    std::array<Nac_RadiusDaclRule, 2> rules = {};
    rules[0].f5 = 0x01020304;
    rules[1].f6.f8 = 0x0102;
    rules[1].f6.f16[0] = 9;
    Nac_SetUserTableMsg entry = {};
    entry.f0 = 0x0A0B0C0D;
    entry.f5[3] = 4;
    entry.f12_count = 2;
    entry.f12 = addresses.data();
    entry.f15_count = 200;
    entry.f15 = words.data();
    entry.f17 = 0x1234;
    entry.f19 = {1, 2, 3, 4, 5};
    entry.f31_count = 3;
    entry.f31 = bytes.data();
    entry.f32_count = 2;
    entry.f32 = rules.data();
    entry.f33 = {1, 2, 0x03040506};
    entry.f47 = 0x0102030405060708;
    entry.f52_count = 2;
    entry.f52 = longs.data();
    entry.f53[15] = 0x0102;
    expect_round_trip(entry);
    const Bytes packed_entry = packed(entry);
    expect_reversed(Bytes(packed_entry.begin(), packed_entry.begin() + 6), "00000076 0072");
    // The inline part of soffset, f0, f17, f47 and ten references, and the two fixed arrays: 104.
    expect_reversed(Bytes(packed_entry.begin() + 6, packed_entry.begin() + 8), "0068");
}

// ---- faults ------------------------------------------------------------------------------------------

TEST_F(ByteSwap, LogsNumbersAsTheyWereRead) {
    unpacked<Nac_UserDataFlowCfg>(reversed("000000ff"));
    unpacked<Nac_UserDataFlowCfg>(reversed("00000008 00ff 0004 00000004"));
    EXPECT_EQ(logged(),
              (Lines{"Nac_UserDataFlowCfg_unpack: [KAPLO]:Table offset(255) is out of range(4 - 4)",
                     "Nac_UserDataFlowCfg_unpack: [KAPLO]:Vtable Len(255) is out of range(0 - 8)"}));
}

TEST_F(ByteSwap, DoesNotUnderstandBytesInTheOtherOrder) {
    unit.byte_swap = 0;
    const auto cfg = unpacked<Nac_UserDataFlowCfg>(reversed(kReversedCfg));
    EXPECT_EQ(cfg.f0, 0xAAAAAAAAAAAAAAAA);
    EXPECT_EQ(logged_texts(), Lines{"[KAPLO]:Table offset(268435456) is out of range(4 - 52)"});
}

// ---- the flag ----------------------------------------------------------------------------------------

TEST_F(ByteSwap, IsOnWithAnyValueButZero) {
    for (const std::uint32_t value : {2U, 0x100U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(value);
        unit.byte_swap = value;
        expect_reversed(packed(kCfg), kReversedCfg);
        expect_reversed(image(kCfg), kReversedCfgImage);
        const auto cfg = unpacked<Nac_UserDataFlowCfg>(reversed(kReversedCfg));
        EXPECT_EQ(cfg.f0, kCfg.f0);
    }
}

TEST_F(ByteSwap, IsOffWithoutTheFlag) {
    unit.byte_swap = 0;
    const Bytes compact = packed(kCfg);
    expect_unreversed(Bytes(compact.begin(), compact.begin() + 8), "00000010 000c 0024");
    const Bytes fixed = image(kCfg);
    expect_unreversed(Bytes(fixed.begin(), fixed.begin() + 8), "00000004 ffffffdc");
}

TEST_F(ByteSwap, FlagIsResetByTheFirstPack) {
    kaplo::Unit fresh;
    fresh.byte_swap = kOtherFlag;
    const Bytes bytes = packed_by(fresh, kCfg);
    EXPECT_EQ(fresh.byte_swap, kaplo::kByteSwap);
    EXPECT_EQ(get32(bytes, 0), 16U);
}

TEST_F(ByteSwap, FlagIsResetByTheFirstPackThatRefuses) {
    kaplo::Unit fresh;
    fresh.byte_swap = kOtherFlag;
    std::uint32_t length = 0;
    EXPECT_EQ(kaplo::pack<Nac_UserDataFlowCfg>(fresh, nullptr, nullptr, &length), kRefused);
    EXPECT_EQ(fresh.byte_swap, kaplo::kByteSwap);
}

TEST_F(ByteSwap, FlagIsResetByTheFirstUnpackEvenIfItRefuses) {
    kaplo::Unit fresh;
    fresh.byte_swap = kOtherFlag;
    EXPECT_EQ(kaplo::unpack<Nac_UserDataFlowCfg>(fresh, nullptr, 0, nullptr), 32U);
    EXPECT_EQ(fresh.byte_swap, kaplo::kByteSwap);
}

TEST_F(ByteSwap, FlagIsResetByTheFirstImage) {
    kaplo::Unit fresh;
    fresh.byte_swap = kOtherFlag;
    Bytes bytes(56);
    kaplo::write_image(fresh, kCfg, bytes.data());
    EXPECT_EQ(fresh.byte_swap, kaplo::kByteSwap);
    EXPECT_EQ(get32(bytes, 0), 4U);
}

TEST_F(ByteSwap, FlagIsResetByTheFirstFreeWithSomethingToRelease) {
    kaplo::Unit fresh;
    fresh.byte_swap = kOtherFlag;
    Nac_UserDataFlowMsg list = {};
    kaplo::free_unpacked(fresh, &list);
    EXPECT_EQ(fresh.byte_swap, kaplo::kByteSwap);
}

TEST_F(ByteSwap, FlagIsResetOnceOnly) {
    unit.byte_swap = kOtherFlag;
    packed(kCfg);
    unpacked<Nac_UserDataFlowCfg>(hex("ff ff ff ff"));  // this also resolves the log hook
    EXPECT_EQ(unit.byte_swap, kOtherFlag);
}

TEST_F(ByteSwap, FlagIsResetAtStartUp) {
    unit.byte_swap = kOtherFlag;
    unit.start_up();
    EXPECT_EQ(unit.byte_swap, kaplo::kByteSwap);
}

TEST_F(ByteSwap, FlagBelongsToOneUnit) {
    unit.byte_swap = kOtherFlag;
    kaplo::Unit other;
    EXPECT_EQ(get32(packed_by(other, kCfg), 0), 16U);
    EXPECT_EQ(get32(packed(kCfg), 0), 0x10000000U);
}

}  // namespace
