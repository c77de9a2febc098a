// SPDX-License-Identifier: Apache-2.0
// The catalogue: types, fields and modules as tables, compared with the C structs and with numbers on record.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "inspect/vorn_inspect.h"
#include "nac/nac_messages.h"
#include "tests/support/message_expectations.h"
#include "tests/support/recording_bus.h"

namespace {

const vorn_catalogue& catalogue() { return *vorn_nac_catalogue(); }
std::span<const vorn_type* const> types() { return {catalogue().types, catalogue().type_count}; }
const vorn_type& type_of(const char* name) {
    const vorn_type* const type = vorn_inspect_type_by_name(&catalogue(), name);
    EXPECT_NE(type, nullptr) << name;
    return *type;
}
const vorn_field& field(const vorn_type& type, std::uint32_t id) { return *type.fields[id]; }

// What programs were compiled against: structs grow at their ends alone.
static_assert(sizeof(void*) != 8 || (sizeof(vorn_field) >= 64 && offsetof(vorn_field, table) == 56));
static_assert(sizeof(void*) != 8 || (sizeof(vorn_type) >= 120 && offsetof(vorn_type, operations) == 112));
static_assert(sizeof(void*) != 8 ||
              (sizeof(vorn_module) >= 40 && offsetof(vorn_module, message_count) == 32));
static_assert(sizeof(void*) != 8 ||
              (sizeof(vorn_catalogue) >= 48 && offsetof(vorn_catalogue, message_count) == 40));
static_assert(sizeof(void*) != 8 || (sizeof(vorn_fault) >= 40 && offsetof(vorn_fault, what) == 32));
static_assert(sizeof(void*) != 8 || (sizeof(vorn_range) >= 64 && offsetof(vorn_range, path) == 56));

TEST(Catalogue, FindsTypesByNameAndMessagesById) {
    EXPECT_STREQ(catalogue().package, "Nac");
    for (const vorn_type* const type : types()) {
        EXPECT_EQ(vorn_inspect_type_by_name(&catalogue(), type->name), type);
        if (type->module != nullptr) {
            EXPECT_EQ(vorn_inspect_type_by_id(&catalogue(), type->id), type);
        }
    }
    EXPECT_EQ(vorn_inspect_type_by_name(&catalogue(), "Nac_Lease"), nullptr);
    EXPECT_EQ(vorn_inspect_type_by_name(&catalogue(), nullptr), nullptr);
    EXPECT_EQ(vorn_inspect_type_by_name(nullptr, "Nac_SetPortMsg"), nullptr);
    EXPECT_EQ(vorn_inspect_type_by_id(&catalogue(), 0), nullptr)
        << "the id that tables have that are no message";
    EXPECT_EQ(vorn_inspect_type_by_id(&catalogue(), 0xFFFFFFFF), nullptr);
    EXPECT_EQ(vorn_inspect_type_by_id(nullptr, 0x09B58155), nullptr);
}

TEST(Catalogue, ListsTablesBeforeTheTypesThatHoldThem) {
    std::set<const vorn_type*> listed;
    for (const vorn_type* const type : types()) {
        for (const vorn_field* const each : std::span(type->fields, type->field_count)) {
            if (each->table != nullptr) {
                EXPECT_TRUE(listed.contains(each->table)) << type->name;
            }
        }
        EXPECT_TRUE(listed.insert(type).second) << type->name << " is listed twice";
    }
}

TEST(Catalogue, HasOfEachMessageWhatIsOnRecord) {
    for (const tests::MessageExpectations& expected : tests::all_messages()) {
        SCOPED_TRACE(expected.name);
        const vorn_type& type = type_of(expected.name.c_str());
        EXPECT_EQ(type.record_bytes, expected.record_bytes);
        EXPECT_EQ(type.image_bytes != 0, expected.travels == tests::Travels::as_image);
        EXPECT_EQ(type.root_decoder, expected.header_fault_name());
        EXPECT_EQ(type.nested_decoder, expected.nested_unpack_name());
    }
    EXPECT_EQ(catalogue().message_count, tests::all_messages().size());
    EXPECT_EQ(type_of("Nac_SetPortMsg").id, 0x09B58155U);
}

TEST(Catalogue, OrdersMessagesById) {
    const std::span messages(catalogue().messages_by_id, catalogue().message_count);
    EXPECT_TRUE(std::is_sorted(messages.begin(), messages.end(),
                               [](const vorn_type* a, const vorn_type* b) { return a->id < b->id; }));
}

TEST(Catalogue, HasTheModulesInTheirOrder) {
    std::string names;
    std::uint32_t messages = 0;
    for (const vorn_module* const module : std::span(catalogue().modules, catalogue().module_count)) {
        names += std::string(module->name) + " ";
        messages += module->message_count;
        for (const vorn_type* const type : std::span(module->messages, module->message_count)) {
            EXPECT_EQ(std::string_view(type->module), module->name);
        }
    }
    EXPECT_EQ(names, "dataflow evt port uclgroup user user_type ipsec_access ");
    EXPECT_EQ(messages, catalogue().message_count);
}

TEST(Catalogue, DescribesAScalar) {
    const vorn_field& f2 = field(type_of("Nac_PortVlanChangeMsg"), 2);
    EXPECT_STREQ(f2.name, "f2");
    EXPECT_STREQ(f2.type_name, "u16");
    EXPECT_EQ(f2.id, 2U);
    EXPECT_EQ(f2.kind, VORN_KIND_SCALAR);
    EXPECT_EQ(f2.display, VORN_DISPLAY_NUMBER);
    EXPECT_EQ(f2.element_bytes, 2U);
    EXPECT_EQ(f2.count, 1U);
    EXPECT_EQ(f2.record_offset, offsetof(Nac_PortVlanChangeMsg, f2));
    EXPECT_EQ(f2.count_offset, VORN_NO_OFFSET);
    EXPECT_EQ(f2.slot, 8U) << "after two lengths and two slots";
    EXPECT_EQ(f2.image_offset, 12U) << "after the soffset and two numbers";
    EXPECT_EQ(f2.image_bytes, 2U);
    EXPECT_EQ(f2.table, nullptr);
}

TEST(Catalogue, DescribesAVectorOfTables) {
    const vorn_type& list = type_of("Nac_UserDataFlowMsg");
    const vorn_field& f0 = field(list, 0);
    EXPECT_STREQ(f0.type_name, "[Nac_UserDataFlowInfo]");
    EXPECT_EQ(f0.kind, VORN_KIND_TABLE_VECTOR);
    EXPECT_EQ(f0.display, VORN_DISPLAY_TABLES);
    EXPECT_EQ(f0.element_bytes, 4U) << "a reference";
    EXPECT_EQ(f0.count, 0U);
    EXPECT_EQ(f0.count_offset, offsetof(Nac_UserDataFlowMsg, f0_count));
    EXPECT_EQ(f0.record_offset, offsetof(Nac_UserDataFlowMsg, f0));
    EXPECT_EQ(f0.image_offset, VORN_NO_OFFSET);
    EXPECT_EQ(f0.table, &type_of("Nac_UserDataFlowInfo"));
    EXPECT_EQ(list.image_bytes, 0U) << "always sent compact";
}

TEST(Catalogue, DescribesANestedTable) {
    const vorn_field& f1 = field(type_of("Nac_UserDataFlowQueryAckMsg"), 1);
    EXPECT_STREQ(f1.type_name, "Nac_UserDataFlowInfo");
    EXPECT_EQ(f1.kind, VORN_KIND_NESTED_TABLE);
    EXPECT_EQ(f1.display, VORN_DISPLAY_TABLE);
    EXPECT_EQ(f1.record_offset, offsetof(Nac_UserDataFlowQueryAckMsg, f1));
    EXPECT_EQ(f1.image_bytes, 256U);
}

TEST(Catalogue, HasWaysToWriteBytes) {
    std::set<std::string> seen;
    for (const vorn_type* const type : types()) {
        for (const vorn_field* const each : std::span(type->fields, type->field_count)) {
            if (each->display == VORN_DISPLAY_HARDWARE_ADDRESS) {
                EXPECT_STREQ(each->type_name, "u8[6]");
            }
            if (each->display == VORN_DISPLAY_IPV6_ADDRESS) {
                EXPECT_STREQ(each->type_name, "u8[16]");
            }
            if (each->display == VORN_DISPLAY_HEX) {
                EXPECT_TRUE(std::string(each->type_name) == "[u8]" ||
                            (each->kind == VORN_KIND_FIXED_ARRAY && each->element_bytes == 1))
                    << each->type_name;
            }
            seen.insert(each->type_name);
        }
    }
    for (const char* const name : {"u8[6]", "u8[16]", "[u8]", "[u16]"})
        EXPECT_TRUE(seen.contains(name)) << name;
}

TEST(Catalogue, HasNothingToCallForATableThatIsNoMessage) {
    const vorn_type& table = type_of("Nac_Ipv6Addr");
    EXPECT_EQ(table.module, nullptr);
    EXPECT_EQ(table.id, 0U);
    EXPECT_EQ(table.unpack, nullptr);
    const std::uint8_t bytes[8] = {};
    EXPECT_EQ(vorn_inspect_verify(&table, bytes, sizeof bytes, nullptr, nullptr), VORN_VERDICT_ARGUMENT);
}

TEST(Catalogue, RegistersEveryMessageInOrder) {
    auto& bus = tests::RecordingBus::instance();
    bus.reset();
    ASSERT_EQ(vorn_inspect_register_all(&catalogue()), 0);
    ASSERT_EQ(bus.registrations().size(), catalogue().message_count);
    std::size_t next = 0;
    for (const vorn_module* const module : std::span(catalogue().modules, catalogue().module_count)) {
        for (const vorn_type* const type : std::span(module->messages, module->message_count)) {
            EXPECT_EQ(bus.registrations()[next++].message_id, type->id);
        }
    }
    EXPECT_EQ(bus.resource_cleans().size(), catalogue().module_count);
    bus.reset();
    bus.refuse_registration(3, -5);
    EXPECT_EQ(vorn_inspect_register_all(&catalogue()), -5) << "it stops at a refusal";
}

TEST(Catalogue, HasTheExportedFunctions) {
    const vorn_type& type = type_of("Nac_SetPortMsg");
    const Nac_SetPortMsg record = {7, 9};
    std::uint8_t buffer[24] = {};
    std::uint32_t length = sizeof buffer;
    ASSERT_EQ(type.pack(&record, buffer, &length), 0U);
    EXPECT_EQ(length, 24U);
    EXPECT_EQ(vorn_inspect_packed_bytes(&type, &record), 24U);
    Nac_SetPortMsg again = {};
    EXPECT_EQ(type.unpack(buffer, length, &again), sizeof again);
    EXPECT_EQ(again.f1, 9U);
    type.free_unpacked(&again);
    auto& bus = tests::RecordingBus::instance();
    bus.reset();
    EXPECT_EQ(type.send(3, &record, 1, 0), 0U);
    EXPECT_EQ(type.send_batch(3, &record, 1, 5), 0U);
    ASSERT_EQ(bus.sends().size(), 2U);
    EXPECT_EQ(bus.sends()[0].destination, 3U);
    EXPECT_EQ(bus.sends()[1].target, 5U);
    std::uint8_t image[24] = {};
    ASSERT_EQ(vorn_inspect_write_image(&type, &record, image, sizeof image), 24U);
    EXPECT_EQ(std::vector<std::uint8_t>(image, image + sizeof image), bus.sends()[0].messages[0]);
    EXPECT_EQ(vorn_inspect_write_image(&type, &record, image, 23), 0U) << "too little capacity";
    EXPECT_EQ(vorn_inspect_write_image(&type_of("Nac_UserDataFlowMsg"), &record, image, 24), 0U)
        << "no image";
}

TEST(Catalogue, HasWordsForItsConstants) {
    EXPECT_STREQ(vorn_inspect_verdict_text(VORN_VERDICT_VALID), "ok");
    EXPECT_STREQ(vorn_inspect_verdict_text(VORN_VERDICT_NO_MEMORY), "memory");
    EXPECT_STREQ(vorn_inspect_layout_text(VORN_LAYOUT_IMAGE), "image");
    EXPECT_STREQ(vorn_inspect_part_text(VORN_PART_SOFFSET), "soffset");
    EXPECT_STREQ(vorn_inspect_part_text(VORN_PART_UNREAD), "unread");
}

}  // namespace
