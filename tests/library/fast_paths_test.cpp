// SPDX-License-Identifier: Apache-2.0
// Which ways are taken where a table is wide: looking for zeros in words of a record, and reading what
// follows the scalars by the frame. Bytes and records do not show it: the ways that are slower give the same.
#include "runtime/absent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "nac/catalogue.h"
#include "runtime/frame.h"
#include "runtime/region.h"
#include "tests/support/each_scalar.h"
#include "tests/support/plain_writer.h"
#include "tests/support/random_record.h"

// Records whose words begin and end where no message's do.
struct Sixteen {
    std::uint32_t f0, f1, f2, f3;
};
struct Twenty {
    std::uint16_t f0, f1, f2, f3, f4, f5, f6, f7, f8, f9;
};
template <>
struct kaplo::Description<Sixteen> : kaplo::Usual {
    using R = Sixteen;
    static constexpr Text name = "Sixteen";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>>;
};
template <>
struct kaplo::Description<Twenty> : kaplo::Usual {
    using R = Twenty;
    static constexpr Text name = "Twenty";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>,
                        Field<&R::f5>, Field<&R::f6>, Field<&R::f7>, Field<&R::f8>, Field<&R::f9>>;
};

namespace {

// A record whose bytes are all the same, padding too.
template <class Record>
Record filled(int byte) {
    Record record;
    std::memset(&record, byte, sizeof record);
    return record;
}

template <class Record>
void expect_zeros_found() {
    std::uint32_t scalars = 0;
    for (const std::uint8_t other : std::array<std::uint8_t, 3>{0x01, 0x80, 0xFF}) {
        auto record = filled<Record>(0);
        tests::each_scalar(record, [&](auto& scalar) { scalar = other; });
        EXPECT_TRUE(kaplo::has_every_scalar(record)) << "zeros in arrays and padding are no absent scalars";
        tests::each_scalar(record, [](auto& scalar) {
            scalar = static_cast<std::remove_reference_t<decltype(scalar)>>(std::uint64_t{1}
                                                                            << (8 * sizeof scalar - 1));
        });
        EXPECT_TRUE(kaplo::has_every_scalar(record)) << "one bit is enough";
        record = filled<Record>(other);
        tests::each_scalar(record, [&](auto& scalar) {
            const auto value = scalar;
            scalar = 0;
            EXPECT_FALSE(kaplo::has_every_scalar(record)) << "each scalar is looked at";
            scalar = value;
            ++scalars;
        });
    }
    EXPECT_NE(scalars, 0U);
}

TEST(Absent, FindsEachScalarOfWideRecords) {
    expect_zeros_found<Nac_DaclRuleIpInfo>();
    expect_zeros_found<Nac_RadiusDaclRule>();
    expect_zeros_found<Nac_UserTableHitMsg>();
    expect_zeros_found<Nac_SetUserTableAckMsg>();
    expect_zeros_found<Sixteen>();
    expect_zeros_found<Twenty>();
}

TEST(Absent, FindsEachScalarOfOtherRecords) {
    expect_zeros_found<Nac_SetPortMsg>();
    expect_zeros_found<Nac_UserDetectInfo>();
    expect_zeros_found<Nac_L2NotifyNacUserOfflineMsg>();
    expect_zeros_found<Nac_UserDataFlowInfo>();
    expect_zeros_found<Nac_UserDataFlowQueryAckMsg>();
}

TEST(Absent, LooksAtWordsWhereTheyHaveManyScalars) {
    // Four numbers of 4 bytes, eight of 2, and ten more; 80 bytes of arrays between them.
    EXPECT_EQ(kaplo::ScalarWords<Nac_DaclRuleIpInfo>::count, 3U);
    EXPECT_EQ(kaplo::ScalarWords<Nac_DaclRuleIpInfo>::scalars, 22U);
    EXPECT_TRUE(kaplo::has_scalars_in_words<Nac_DaclRuleIpInfo>());
    EXPECT_EQ(kaplo::ScalarWords<Nac_RadiusDaclRule>::scalars, 28U);
    EXPECT_TRUE(kaplo::has_scalars_in_words<Nac_RadiusDaclRule>());
    EXPECT_EQ(kaplo::ScalarWords<Nac_UserDataFlowInfo>::scalars, 18U);
    EXPECT_FALSE(kaplo::has_scalars_in_words<Nac_UserDataFlowInfo>()) << "two numbers of 8 bytes in a word";
    EXPECT_FALSE(kaplo::has_scalars_in_words<Nac_SetPortMsg>()) << "8 bytes";
    EXPECT_TRUE(kaplo::has_scalars_in_words<Sixteen>()) << "four in a word are enough, and 16 bytes";
    EXPECT_EQ(kaplo::ScalarWords<Twenty>::count, 2U) << "the second one ends with the record";
    EXPECT_TRUE(kaplo::has_scalars_in_words<Twenty>());
}

// ---- what follows the scalars of a DACL rule -------------------------------------------------------------

constexpr auto kHost = kaplo::ByteOrder::host;
using Frame = kaplo::CompactFrame<Nac_DaclRuleIpInfo>;
constexpr std::uint32_t kTail = kaplo::shared_tail<Nac_DaclRuleIpInfo, kHost>();
constexpr std::uint32_t kTailBytes = Frame::needed_bytes - kTail;
constexpr std::size_t kVtable = 4;
constexpr std::size_t kFirstReferenceSlot = kVtable + 4 + 2 * 4;  // of the field f4

std::vector<std::uint8_t> dacl_message(std::uint16_t f8) {
    auto record = *tests::RandomRecords<Nac_DaclRuleIpInfo>(1, tests::Filling::rich);
    record.f8 = f8;
    return tests::PlainWriter(std::endian::native).compact(record);
}

const std::uint8_t* references(const std::vector<std::uint8_t>& message, std::uint32_t bytes) {
    kaplo::Unit unit = {};
    const kaplo::Region<kHost> region(message.data(), static_cast<std::uint32_t>(message.size()));
    kaplo::Table<kHost> table;
    EXPECT_TRUE(table.open(unit, region, region.root_reference(), "Test"));
    EXPECT_TRUE(table.holds_scalars<Nac_DaclRuleIpInfo>());
    return table.references<Nac_DaclRuleIpInfo>(bytes);
}

TEST(SharedTail, StartsAfterTheScalarsOfDaclRules) {
    // A vtable of 60 bytes, the soffset, 4 numbers of 4 bytes, 13 of 2, 5 of 1.
    EXPECT_EQ((kaplo::shared_tail<Nac_DaclRuleIpInfo, kHost>()), 60U + 4 + 16 + 26 + 5);
    EXPECT_EQ((kaplo::shared_tail<Nac_RadiusDaclRule, kHost>()), 0U) << "an inner table";
    EXPECT_EQ((kaplo::shared_tail<Nac_SetUserTableMsg, kHost>()), 0U) << "vectors";
    EXPECT_EQ((kaplo::shared_tail<Nac_L2NotifyNacUserOfflineMsg, kHost>()), 0U) << "less than a word";
    EXPECT_EQ((kaplo::shared_tail<Nac_UserTableHitMsg, kHost>()), 0U) << "no arrays";
    EXPECT_EQ((kaplo::shared_tail<Nac_DaclRuleIpInfo, kaplo::ByteOrder::reversed>()), 0U);
}

constexpr std::array<std::size_t, 6> kReferences = {4, 5, 6, 7, 16, 17};  // field ids

TEST(SharedTail, IsFoundWhereverTheScalarsEnd) {
    for (const std::uint16_t f8 : std::array<std::uint16_t, 2>{0, 1}) {
        const auto message = dacl_message(f8);
        const std::uint8_t* const tail = message.data() + message.size() - kTailBytes;
        EXPECT_EQ(references(message, kTailBytes), tail);
        EXPECT_TRUE(Frame::is_at<kTail>(tail));
        EXPECT_EQ(references(message, kTailBytes + 1), nullptr) << "more than there is";
        EXPECT_EQ(Frame::starts_at(message.data() + kVtable), f8 != 0)
            << "the table's length is in its first bytes";

        Nac_DaclRuleIpInfo record = {};
        Frame::read_fields<kTail>(tail, record);
        EXPECT_EQ(std::memcmp(record.f7, tail + 24 + 3 * 20 + 4, sizeof record.f7), 0);
        EXPECT_EQ(std::memcmp(record.f17, tail + kTailBytes - 6, sizeof record.f17), 0);
        EXPECT_EQ(record.f0, 0U) << "what comes before the tail is not read";
    }
}

TEST(SharedTail, IsNoneWhereASlotOrAReferenceIsAnother) {
    const auto message = dacl_message(0);
    for (const std::size_t slot : kReferences) {
        auto damaged = message;
        damaged[kVtable + 4 + 2 * slot] ^= 4;
        EXPECT_EQ(references(damaged, kTailBytes), nullptr) << slot;
    }
    auto absent = message;
    for (std::size_t k = 0; k < 6; ++k) {  // 0, 4, 8 and so on
        absent[kVtable + 4 + 2 * kReferences[k]] = static_cast<std::uint8_t>(4 * k);
    }
    ASSERT_EQ(absent[kFirstReferenceSlot], 0);
    EXPECT_EQ(references(absent, kTailBytes), nullptr) << "an absent array";

    std::array<std::uint8_t, kTailBytes> tail = {};
    std::copy_n(message.end() - kTailBytes, kTailBytes, tail.begin());
    for (std::size_t at = 0; at < kTailBytes; ++at) {
        const bool is_count =
            at >= 24 && at < 104 ? (at - 24) % 20 < 4 : (at >= 104 && at < 108) || (at >= 114 && at < 118);
        tail[at] ^= 1;
        EXPECT_EQ(Frame::is_at<kTail>(tail.data()), at >= 24 && !is_count) << at;
        tail[at] ^= 1;
    }
}

}  // namespace
