// SPDX-License-Identifier: Apache-2.0
// A record that no module knows, described here and nowhere else, goes through all of the codec.
#include <array>
#include <bit>

#include "runtime/pack.h"
#include "runtime/unpack.h"
#include "tests/support/message.h"

namespace example {

struct Address {
    std::uint8_t f0[4];
    std::uint16_t f1;
};

struct Route {
    std::uint32_t f0;
    Address f1;
};

// One field of every kind.
struct Nac_Lease {
    std::uint8_t f0;
    std::uint64_t f1;
    Address f2;
    std::uint32_t f3_count;
    std::uint16_t* f3;
    std::uint32_t f4_count;
    Route* f4;
    std::uint16_t f5[2];
    std::uint32_t f6_count;
    std::uint8_t* f6;
};

// The same fields as Address, with a nested decoder that checks its arguments.
struct Suspicious {
    std::uint8_t f0[4];
    std::uint16_t f1;
};

struct Owner {
    Suspicious f0;
};

}  // namespace example

namespace kaplo {

template <>
struct Description<example::Address> : Usual {
    using R = example::Address;
    static constexpr Text name = "Address";
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};
template <>
struct Description<example::Route> : Usual {
    using R = example::Route;
    static constexpr Text name = "Route";
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};
template <>
struct Description<example::Nac_Lease> : Usual {
    using R = example::Nac_Lease;
    static constexpr Text name = "Nac_Lease";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Vector<&R::f3_count, &R::f3>,
                        Vector<&R::f4_count, &R::f4>, Field<&R::f5>, Vector<&R::f6_count, &R::f6>>;
};
template <>
struct Description<example::Suspicious> : Usual {
    using R = example::Suspicious;
    static constexpr Text name = "Suspicious";
    static constexpr bool nested_decoder_checks_arguments = true;
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};
template <>
struct Description<example::Owner> : Usual {
    using R = example::Owner;
    static constexpr Text name = "Owner";
    using Fields = List<Field<&R::f0>>;
};

}  // namespace kaplo

namespace {

using namespace tests;
using example::Address;
using example::Nac_Lease;
using example::Owner;
using example::Route;
using example::Suspicious;

// A lease with something in every field, and its arrays.
struct FullLease {
    std::array<std::uint16_t, 3> numbers = {0x0102, 0x0304, 0x0506};
    std::array<Route, 2> routes = {Route{9, {{1, 2, 3, 4}, 0}}, Route{0, {{0, 0, 0, 0}, 0x1234}}};
    std::array<std::uint8_t, 2> name = {'h', 'i'};
    Nac_Lease record = {0x11, 0x0102030405060708, {{10, 0, 0, 1}, 24}, 3, numbers.data(),
                        2,    routes.data(),      {0x0A0B, 0},         2, name.data()};
};

constexpr std::string_view kFullLease =
    "16 00 00 00"                                      // root reference: table at 22
    "12 00 45 00"                                      // vtable length; table length 69 with the vectors
    "04 00 05 00 0d 00 11 00 15 00 19 00 1d 00"        // offsets of f0 to f6
    "12 00 00 00"                                      // soffset
    "11"                                               // f0
    "08 07 06 05 04 03 02 01"                          // f1
    "40 00 00 00"                                      // f2, 13 from the table start: its table at 77
    "10 00 00 00"                                      // f3, at 17: its vector at 33
    "16 00 00 00"                                      // f4, at 21: its vector at 43
    "1e 00 00 00"                                      // f5, at 25: its vector at 55
    "22 00 00 00"                                      // f6, at 29: its vector at 63
    "03 00 00 00 02 01 04 03 06 05"                    // f3: three u16, at an odd position
    "02 00 00 00"                                      // f4: count
    "38 00 00 00"                                      // element 0, at 47: its table at 103
    "60 00 00 00"                                      // element 1, at 51: its table at 147
    "02 00 00 00 0b 0a 00 00"                          // f5
    "02 00 00 00 68 69"                                // f6
    "08 00 12 00 04 00 08 00"                          // f2: vtable
    "08 00 00 00"                                      // soffset
    "06 00 00 00"                                      // f0
    "18 00"                                            // f1
    "04 00 00 00 0a 00 00 01"                          // f0's count and bytes
    "08 00 0c 00 04 00 08 00"                          // element 0: vtable
    "08 00 00 00"                                      // soffset
    "09 00 00 00"                                      // f0
    "0c 00 00 00"                                      // f1
    "08 00 10 00 04 00 00 00"                          // its f1: vtable, f1 absent
    "08 00 00 00 04 00 00 00 04 00 00 00 01 02 03 04"  // soffset, f0, its count and bytes
    "08 00 08 00 00 00 04 00"                          // element 1: vtable, f0 absent
    "08 00 00 00"                                      // soffset
    "0c 00 00 00"                                      // f1
    "08 00 12 00 04 00 08 00"                          // its f1: vtable
    "08 00 00 00 06 00 00 00 34 12"                    // soffset, f0, f1
    "04 00 00 00 00 00 00 00";                         // f0's count and bytes

class Described : public MessageTest {
  protected:
    template <class Record>
    Bytes packed(const Record& record) {
        const std::uint32_t size = kaplo::message_bytes(&record);
        GuardedBuffer buffer(size);
        std::memset(buffer.data(), 0xEE, size);
        std::uint32_t length = size;
        EXPECT_EQ(kaplo::pack(unit, &record, buffer.data(), &length), 0U);
        EXPECT_EQ(length, size);
        return {buffer.data(), buffer.data() + size};
    }
    template <class Record>
    void unpack(const Bytes& bytes, Record& record) {
        std::memset(static_cast<void*>(&record), 0xAA, sizeof record);
        GuardedBuffer buffer(bytes);
        EXPECT_EQ(kaplo::unpack(unit, buffer.data(), buffer.size(), &record), sizeof record);
    }

