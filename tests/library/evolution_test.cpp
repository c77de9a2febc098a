// SPDX-License-Identifier: Apache-2.0
// What two versions of a message do to each other, change by change: the grounds on which nac compat judges.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <utility>

#include "runtime/pack.h"
#include "runtime/unpack.h"
#include "tests/support/bytes.h"

namespace versions {

struct Address {
    std::uint8_t f0[6];
};
struct LongerAddress {
    std::uint8_t f0[8];
};
struct Row {
    std::uint32_t f0;
    std::uint16_t f1;
};
struct LongerRow {
    std::uint32_t f0;
    std::uint16_t f1;
    std::uint8_t f2;
};

// The message as it was, and what becomes of it. Each is Demo_Lease on the wire.
struct Lease {
    std::uint32_t f0;
    Address f1;
};
struct Appended {
    std::uint32_t f0;
    Address f1;
    std::uint16_t f2;
    Row f3;
    std::uint8_t f4[6];
    std::uint32_t f5_count;
    std::uint16_t* f5;
    std::uint32_t f6_count;
    Row* f6;
};
struct AppendedScalar {
    std::uint32_t f0;
    Address f1;
    std::uint16_t f2;
};
struct Shorter {
    std::uint32_t f0;
};
struct Inserted {
    std::uint32_t f0;
    std::uint16_t f1;
    Address f2;
};
struct Narrower {
    std::uint16_t f0;
    Address f1;
};
struct Wider {
    std::uint64_t f0;
    Address f1;
};
struct OtherLength {
    std::uint32_t f0;
    LongerAddress f1;
};
struct Rows {
    std::uint32_t f0_count;
    Row* f0;
};
struct LongerRows {
    std::uint32_t f0_count;
    LongerRow* f0;
};
struct Holder {
    std::uint32_t f0;
    Row f1;
    std::uint32_t f2;
};
struct LongerHolder {
    std::uint32_t f0;
    LongerRow f1;
    std::uint32_t f2;
};
struct Bytes6 {
    std::uint8_t f0[6];
};
struct AnyBytes {
    std::uint32_t f0_count;
    std::uint8_t* f0;
};
struct Words {
    std::uint32_t f0_count;
    std::uint32_t* f0;
};
struct HalfWords {
    std::uint32_t f0_count;
    std::uint16_t* f0;
};

}  // namespace versions

namespace kaplo {

#define DESCRIBE(Record, text, ...)                \
    template <>                                    \
    struct Description<versions::Record> : Usual { \
        using R = versions::Record;                \
        static constexpr Text name = text;         \
        using Fields = List<__VA_ARGS__>;          \
    }
DESCRIBE(Address, "Address", Field<&R::f0>);
DESCRIBE(LongerAddress, "Address", Field<&R::f0>);
DESCRIBE(Row, "Row", Field<&R::f0>, Field<&R::f1>);
DESCRIBE(LongerRow, "Row", Field<&R::f0>, Field<&R::f1>, Field<&R::f2>);
DESCRIBE(Lease, "Demo_Lease", Field<&R::f0>, Field<&R::f1>);
DESCRIBE(Appended, "Demo_Lease", Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>,
         Vector<&R::f5_count, &R::f5>, Vector<&R::f6_count, &R::f6>);
DESCRIBE(AppendedScalar, "Demo_Lease", Field<&R::f0>, Field<&R::f1>, Field<&R::f2>);
DESCRIBE(Shorter, "Demo_Lease", Field<&R::f0>);
DESCRIBE(Inserted, "Demo_Lease", Field<&R::f0>, Field<&R::f1>, Field<&R::f2>);
DESCRIBE(Narrower, "Demo_Lease", Field<&R::f0>, Field<&R::f1>);
DESCRIBE(Wider, "Demo_Lease", Field<&R::f0>, Field<&R::f1>);
DESCRIBE(OtherLength, "Demo_Lease", Field<&R::f0>, Field<&R::f1>);
DESCRIBE(Rows, "Demo_Rows", Vector<&R::f0_count, &R::f0>);
DESCRIBE(LongerRows, "Demo_Rows", Vector<&R::f0_count, &R::f0>);
DESCRIBE(Holder, "Demo_Holder", Field<&R::f0>, Field<&R::f1>, Field<&R::f2>);
DESCRIBE(LongerHolder, "Demo_Holder", Field<&R::f0>, Field<&R::f1>, Field<&R::f2>);
DESCRIBE(Bytes6, "Demo_Bytes", Field<&R::f0>);
DESCRIBE(AnyBytes, "Demo_Bytes", Vector<&R::f0_count, &R::f0>);
DESCRIBE(Words, "Demo_Words", Vector<&R::f0_count, &R::f0>);
DESCRIBE(HalfWords, "Demo_Words", Vector<&R::f0_count, &R::f0>);
#undef DESCRIBE

}  // namespace kaplo

