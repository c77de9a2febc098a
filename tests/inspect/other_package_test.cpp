// SPDX-License-Identifier: Apache-2.0
// Another package makes its own catalogue, of its descriptions and one list of its messages.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "inspect/description_tables.h"
#include "tests/inspect/inspected.h"

struct Demo_Address {
    std::uint8_t f0[6];
};
struct Demo_Lease {
    std::uint32_t f0;
    Demo_Address f1;
    std::uint32_t f2_count;
    std::uint16_t* f2;
};

template <>
struct kaplo::Description<Demo_Address> : kaplo::Usual {
    static constexpr Text name = "Demo_Address";
    using Fields = List<Field<&Demo_Address::f0>>;
};
template <>
struct kaplo::Description<Demo_Lease> : kaplo::Usual {
    using R = Demo_Lease;
    static constexpr Text name = "Demo_Lease";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Vector<&R::f2_count, &R::f2>>;
};

namespace {

kaplo::Unit unit;

template <class Record>
struct DemoFunctions {
    static std::uint32_t pack(const Record* record, std::uint8_t* buffer, std::uint32_t* length) {
        return kaplo::pack(unit, record, buffer, length);
    }
    static std::uint32_t unpack(const std::uint8_t* buffer, std::uint32_t length, Record* record) {
        return kaplo::unpack(unit, buffer, length, record);
    }
    static void free(Record* record) { kaplo::free_unpacked(unit, record); }
    static std::uint32_t send_to(std::uint32_t /*destination*/, const Record* /*records*/,
                                 std::uint32_t /*count*/, std::uint64_t /*target*/) {
        return 0;
    }
    static constexpr auto send_batch = &send_to;
};

std::int32_t initialised() { return 0; }

struct LeaseModule {
    static constexpr const char* name = "lease";
    static constexpr auto recv_init = &initialised;
    static constexpr auto send_init = &initialised;
    using Messages = kaplo::List<Demo_Lease>;
};

struct DemoPackage {
    static constexpr const char* name = "Demo";
    template <class Record>
    using Functions = DemoFunctions<Record>;
    using Modules = kaplo::List<LeaseModule>;
};

const vorn_catalogue& demo() { return inspect::catalogue_of<DemoPackage>; }

TEST(OtherPackage, HasItsTypesInTheOrderOfTheirTables) {
    EXPECT_STREQ(demo().package, "Demo");
    ASSERT_EQ(demo().type_count, 2U);
    EXPECT_STREQ(demo().types[0]->name, "Demo_Address");
    EXPECT_STREQ(demo().types[1]->name, "Demo_Lease");
    EXPECT_STREQ(demo().types[1]->module, "lease");
    EXPECT_EQ(vorn_inspect_type_by_id(&demo(), demo().types[1]->id), demo().types[1]);
    EXPECT_EQ(vorn_inspect_register_all(&demo()), 0);
}

TEST(OtherPackage, IsPackedVerifiedAndShownByItsTables) {
    const vorn_type& type = *vorn_inspect_type_by_name(&demo(), "Demo_Lease");
    const std::string json = R"({"f0":60,"f1":{"f0":"02:00:5e:10:00:01"},"f2":[10,20]})";
    Demo_Lease lease = {};
    ASSERT_EQ(vorn_inspect_from_json(&type, json.data(), json.size(), &lease, nullptr, 0), 0);
    std::array<std::uint8_t, 128> buffer = {};
    std::uint32_t length = buffer.size();
    ASSERT_EQ(type.pack(&lease, buffer.data(), &length), 0U);
    vorn_inspect_free_record(&type, &lease);

    tests::Bytes bytes(buffer.begin(), buffer.begin() + length);
    EXPECT_EQ(tests::verified(type, bytes).verdict, VORN_VERDICT_VALID);
    Demo_Lease received = {};
    ASSERT_EQ(vorn_inspect_unpack(&type, bytes.data(), bytes.size(), &received), VORN_VERDICT_VALID);
    EXPECT_EQ(tests::record_json(type, &received), json);
    type.free_unpacked(&received);
    bytes.pop_back();
    EXPECT_EQ(tests::verified(type, bytes).faults.size(), 1U);
}

}  // namespace