    kaplo::Unit unit;
};

TEST_F(Described, SizeOfAnEmptyRecordIsItsFrameAndWhatIsAlwaysWritten) {
    // Root reference 4, vtable 18, soffset 4; f2: 4, and vtable 8, soffset 4, array 4 + 4 + 4; f5: 4 + 4 + 4.
    EXPECT_EQ(kaplo::message_bytes(static_cast<const Nac_Lease*>(nullptr)), 0U);
    const Nac_Lease empty = {};
    EXPECT_EQ(kaplo::message_bytes(&empty), 26U + 28U + 12U);
}

TEST_F(Described, SizeGrowsByEveryFieldThatIsThere) {
    FullLease full;
    // f0, f1, f2.f1; three u16; two routes with their f0 and one f1; two bytes.
    EXPECT_EQ(kaplo::message_bytes(&full.record),
              66U + 1U + 8U + 2U + (8U + 6U) + (8U + 2U * 4U + 40U + 4U + 40U + 2U) + (8U + 2U));
}

TEST_F(Described, PacksAllKindsOfFields) { EXPECT_BYTES(packed(FullLease().record), kFullLease); }

TEST_F(Described, UnpacksAllKindsOfFields) {
    Nac_Lease lease;
    unpack(hex(kFullLease), lease);
    EXPECT_EQ(lease.f0, 0x11);
    EXPECT_EQ(lease.f1, 0x0102030405060708U);
    EXPECT_EQ(lease.f2.f0[0], 10);
    EXPECT_EQ(lease.f2.f0[3], 1);
    EXPECT_EQ(lease.f2.f1, 24);
    ASSERT_EQ(lease.f3_count, 3U);
    EXPECT_EQ(lease.f3[2], 0x0506);
    ASSERT_EQ(lease.f4_count, 2U);
    EXPECT_EQ(lease.f4[0].f0, 9U);
    EXPECT_EQ(lease.f4[0].f1.f0[3], 4);
    EXPECT_EQ(lease.f4[1].f0, 0U);
    EXPECT_EQ(lease.f4[1].f1.f1, 0x1234);
    EXPECT_EQ(lease.f5[0], 0x0A0B);
    EXPECT_EQ(lease.f5[1], 0);
    ASSERT_EQ(lease.f6_count, 2U);
    EXPECT_EQ(std::memcmp(lease.f6, "hi", 2), 0);
    EXPECT_EQ(logged(), Lines{});
    kaplo::free_unpacked(unit, &lease);
}

TEST_F(Described, AllocatesAndReleasesUnderItsOwnNames) {
    Nac_Lease lease;
    unpack(hex(kFullLease), lease);
    const auto allocations = services.allocations();
    ASSERT_EQ(allocations.size(), 3U);
    EXPECT_EQ(allocations[0].size, 6U);
    EXPECT_EQ(allocations[1].size, 2 * sizeof(Route));
    EXPECT_EQ(allocations[2].size, 2U);
    for (const Allocation& allocation : allocations) {
        EXPECT_EQ(allocation.allocator, Allocator::cache);
        EXPECT_EQ(allocation.owner_code, 12U);
        EXPECT_EQ(allocation.caller, "Nac_Lease_unpack");
    }
    kaplo::free_unpacked(unit, &lease);
    const auto releases = services.releases();
    ASSERT_EQ(releases.size(), 3U);
    for (std::size_t i = 0; i < releases.size(); ++i) {
        EXPECT_EQ(releases[i].block, allocations[i].block);
        EXPECT_EQ(releases[i].owner_code, 12U);
        EXPECT_EQ(releases[i].caller, "Nac_Lease_free_unpacked");
    }
    EXPECT_EQ(lease.f3, nullptr);
    EXPECT_EQ(lease.f4, nullptr);
    EXPECT_EQ(lease.f6, nullptr);
    EXPECT_EQ(lease.f3_count, 3U);
    EXPECT_EQ(lease.f4_count, 2U);
    EXPECT_EQ(lease.f6_count, 2U);
}

TEST_F(Described, NullArraysAreNotHandedToTheFreeHook) {
    Nac_Lease lease = {};
    kaplo::free_unpacked(unit, &lease);
    EXPECT_EQ(services.releases().size(), 0U);
    kaplo::free_unpacked<Nac_Lease>(unit, nullptr);
    EXPECT_EQ(services.releases().size(), 0U);
}

TEST_F(Described, FreeOfARecordWithoutVectorsDoesNothing) {
    Owner owner = {{{1, 2, 3, 4}, 5}};
    const std::size_t questions = services.use_flag_calls();
    kaplo::free_unpacked(unit, &owner);
    EXPECT_EQ(owner.f0.f1, 5);
    EXPECT_EQ(services.releases().size(), 0U);
    EXPECT_EQ(services.use_flag_calls(), questions) << "not even its hooks are resolved";
}

TEST_F(Described, EmptyScalarVectorWithAPointerCostsNothing) {
    FullLease full;
    Nac_Lease lease = {};
    const Bytes empty = packed(lease);
    lease.f3 = full.record.f3;
    lease.f4 = full.record.f4;
    lease.f6 = full.record.f6;
    EXPECT_TRUE(same_bytes(packed(lease), empty));
}

TEST_F(Described, VectorWithACountAndANullPointerCostsNothing) {
    Nac_Lease lease = {};
    const Bytes empty = packed(lease);
    lease.f3_count = lease.f4_count = lease.f6_count = 7;
    EXPECT_TRUE(same_bytes(packed(lease), empty));
}

TEST_F(Described, FailedAllocationIsLoggedWithSixteenBlanksUnderTheRootName) {
    services.fail_allocation(1);
    Nac_Lease lease;
    unpack(hex(kFullLease), lease);
    EXPECT_EQ(lease.f3_count, 3U);
    EXPECT_EQ(lease.f3, nullptr);
    EXPECT_EQ(lease.f4_count, 2U);
    EXPECT_EQ(lease.f4, nullptr);
    EXPECT_EQ(lease.f5[0], 0);
    EXPECT_EQ(logged(), Lines{"Nac_Lease_unpack: [KAPLO]:Malloc unpack data unsuccess,                size(" +
                              std::to_string(2 * sizeof(Route)) + ")"});
    EXPECT_EQ(services.releases().size(), 1U);
}

TEST_F(Described, HeaderFaultClearsARecordWithVectorsAndLeavesOthersAlone) {
    const Bytes bad = hex("ff 00 00 00");
    Nac_Lease lease;
    unpack(bad, lease);
    EXPECT_EQ(lease.f1, 0U);
    EXPECT_EQ(lease.f6, nullptr);
    Owner owner;
    unpack(bad, owner);
    EXPECT_EQ(owner.f0.f1, 0xAAAA);
    EXPECT_EQ(logged(), (Lines{"Nac_Lease_unpack: [KAPLO]:Table offset(255) is out of range(4 - 4)",
                               "Owner_unpack: [KAPLO]:Table offset(255) is out of range(4 - 4)"}));
}

TEST_F(Described, FaultInANestedTableIsLoggedUnderItsOwnName) {
    Bytes bytes = hex(kFullLease);
    put32(bytes, 22 + 47, 0x00FFFFFF);  // element 0 far outside
    Nac_Lease lease;
    unpack(bytes, lease);
    EXPECT_EQ(lease.f4_count, 2U);
    EXPECT_EQ(lease.f4, nullptr);
    EXPECT_EQ(lease.f3, nullptr);
    EXPECT_EQ(logged(),
              Lines{"Route_unpack_non_root: [KAPLO]:Table offset(16777284) is out of range(4 - 203)"});
}

TEST_F(Described, ImageHoldsNestedImagesAndArrays) {
    const Route route = {9, {{1, 2, 3, 4}, 0x1234}};
    ASSERT_EQ(kaplo::Image<Route>::bytes, 56U);
    Bytes image(56, 0xEE);
    kaplo::write_image(unit, route, image.data());
    EXPECT_BYTES(image,
                 "04 00 00 00"              // root reference
                 "d8 ff ff ff"              // soffset -40: vtable at 44
                 "09 00 00 00"              // f0
                 "04 00 00 00"              // f1, at 12: the nested image
                 "ec ff ff ff"              // its soffset -20: vtable at 36
                 "04 00 00 00"              // its f0
                 "04 00 00 00 01 02 03 04"  // count and bytes
                 "34 12"                    // its f1
                 "00 00"                    // up to its vtable
                 "08 00 12 00"              // its vtable length, table length 18
                 "04 00 10 00"              // offsets of its fields
                 "08 00 28 00"              // vtable length, table length 40
                 "04 00 08 00"              // offsets of f0 and f1
                 "00 00 00 00");            // padding
    Route read;
    unpack(image, read);
    EXPECT_EQ(read.f0, 9U);
    EXPECT_EQ(read.f1.f0[3], 4);
    EXPECT_EQ(read.f1.f1, 0x1234);
}

TEST_F(Described, PackWithoutABufferLogsUnderItsOwnName) {
    const Nac_Lease lease = {};
    std::uint32_t length = 100;
    EXPECT_EQ(kaplo::pack(unit, &lease, nullptr, &length), 0U);
    EXPECT_EQ(length, 66U);
    EXPECT_EQ(logged(), Lines{"Nac_Lease_pack: [KAPLO]:Param invalid(null, 100, nonNull)"});
}

// ---- the writer that pack calls, which trusts nobody -----------------------------------------------------

TEST_F(Described, WriterLogsANullRecord) {
    std::uint8_t byte = 0xEE;
    EXPECT_EQ(kaplo::write_message<Nac_Lease>(unit, nullptr, &byte, 66, 66), 0U);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_EQ(logged(), Lines{"Nac_Lease_pack: [KAPLO]:Param invalid(nonNull, 66, null)"});
}

TEST_F(Described, WriterLogsACapacityBelowFour) {
    const Nac_Lease lease = {};
    std::uint8_t byte = 0xEE;
    EXPECT_EQ(kaplo::write_message(unit, &lease, &byte, 66, 3), 0U);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_EQ(logged(), Lines{"Nac_Lease_pack: [KAPLO]:Param invalid(nonNull, 3, nonNull)"});
}

TEST_F(Described, WriterLogsANullBufferAndAllElseInOneLine) {
    EXPECT_EQ(kaplo::write_message<Nac_Lease>(unit, nullptr, nullptr, 66, 0), 0U);
    EXPECT_EQ(logged(), Lines{"Nac_Lease_pack: [KAPLO]:Param invalid(null, 0, null)"});
}

// ---- nested decoders that check their arguments ------------------------------------------------------

// Little-endian bytes, like those of the other tests.
using Region = kaplo::Region<std::endian::native == std::endian::little ? kaplo::ByteOrder::host
                                                                        : kaplo::ByteOrder::reversed>;

class NestedDecoder : public Described {
  protected:
    // Reads a nested table at 8 of `length` bytes at `buffer`; the record is all 0xAA before.
    bool read(const std::uint8_t* buffer, std::uint32_t length) {
        std::memset(static_cast<void*>(&record), 0xAA, sizeof record);
        kaplo::KaploMemHooksInit(unit);
        return kaplo::read_nested(unit, Region(buffer, length), 8, record);
    }