namespace {

using namespace versions;
using kaplo::Outcome;
using tests::Bytes;

kaplo::Unit unit;

template <class Record>
Bytes packed(const Record& record) {
    Bytes bytes(256);
    auto length = static_cast<std::uint32_t>(bytes.size());
    EXPECT_EQ(kaplo::pack(unit, &record, bytes.data(), &length), 0U);
    bytes.resize(length);
    return bytes;
}

template <class Record>
Bytes image_of(const Record& record) {
    Bytes bytes(kaplo::Image<Record>::bytes);
    kaplo::write_image(unit, record, bytes.data());
    return bytes;
}

// What a process that knows `Record` has of another's message, until it goes out of scope.
template <class Record>
struct Received {
    explicit Received(const Bytes& bytes) {
        // An exact copy on the heap: a sanitizer sees a read after its end.
        EXPECT_EQ(kaplo::unpack(unit, bytes.data(), static_cast<std::uint32_t>(bytes.size()), &record),
                  sizeof(Record));
        Record other = {};
        const kaplo::Region<kaplo::ByteOrder::host> region(bytes.data(),
                                                           static_cast<std::uint32_t>(bytes.size()));
        outcome = kaplo::read_root(unit, region, other);
        kaplo::free_unpacked(unit, &other);
    }
    ~Received() { kaplo::free_unpacked(unit, &record); }
    Received(const Received&) = delete;
    Received& operator=(const Received&) = delete;

    Record record = {};
    Outcome outcome;
};

constexpr Lease kLease = {3600, {{2, 0, 94, 16, 0, 1}}};

template <class Record>
void expect_lease(const Record& record) {
    EXPECT_EQ(record.f0, kLease.f0);
    EXPECT_EQ(std::to_array(record.f1.f0), std::to_array(kLease.f1.f0));
}

TEST(AppendedFields, AreSkippedByOldReaders) {
    std::array<std::uint16_t, 2> numbers = {7, 8};
    std::array<Row, 1> rows = {{{9, 10}}};
    const Appended record = {3600, kLease.f1,      5, {1, 2},     {1, 2, 3, 4, 5, 6},
                             2,    numbers.data(), 1, rows.data()};
    const Received<Lease> received(packed(record));
    EXPECT_EQ(received.outcome, Outcome::whole);
    expect_lease(received.record);
}

TEST(AppendedFields, ReadAsZeroOrEmptyFromOldSenders) {
    for (const Bytes& bytes : {packed(kLease), image_of(kLease)}) {
        const Received<Appended> received(bytes);
        EXPECT_EQ(received.outcome, Outcome::whole);
        expect_lease(received.record);
        EXPECT_EQ(received.record.f2, 0);
        EXPECT_EQ(received.record.f3.f0, 0U);
        EXPECT_EQ(std::to_array(received.record.f4), (std::array<std::uint8_t, 6>{}));
        EXPECT_EQ(received.record.f5_count, 0U);
        EXPECT_EQ(received.record.f5, nullptr);
        EXPECT_EQ(received.record.f6_count, 0U);
        EXPECT_EQ(received.record.f6, nullptr);
    }
}

TEST(AppendedFields, PassInTheFixedImageToo) {
    const Received<Lease> received(image_of(AppendedScalar{3600, kLease.f1, 5}));
    EXPECT_EQ(received.outcome, Outcome::whole);
    expect_lease(received.record);
}

TEST(AppendedFields, OfTablesInVectorsAreSkippedAndReadAsZero) {
    std::array<LongerRow, 2> longer = {{{1, 2, 3}, {4, 5, 6}}};
    const Received<Rows> old_reader(packed(LongerRows{2, longer.data()}));
    ASSERT_EQ(old_reader.outcome, Outcome::whole);
    ASSERT_EQ(old_reader.record.f0_count, 2U);
    EXPECT_EQ(old_reader.record.f0[1].f0, 4U);
    EXPECT_EQ(old_reader.record.f0[1].f1, 5);

    std::array<Row, 2> rows = {{{1, 2}, {4, 5}}};
    const Received<LongerRows> new_reader(packed(Rows{2, rows.data()}));
    ASSERT_EQ(new_reader.outcome, Outcome::whole);
    EXPECT_EQ(new_reader.record.f0[1].f0, 4U);
    EXPECT_EQ(new_reader.record.f0[1].f2, 0);
}

TEST(AppendedFields, OfNestedTablesAreSkippedAndReadAsZeroInBothLayouts) {
    const LongerHolder longer = {1, {2, 3, 4}, 5};
    for (const Bytes& bytes : {packed(longer), image_of(longer)}) {
        const Received<Holder> old_reader(bytes);
        EXPECT_EQ(old_reader.outcome, Outcome::whole);
        EXPECT_EQ(old_reader.record.f1.f1, 3);
        EXPECT_EQ(old_reader.record.f2, 5U);
    }
    const Holder holder = {1, {2, 3}, 5};
    for (const Bytes& bytes : {packed(holder), image_of(holder)}) {
        const Received<LongerHolder> new_reader(bytes);
        EXPECT_EQ(new_reader.outcome, Outcome::whole);
        EXPECT_EQ(new_reader.record.f1.f1, 3);
        EXPECT_EQ(new_reader.record.f1.f2, 0);
        EXPECT_EQ(new_reader.record.f2, 5U);
    }
}

TEST(FieldsRemovedAtTheEnd, LoseTheirValuesAndNothingElse) {
    const Received<Shorter> new_reader(packed(kLease));
    EXPECT_EQ(new_reader.outcome, Outcome::whole);
    EXPECT_EQ(new_reader.record.f0, 3600U);
    const Received<Lease> old_reader(packed(Shorter{3600}));
    EXPECT_EQ(old_reader.outcome, Outcome::whole);
    EXPECT_EQ(old_reader.record.f0, 3600U);
    EXPECT_EQ(std::to_array(old_reader.record.f1.f0), (std::array<std::uint8_t, 6>{}));
}

TEST(MovedFields, AreTakenForOthers) {
    const Received<Inserted> new_reader(packed(kLease));
    EXPECT_EQ(new_reader.outcome, Outcome::whole);  // nobody sees it
    EXPECT_EQ(new_reader.record.f1, 10);            // the distance to the address
    EXPECT_EQ(std::to_array(new_reader.record.f2.f0), (std::array<std::uint8_t, 6>{}));
    const Received<Lease> old_reader(packed(Inserted{3600, 5, kLease.f1}));
    EXPECT_NE(old_reader.outcome, Outcome::whole);
}

TEST(OtherWidths, TakeWhatFollowsOrTheLowestBytes) {
    const Received<Wider> wider(packed(kLease));
    EXPECT_EQ(wider.outcome, Outcome::whole);
    EXPECT_EQ(wider.record.f0, 10ULL << 32 | 3600);  // with the distance to the address
    const Received<Narrower> narrower(packed(Lease{0x12345, kLease.f1}));
    EXPECT_EQ(narrower.outcome, Outcome::whole);
    EXPECT_EQ(narrower.record.f0, 0x2345);
}

TEST(OtherWidths, OfElementsAreMisreadOrRefused) {
    std::array<std::uint32_t, 2> words = {1, 2};
    const Received<HalfWords> narrower(packed(Words{2, words.data()}));
    EXPECT_EQ(narrower.outcome, Outcome::whole);
    EXPECT_EQ(narrower.record.f0[1], 0);
    std::array<std::uint16_t, 2> half_words = {1, 2};
    EXPECT_EQ(Received<Words>(packed(HalfWords{2, half_words.data()})).outcome, Outcome::bad_field);
}

TEST(OtherLengths, OfFixedArraysAreRefused) {
    EXPECT_EQ(Received<OtherLength>(packed(kLease)).outcome, Outcome::bad_field);
    EXPECT_EQ(Received<OtherLength>(image_of(kLease)).outcome, Outcome::bad_field);
    EXPECT_EQ(Received<Lease>(packed(OtherLength{1, {{1, 2, 3, 4, 5, 6, 7, 8}}})).outcome,
              Outcome::bad_field);
}

TEST(VectorsForFixedArrays, AreRefusedUnlessTheyHaveItsLength) {
    std::array<std::uint8_t, 7> bytes = {1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(Received<AnyBytes>(packed(Bytes6{{1, 2, 3, 4, 5, 6}})).outcome, Outcome::whole);
    EXPECT_EQ(Received<Bytes6>(packed(AnyBytes{6, bytes.data()})).outcome, Outcome::whole);
    EXPECT_EQ(Received<Bytes6>(packed(AnyBytes{7, bytes.data()})).outcome, Outcome::bad_field);
    const Received<Bytes6> empty(packed(AnyBytes{0, nullptr}));
    EXPECT_EQ(empty.outcome, Outcome::whole);
    EXPECT_EQ(std::to_array(empty.record.f0), (std::array<std::uint8_t, 6>{}));
}

TEST(NumbersForReferences, AreMisreadOrRefused) {
    EXPECT_EQ(Received<Rows>(packed(Shorter{3600})).outcome, Outcome::bad_field);
    std::array<Row, 1> rows = {{{1, 2}}};
    const Received<Shorter> number(packed(Rows{1, rows.data()}));
    EXPECT_EQ(number.outcome, Outcome::whole);
    EXPECT_EQ(number.record.f0, 4U);  // the distance to the vector
}

}  // namespace