    Suspicious record;
};

TEST_F(NestedDecoder, RefusesANullBufferIfItsDescriptionAsksForIt) {
    EXPECT_FALSE(read(nullptr, 64));
    EXPECT_EQ(record.f1, 0xAAAA);
    EXPECT_EQ(logged(), Lines{"Suspicious_unpack_non_root: [KAPLO]:Param invalid(null, 64, nonNull)"});
}

TEST_F(NestedDecoder, RefusesAShortLengthIfItsDescriptionAsksForIt) {
    const Bytes bytes(16);
    EXPECT_FALSE(read(bytes.data(), 3));
    EXPECT_FALSE(read(bytes.data(), 0));
    EXPECT_EQ(record.f1, 0xAAAA);
    EXPECT_EQ(logged(), (Lines{"Suspicious_unpack_non_root: [KAPLO]:Param invalid(nonNull, 3, nonNull)",
                               "Suspicious_unpack_non_root: [KAPLO]:Param invalid(nonNull, 0, nonNull)"}));
}

TEST_F(NestedDecoder, RefusesALengthWithTheTopBitIfItsDescriptionAsksForIt) {
    const Bytes bytes(16);
    EXPECT_FALSE(read(bytes.data(), 0x80000000));
    EXPECT_EQ(logged(),
              Lines{"Suspicious_unpack_non_root: [KAPLO]:Param invalid(nonNull, -2147483648, nonNull)"});
}

TEST_F(NestedDecoder, OfTheDataFlowSettingsRefusesANullBuffer) {
    Nac_UserDataFlowCfg cfg = {};
    const Region nothing(nullptr, 64);
    EXPECT_FALSE(kaplo::read_nested(unit, nothing, 8, cfg));
    EXPECT_EQ(logged(),
              Lines{"Nac_UserDataFlowCfg_unpack_non_root: [KAPLO]:Param invalid(null, 64, nonNull)"});
}

TEST_F(NestedDecoder, ReadsAValidTable) {
    const Bytes bytes =
        hex("00 00 00 00"    // unused
            "00 00 00 00"    // unused
            "f8 ff ff ff"    // the table, at 8: soffset -8
            "34 12 00 00"    // f1
            "08 00 06 00"    // vtable length, table length
            "00 00 04 00");  // f0 absent, f1
    EXPECT_TRUE(read(bytes.data(), 24));
    EXPECT_EQ(record.f1, 0x1234);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(NestedDecoder, LogsHeaderFaultsUnderTheNestedName) {
    const Bytes bytes(16);
    EXPECT_FALSE(read(bytes.data(), 11));
    EXPECT_EQ(logged(), Lines{"Suspicious_unpack_non_root: [KAPLO]:Table offset(8) is out of range(4 - 11)"});
}

// ---- a host without a log writer ---------------------------------------------------------------------

class WithoutLogWriter : public Described {
  protected:
    WithoutLogWriter() {
        kaplo::KaploLogHooksInit(unit);
        unit.state.log_write = nullptr;
    }
};

TEST_F(WithoutLogWriter, UnpackFailsAsUsualAndLogsNothing) {
    Nac_Lease lease;
    unpack(hex("ff 00 00 00"), lease);
    EXPECT_EQ(lease.f1, 0U);
    unpack(hex("08 00 00 00 00 00 00 00 ff ff ff ff"), lease);
    unpack(hex("08 00 00 00 ff 00 00 00 04 00 00 00"), lease);
    EXPECT_EQ(kaplo::unpack(unit, nullptr, 0, &lease), sizeof lease);
    services.fail_allocation(0);
    unpack(hex(kFullLease), lease);
    EXPECT_EQ(lease.f3_count, 3U);
    EXPECT_EQ(lease.f3, nullptr);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(WithoutLogWriter, PackStillReturnsTheSizeWithoutABuffer) {
    const Nac_Lease lease = {};
    std::uint32_t length = 100;
    EXPECT_EQ(kaplo::pack(unit, &lease, nullptr, &length), 0U);
    EXPECT_EQ(length, 66U);
    EXPECT_EQ(logged(), Lines{});
}

}  // namespace
