// SPDX-License-Identifier: Apache-2.0
// The UCL group messages: their bytes in both layouts, and what their unpack does with faults.
#include "tests/support/message_checks.h"

namespace {

using namespace tests;
using enum AfterHeaderFault;

class Uclgroup : public MessageTest {};

constexpr Nac_CfgUclGroupIp kEntry = {word(0x80), word(0x81), word(0x82), word(0x83), 0x84};
constexpr Nac_ConfigAccessUserUclGroupIpMsg kConfig = {0x70, kEntry};
constexpr Nac_ConfigAccessUserUclGroupIpAckMsg kConfigAck = {word(0x70), 0x71, kEntry};

// An entry as a table inside another message: vtable, then table.
constexpr const char* kEntryTable =
    "0e 00 15 00"                    // vtable length, table length
    "04 00 08 00 0c 00 10 00 14 00"  // places of f0 to f4
    "0e 00 00 00"                    // soffset
    "80 22 33 44"                    // f0
    "81 22 33 44"                    // f1
    "82 22 33 44"                    // f2
    "83 22 33 44"                    // f3
    "84";                            // f4
constexpr const char* kEmptyEntryTable =
    "0e 00 04 00"                    // vtable length, table length
    "00 00 00 00 00 00 00 00 00 00"  // no field
    "0e 00 00 00";                   // soffset
// With f1 and f4 only.
constexpr Nac_CfgUclGroupIp kSparseEntry = {0, word(0x81), 0, 0, 0x84};
constexpr const char* kSparseEntryTable =
    "0e 00 09 00"                    // vtable length, table length
    "00 00 04 00 00 00 00 00 08 00"  // f1 at 4, f4 at 8
    "0e 00 00 00"                    // soffset
    "81 22 33 44"                    // f1
    "84";                            // f4

// The fixed image of kEntry, alone or inside another one.
constexpr const char* kEntryImage =
    "04 00 00 00"                    // root reference
    "e8 ff ff ff"                    // soffset -24: vtable at 28
    "80 22 33 44"                    // f0
    "81 22 33 44"                    // f1
    "82 22 33 44"                    // f2
    "83 22 33 44"                    // f3
    "84 00 00 00"                    // f4, padding in front of the vtable
    "0e 00 15 00"                    // vtable length, table length
    "04 00 08 00 0c 00 10 00 14 00"  // places of f0 to f4
    "00 00 00 00 00 00";             // padding

// ---- Nac_CfgUclGroupIp ----

TEST_F(Uclgroup, EntryRecordIsFourWordsAndAByte) {
    using R = Nac_CfgUclGroupIp;
    EXPECT_EQ(sizeof(R), 20U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4)}),
              (Offsets{0, 4, 8, 12, 16}));
}

TEST_F(Uclgroup, EntryWithAllFieldsPacksTo39Bytes) {
    EXPECT_BYTES(packed(kEntry), join({"12 00 00 00", kEntryTable}));  // root reference: table at 18
    EXPECT_EQ(packed(kEntry).size(), 39U);
}

TEST_F(Uclgroup, EntryOfZeroesPacksTo22Bytes) {
    EXPECT_BYTES(packed(Nac_CfgUclGroupIp{}), join({"12 00 00 00", kEmptyEntryTable}));
    EXPECT_EQ(packed(Nac_CfgUclGroupIp{}).size(), 22U);
}

TEST_F(Uclgroup, EntryLeavesOutFieldsThatAreZero) {
    EXPECT_BYTES(packed(kSparseEntry), join({"12 00 00 00", kSparseEntryTable}));
}

TEST_F(Uclgroup, EntryGrowsByTheWidthOfEachField) {
    using R = Nac_CfgUclGroupIp;
    EXPECT_EQ(packed_size(R{}), 22U);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f3);
    expect_each_costs(1, R{}, &R::f4);
    expect_each_costs(1, R{1, 1, 1, 1, 0}, &R::f4);
}

TEST_F(Uclgroup, EntryTravelsAsItsImageOf48Bytes) {
    expect_sends_image("Nac_CfgUclGroupIp", 3706811115, kEntry, kEntryImage);
    EXPECT_EQ(sent(kEntry).size(), 48U);
}

TEST_F(Uclgroup, EntryUnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kEntry);
    expect_both_layouts_unpack_to(kSparseEntry);
}

TEST_F(Uclgroup, EntryReadsWholeFieldsOnly) {
    expect_reads_whole_fields_only<Nac_CfgUclGroupIp>(packed(kEntry), {4, 4, 4, 4, 1});
}

TEST_F(Uclgroup, EntryReportsBadArguments) { expect_argument_faults<Nac_CfgUclGroupIp>("Nac_CfgUclGroupIp"); }

TEST_F(Uclgroup, EntryIsUntouchedAfterAHeaderFault) {
    expect_header_faults<Nac_CfgUclGroupIp>(untouched, "Nac_CfgUclGroupIp_unpack");
}

TEST_F(Uclgroup, EntryPackRefusals) { expect_pack_refusals("Nac_CfgUclGroupIp", kEntry, 39); }

TEST_F(Uclgroup, EntryFreeDoesNothing) { expect_free_does_nothing<Nac_CfgUclGroupIp>(); }

// ---- Nac_ConfigAccessUserUclGroupIpMsg ----

TEST_F(Uclgroup, ConfigRecordHoldsItsEntryInline) {
    using R = Nac_ConfigAccessUserUclGroupIpMsg;
    EXPECT_EQ(sizeof(R), 24U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1)}), (Offsets{0, 4}));
}

// The reference of an entry is always 18: the entry's vtable of 14 bytes follows it at once.
TEST_F(Uclgroup, ConfigWithAllFieldsPacksTo56Bytes) {
    EXPECT_BYTES(packed(kConfig), join({"0c 00 00 00"   // root reference
                                        "08 00 09 00"   // vtable length, table length
                                        "04 00 05 00"   // places of f0, f1
                                        "08 00 00 00"   // soffset
                                        "70"            // f0
                                        "12 00 00 00",  // f1: table 18 on
                                        kEntryTable}));
    EXPECT_EQ(packed(kConfig).size(), 56U);
}

TEST_F(Uclgroup, ConfigOfZeroesStillHoldsItsEntryIn38Bytes) {
    const Bytes zeroes = packed(Nac_ConfigAccessUserUclGroupIpMsg{});
    EXPECT_BYTES(zeroes, join({"0c 00 00 00"   // root reference
                               "08 00 08 00"   // vtable length, table length
                               "00 00 04 00"   // f0 absent, f1
                               "08 00 00 00"   // soffset
                               "12 00 00 00",  // f1: table 18 on
                               kEmptyEntryTable}));
    EXPECT_EQ(zeroes.size(), 38U);
}

TEST_F(Uclgroup, ConfigLeavesOutFieldsThatAreZero) {
    EXPECT_BYTES(packed(Nac_ConfigAccessUserUclGroupIpMsg{0, kSparseEntry}),
                 join({"0c 00 00 00"   // root reference
                       "08 00 08 00"   // vtable length, table length
                       "00 00 04 00"   // f0 absent, f1
                       "08 00 00 00"   // soffset
                       "12 00 00 00",  // f1: table 18 on
                       kSparseEntryTable}));
}

TEST_F(Uclgroup, ConfigGrowsByItsFieldAndItsEntry) {
    using R = Nac_ConfigAccessUserUclGroupIpMsg;
    EXPECT_EQ(packed_size(R{}), 20U + 18);
    expect_each_costs(1, R{}, &R::f0);
    expect_each_costs(1, R{0, kEntry}, &R::f0);
    EXPECT_EQ(packed_size(R{0, {1, 0, 0, 0, 0}}), 20U + 18 + 4);
    EXPECT_EQ(packed_size(R{0, {1, 2, 3, 0, 0}}), 20U + 18 + 12);
    EXPECT_EQ(packed_size(R{9, {0, 0, 0, 4, 5}}), 20U + 1 + 18 + 4 + 1);
    EXPECT_EQ(packed_size(kConfig), 20U + 1 + 35);
}

TEST_F(Uclgroup, ConfigTravelsAsItsImageOf72Bytes) {
    expect_sends_image("Nac_ConfigAccessUserUclGroupIpMsg", 3927592541, kConfig,
                       join({"04 00 00 00"      // root reference
                             "c8 ff ff ff"      // soffset -56: vtable at 60
                             "70",              // f0
                             kEntryImage,       // f1 at 9
                             "00 00 00"         // padding in front of the vtable
                             "08 00 35 00"      // vtable length, table length 53
                             "04 00 05 00"      // places of f0, f1
                             "00 00 00 00"}));  // padding
    EXPECT_EQ(sent(kConfig).size(), 72U);
}

TEST_F(Uclgroup, ConfigUnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kConfig);
    expect_both_layouts_unpack_to(Nac_ConfigAccessUserUclGroupIpMsg{0, kSparseEntry});
}

TEST_F(Uclgroup, ConfigWithACorruptEntryIsPartlyFilled) {
    Bytes bytes = packed(kConfig);
    bytes.resize(bytes.size() - 5);  // f3 and f4 of the entry are cut off
    services.reset();
    const Unpacked<Nac_ConfigAccessUserUclGroupIpMsg> config(bytes);
    EXPECT_EQ(logged(), Lines{});
    expect_unpacks_to(packed(*config),
                      Nac_ConfigAccessUserUclGroupIpMsg{0x70, {kEntry.f0, kEntry.f1, kEntry.f2, 0, 0}});
}

TEST_F(Uclgroup, ConfigWhoseEntryReferenceIsOutsideKeepsItsByte) {
    Bytes reference_cut = packed(kConfig);
    reference_cut.resize(20);  // one byte of f1's reference is missing
    Bytes reference_wraps = packed(kConfig);
    put32(reference_wraps, 17, 0xFFFFFFFF);
    services.reset();
    for (const Bytes& bytes : {reference_cut, reference_wraps}) {
        const Unpacked<Nac_ConfigAccessUserUclGroupIpMsg> config(bytes, 0xAA);
        EXPECT_EQ(config->f0, 0x70U);
        EXPECT_EQ(config->f1.f0, 0U);
        EXPECT_EQ(config->f1.f4, 0U);
    }
    EXPECT_EQ(logged(), Lines{});
}

// `entry_vtable` and the table behind it as they stand in the packed message.
template <class Record>
void expect_entry_faults_under_nested_name(const Record& record, std::size_t reference) {
    const Bytes good = packed(record);
    const std::size_t entry_vtable = reference + 4;
    const std::size_t entry_table = reference + 18;
    Bytes table_outside = good;
    put32(table_outside, reference, 0x1000);
    Bytes vtable_outside = good;
    put32(vtable_outside, entry_table, static_cast<std::uint32_t>(entry_table));
    Bytes vtable_too_long = good;
    put16(vtable_too_long, entry_vtable, 0x1000);
    host::Services::instance().reset();
    for (const Bytes& bytes : {table_outside, vtable_outside, vtable_too_long})
        const Unpacked<Record> unpacked(bytes);
    const std::string name = "Nac_CfgUclGroupIp_unpack_non_root: [KAPLO]:";
    const std::string size = std::to_string(good.size());
    EXPECT_EQ(logged(), (Lines{name + "Table offset(" + std::to_string(reference + 0x1000) +
                                   ") is out of range(4 - " + size + ")",
                               name + "Vtable offset(" + std::to_string(entry_table) +
                                   ") is out of range(4 - " + std::to_string(good.size() - 4) + ")",
                               name + "Vtable Len(4096) is out of range(0 - " +
                                   std::to_string(good.size() - entry_vtable) + ")"}));
}

TEST_F(Uclgroup, FaultsOfAnEntryCarryItsNestedName) {
    expect_entry_faults_under_nested_name(kConfig, 17);
    expect_entry_faults_under_nested_name(kConfigAck, 23);
}

TEST_F(Uclgroup, ConfigReportsBadArguments) {
    expect_argument_faults<Nac_ConfigAccessUserUclGroupIpMsg>("Nac_ConfigAccessUserUclGroupIpMsg");
}

TEST_F(Uclgroup, ConfigIsUntouchedAfterAHeaderFault) {
    expect_header_faults<Nac_ConfigAccessUserUclGroupIpMsg>(untouched,
                                                            "Nac_ConfigAccessUserUclGroupIpMsg_unpack");
}

TEST_F(Uclgroup, ConfigPackRefusals) {
    expect_pack_refusals("Nac_ConfigAccessUserUclGroupIpMsg", kConfig, 56);
}

TEST_F(Uclgroup, ConfigFreeDoesNothing) { expect_free_does_nothing<Nac_ConfigAccessUserUclGroupIpMsg>(); }

// ---- Nac_ConfigAccessUserUclGroupIpAckMsg ----

TEST_F(Uclgroup, ConfigAckRecordHoldsItsEntryInline) {
    using R = Nac_ConfigAccessUserUclGroupIpAckMsg;
    EXPECT_EQ(sizeof(R), 28U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2)}), (Offsets{0, 4, 8}));
}

TEST_F(Uclgroup, ConfigAckWithAllFieldsPacksTo62Bytes) {
    EXPECT_BYTES(packed(kConfigAck), join({"0e 00 00 00"        // root reference
                                           "0a 00 0d 00"        // vtable length, table length
                                           "04 00 08 00 09 00"  // places of f0 to f2
                                           "0a 00 00 00"        // soffset
                                           "70 22 33 44"        // f0
                                           "71"                 // f1
                                           "12 00 00 00",       // f2: table 18 on
                                           kEntryTable}));
    EXPECT_EQ(packed(kConfigAck).size(), 62U);
}

TEST_F(Uclgroup, ConfigAckOfZeroesPacksTo40Bytes) {
    EXPECT_BYTES(packed(Nac_ConfigAccessUserUclGroupIpAckMsg{}), join({"0e 00 00 00"        // root reference
                                                                       "0a 00 08 00"        // vtable, table
                                                                       "00 00 00 00 04 00"  // only f2
                                                                       "0a 00 00 00"        // soffset
                                                                       "12 00 00 00",       // f2: 18 on
                                                                       kEmptyEntryTable}));
    EXPECT_EQ(packed(Nac_ConfigAccessUserUclGroupIpAckMsg{}).size(), 40U);
}

TEST_F(Uclgroup, ConfigAckLeavesOutFieldsThatAreZero) {
    EXPECT_BYTES(packed(Nac_ConfigAccessUserUclGroupIpAckMsg{0, 0x71, kSparseEntry}),
                 join({"0e 00 00 00"        // root reference
                       "0a 00 09 00"        // vtable length, table length
                       "00 00 04 00 05 00"  // f0 absent, f1, f2
                       "0a 00 00 00"        // soffset
                       "71"                 // f1
                       "12 00 00 00",       // f2: table 18 on
                       kSparseEntryTable}));
}

TEST_F(Uclgroup, ConfigAckGrowsByItsFieldsAndItsEntry) {
    using R = Nac_ConfigAccessUserUclGroupIpAckMsg;
    EXPECT_EQ(packed_size(R{}), 18U + 4 + 18);
    expect_each_costs(4, R{}, &R::f0);
    expect_each_costs(1, R{}, &R::f1);
    expect_each_costs(1, R{1, 0, kEntry}, &R::f1);
    EXPECT_EQ(packed_size(R{0, 0, {1, 2, 0, 0, 3}}), 18U + 4 + 18 + 8 + 1);
    EXPECT_EQ(packed_size(kConfigAck), 18U + 4 + 1 + 4 + 35);
}

TEST_F(Uclgroup, ConfigAckTravelsAsItsImageOf80Bytes) {
    expect_sends_image("Nac_ConfigAccessUserUclGroupIpAckMsg", 2030903690, kConfigAck,
                       join({"04 00 00 00"            // root reference
                             "c4 ff ff ff"            // soffset -60: vtable at 64
                             "70 22 33 44"            // f0
                             "71",                    // f1
                             kEntryImage,             // f2 at 13
                             "00 00 00"               // padding in front of the vtable
                             "0a 00 39 00"            // vtable length, table length 57
                             "04 00 08 00 09 00"      // places of f0 to f2
                             "00 00 00 00 00 00"}));  // padding
    EXPECT_EQ(sent(kConfigAck).size(), 80U);
}

TEST_F(Uclgroup, ConfigAckUnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kConfigAck);
    expect_both_layouts_unpack_to(Nac_ConfigAccessUserUclGroupIpAckMsg{0, 0x71, kSparseEntry});
}

TEST_F(Uclgroup, ConfigAckWithACorruptEntryIsPartlyFilled) {
    Bytes bytes = packed(kConfigAck);
    bytes.resize(bytes.size() - 1);  // f4 of the entry is cut off
    services.reset();
    const Unpacked<Nac_ConfigAccessUserUclGroupIpAckMsg> ack(bytes);
    EXPECT_EQ(logged(), Lines{});
    Nac_ConfigAccessUserUclGroupIpAckMsg expected = kConfigAck;
    expected.f2.f4 = 0;
    expect_unpacks_to(packed(*ack), expected);
}

TEST_F(Uclgroup, ConfigAckReportsBadArguments) {
    expect_argument_faults<Nac_ConfigAccessUserUclGroupIpAckMsg>("Nac_ConfigAccessUserUclGroupIpAckMsg");
}

TEST_F(Uclgroup, ConfigAckIsUntouchedAfterAHeaderFault) {
    expect_header_faults<Nac_ConfigAccessUserUclGroupIpAckMsg>(untouched,
                                                               "Nac_ConfigAccessUserUclGroupIpAckMsg_unpack");
}

TEST_F(Uclgroup, ConfigAckPackRefusals) {
    expect_pack_refusals("Nac_ConfigAccessUserUclGroupIpAckMsg", kConfigAck, 62);
}

TEST_F(Uclgroup, ConfigAckFreeDoesNothing) {
    expect_free_does_nothing<Nac_ConfigAccessUserUclGroupIpAckMsg>();
}

// ---- the two arrays ----

TEST_F(Uclgroup, ArrayRecordsAreAWordACountAndAPointer) {
    using R = Nac_UclGroupIpArray;
    EXPECT_EQ(sizeof(R), 16U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1_count), offsetof(R, f1)}), (Offsets{0, 4, 8}));
    using Ack = Nac_UclGroupIpAckArray;
    EXPECT_EQ(sizeof(Ack), 16U);
    EXPECT_EQ((Offsets{offsetof(Ack, f0), offsetof(Ack, f1_count), offsetof(Ack, f1)}), (Offsets{0, 4, 8}));
}

// A full and an empty element.
struct Configs {
    Nac_ConfigAccessUserUclGroupIpMsg elements[2] = {kConfig, {}};
    Nac_UclGroupIpArray array = {word(0x60), 2, elements};
};
struct Acks {
    Nac_ConfigAccessUserUclGroupIpAckMsg elements[2] = {kConfigAck, {}};
    Nac_UclGroupIpAckArray array = {word(0x60), 2, elements};
};

const std::string& configs_packed() {
    static const std::string text =
        join({"0c 00 00 00"   // root reference
              "08 00 18 00"   // vtable length, table length 8 + 4 + 4 * 3
              "04 00 08 00"   // places of f0, f1
              "08 00 00 00"   // soffset
              "60 22 33 44"   // f0
              "04 00 00 00"   // f1: vector right behind
              "02 00 00 00"   // count
              "10 00 00 00"   // element 0: table at 28 + 16
              "40 00 00 00"   // element 1: table at 32 + 64
              "08 00 09 00"   // element 0: vtable length, table length
              "04 00 05 00"   // element 0: places of f0, f1
              "08 00 00 00"   // element 0: soffset
              "70"            // element 0: f0
              "12 00 00 00",  // element 0: f1, table 18 on
              kEntryTable,
              "08 00 08 00"   // element 1: vtable length, table length
              "00 00 04 00"   // element 1: f0 absent, f1
              "08 00 00 00"   // element 1: soffset
              "12 00 00 00",  // element 1: f1, table 18 on
              kEmptyEntryTable});
    return text;
}

const std::string& acks_packed() {
    static const std::string text =
        join({"0c 00 00 00"        // root reference
              "08 00 18 00"        // vtable length, table length 8 + 4 + 4 * 3
              "04 00 08 00"        // places of f0, f1
              "08 00 00 00"        // soffset
              "60 22 33 44"        // f0
              "04 00 00 00"        // f1: vector right behind
              "02 00 00 00"        // count
              "12 00 00 00"        // element 0: table at 28 + 18
              "48 00 00 00"        // element 1: table at 32 + 72
              "0a 00 0d 00"        // element 0: vtable length, table length
              "04 00 08 00 09 00"  // element 0: places of f0 to f2
              "0a 00 00 00"        // element 0: soffset
              "70 22 33 44"        // element 0: f0
              "71"                 // element 0: f1
              "12 00 00 00",       // element 0: f2, table 18 on
              kEntryTable,
              "0a 00 08 00"        // element 1: vtable length, table length
              "00 00 00 00 04 00"  // element 1: only f2
              "0a 00 00 00"        // element 1: soffset
              "12 00 00 00",       // element 1: f2, table 18 on
              kEmptyEntryTable});
    return text;
}

TEST_F(Uclgroup, ArraysWithAllFieldsWriteElementAfterElement) {
    EXPECT_BYTES(packed(Configs().array), configs_packed());
    EXPECT_BYTES(packed(Acks().array), acks_packed());
}

TEST_F(Uclgroup, ArrayOfZeroesPacksTo16BytesWithoutAVector) {
    const char* const expected =
        "0c 00 00 00"   // root reference
        "08 00 04 00"   // vtable length, table length
        "00 00 00 00"   // no field
        "08 00 00 00";  // soffset
    EXPECT_BYTES(packed(Nac_UclGroupIpArray{}), expected);
    EXPECT_BYTES(packed(Nac_UclGroupIpAckArray{}), expected);
}

TEST_F(Uclgroup, EmptyArrayWithItsWordPacksTo20Bytes) {
    const char* const expected =
        "0c 00 00 00"   // root reference
        "08 00 08 00"   // vtable length, table length
        "04 00 00 00"   // f0, f1 absent
        "08 00 00 00"   // soffset
        "60 22 33 44";  // f0
    EXPECT_BYTES(packed(Nac_UclGroupIpArray{word(0x60), 0, nullptr}), expected);
    EXPECT_BYTES(packed(Nac_UclGroupIpAckArray{word(0x60), 0, nullptr}), expected);
}

TEST_F(Uclgroup, ArrayCountsNoBytesForAnEmptyVectorWithAPointer) {
    Configs configs;
    configs.array.f1_count = 0;
    EXPECT_EQ(packed(configs.array).size(), 20U);
    Acks acks;
    acks.array.f1_count = 0;
    EXPECT_EQ(packed(acks.array).size(), 20U);
}

TEST_F(Uclgroup, ArrayWithoutItsWordPutsTheVectorRightBehindTheSoffset) {
    Nac_ConfigAccessUserUclGroupIpMsg elements[] = {{0x70, {}}};
    EXPECT_BYTES(packed(Nac_UclGroupIpArray{0, 1, elements}),
                 join({"0c 00 00 00"   // root reference
                       "08 00 10 00"   // vtable length, table length 4 + 4 + 4 * 2
                       "00 00 04 00"   // f0 absent, f1
                       "08 00 00 00"   // soffset
                       "04 00 00 00"   // f1: vector right behind
                       "01 00 00 00"   // count
                       "0c 00 00 00"   // element 0: table at 24 + 12
                       "08 00 09 00"   // element 0: vtable length, table length
                       "04 00 05 00"   // element 0: places of f0, f1
                       "08 00 00 00"   // element 0: soffset
                       "70"            // element 0: f0
                       "12 00 00 00",  // element 0: f1, table 18 on
                       kEmptyEntryTable}));
}

TEST_F(Uclgroup, AckArrayWithoutItsWordPutsTheVectorRightBehindTheSoffset) {
    Nac_ConfigAccessUserUclGroupIpAckMsg elements[] = {{0, 0x71, kSparseEntry}};
    EXPECT_BYTES(packed(Nac_UclGroupIpAckArray{0, 1, elements}),
                 join({"0c 00 00 00"        // root reference
                       "08 00 10 00"        // vtable length, table length 4 + 4 + 4 * 2
                       "00 00 04 00"        // f0 absent, f1
                       "08 00 00 00"        // soffset
                       "04 00 00 00"        // f1: vector right behind
                       "01 00 00 00"        // count
                       "0e 00 00 00"        // element 0: table at 24 + 14
                       "0a 00 09 00"        // element 0: vtable length, table length
                       "00 00 04 00 05 00"  // element 0: f0 absent, f1, f2
                       "0a 00 00 00"        // element 0: soffset
                       "71"                 // element 0: f1
                       "12 00 00 00",       // element 0: f2, table 18 on
                       kSparseEntryTable}));
}

TEST_F(Uclgroup, ArraySizesFollowTheElements) {
    using R = Nac_UclGroupIpArray;
    EXPECT_EQ(packed_size(R{}), 16U);
    expect_each_costs(4, R{}, &R::f0);
    expect_each_costs(4, R{0, 2, Configs().elements}, &R::f0);
    Nac_ConfigAccessUserUclGroupIpMsg elements[] = {{}, kConfig, {1, {}}, {0, kSparseEntry}};
    EXPECT_EQ(packed_size(R{0, 1, elements}), 16U + 8 + 4 + (4 + 12 + 18));
    EXPECT_EQ(packed_size(R{0, 2, elements}), 16U + 8 + 8 + (4 + 12 + 18) + (4 + 12 + 1 + 35));
    EXPECT_EQ(packed_size(R{9, 2, elements + 2}), 16U + 4 + 8 + 8 + (4 + 12 + 1 + 18) + (4 + 12 + 23));
    EXPECT_EQ(packed_size(R{9, 4, elements}), 16U + 4 + 8 + 16 + 34 + 52 + 35 + 39);
}

TEST_F(Uclgroup, AckArraySizesFollowTheElements) {
    using R = Nac_UclGroupIpAckArray;
    EXPECT_EQ(packed_size(R{}), 16U);
    expect_each_costs(4, R{}, &R::f0);
    Nac_ConfigAccessUserUclGroupIpAckMsg elements[] = {{}, kConfigAck, {1, 0, {}}, {0, 1, kSparseEntry}};
    EXPECT_EQ(packed_size(R{0, 1, elements}), 16U + 8 + 4 + (4 + 14 + 18));
    EXPECT_EQ(packed_size(R{0, 2, elements}), 16U + 8 + 8 + (4 + 14 + 18) + (4 + 14 + 4 + 1 + 35));
    EXPECT_EQ(packed_size(R{9, 2, elements + 2}), 16U + 4 + 8 + 8 + (4 + 14 + 4 + 18) + (4 + 14 + 1 + 23));
    EXPECT_EQ(packed_size(R{9, 4, elements}), 16U + 4 + 8 + 16 + 36 + 58 + 40 + 42);
}

TEST_F(Uclgroup, ArraysTravelCompactly) {
    expect_sends_compact("Nac_UclGroupIpArray", 2813756148, Configs().array, configs_packed());
    expect_sends_compact("Nac_UclGroupIpAckArray", 1411917765, Acks().array, acks_packed());
}

TEST_F(Uclgroup, ArraysUnpackToTheirElements) {
    const Configs configs;
    expect_unpacks_to(hex(configs_packed()), configs.array);
    const Unpacked<Nac_UclGroupIpArray> array(hex(configs_packed()), 0xAA);
    EXPECT_EQ(array->f0, word(0x60));
    ASSERT_EQ(array->f1_count, 2U);
    EXPECT_EQ(array->f1[0].f1.f4, kEntry.f4);
    EXPECT_EQ(array->f1[1].f0, 0U);

    const Acks acks;
    expect_unpacks_to(hex(acks_packed()), acks.array);
    const Unpacked<Nac_UclGroupIpAckArray> ack_array(hex(acks_packed()), 0xAA);
    EXPECT_EQ(ack_array->f0, word(0x60));
    ASSERT_EQ(ack_array->f1_count, 2U);
    EXPECT_EQ(ack_array->f1[0].f2.f4, kEntry.f4);
    EXPECT_EQ(ack_array->f1[1].f1, 0U);
}

TEST_F(Uclgroup, ArrayElementsMayBeFixedImages) {
    Bytes bytes =
        hex("0c 00 00 00"    // root reference
            "08 00 10 00"    // vtable length, table length
            "00 00 04 00"    // f0 absent, f1
            "08 00 00 00"    // soffset
            "04 00 00 00"    // f1
            "01 00 00 00");  // count; the image's root reference serves as the element's
    for (const std::uint8_t byte : sent(kConfig)) bytes.push_back(byte);
    Nac_ConfigAccessUserUclGroupIpMsg elements[] = {kConfig};
    expect_unpacks_to(bytes, Nac_UclGroupIpArray{0, 1, elements});
}

template <class Array>
void expect_empty_unpacks_to_null() {
    for (const Array& array : {Array{}, Array{7, 0, nullptr}}) {
        const Unpacked<Array> unpacked(packed(array), 0xAA);
        EXPECT_EQ(unpacked->f0, array.f0);
        EXPECT_EQ(unpacked->f1_count, 0U);
        EXPECT_EQ(unpacked->f1, nullptr);
    }
    EXPECT_EQ(cache_allocations(), std::vector<Tag>{});
}

TEST_F(Uclgroup, EmptyArraysUnpackToANullPointer) {
    expect_empty_unpacks_to_null<Nac_UclGroupIpArray>();
    expect_empty_unpacks_to_null<Nac_UclGroupIpAckArray>();
}

TEST_F(Uclgroup, ArrayWhoseVtableEndsBeforeTheVectorIsEmpty) {
    Bytes bytes = hex(configs_packed());
    put16(bytes, 4, 7);  // one byte short of f1's slot
    const Unpacked<Nac_UclGroupIpArray> array(bytes, 0xAA);
    EXPECT_EQ(array->f0, word(0x60));
    EXPECT_EQ(array->f1_count, 0U);
    EXPECT_EQ(array->f1, nullptr);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(Uclgroup, ArrayWithAVectorOfCountZeroIsEmpty) {
    Bytes bytes = hex(configs_packed());
    put32(bytes, 24, 0);
    const Unpacked<Nac_UclGroupIpArray> array(bytes, 0xAA);
    EXPECT_EQ(array->f0, word(0x60));
    EXPECT_EQ(array->f1_count, 0U);
    EXPECT_EQ(array->f1, nullptr);
    EXPECT_EQ(cache_allocations(), std::vector<Tag>{});
}

// Their decoder is the root one: allocations and faults do not carry a nested name.
template <class Array>
void expect_array_memory(const Bytes& bytes, std::uint32_t size, const std::string& message) {
    auto& services = host::Services::instance();
    services.reset();
    Unpacked<Array> array(bytes);
    EXPECT_EQ(cache_allocations(), (std::vector<Tag>{{size, 12, message + "_unpack"}}));
    EXPECT_EQ(services.allocations().front().block, array->f1);
    nac::Functions<Array>::free(&array.record());
    EXPECT_EQ(array->f1_count, 2U);
    EXPECT_EQ(array->f1, nullptr);
    nac::Functions<Array>::free(&array.record());
    nac::Functions<Array>::free(nullptr);
    EXPECT_EQ(release_callers(), Lines{message + "_free_unpacked"});
}

TEST_F(Uclgroup, ArraysAllocateAndReleaseUnderTheirNames) {
    expect_array_memory<Nac_UclGroupIpArray>(hex(configs_packed()), 48, "Nac_UclGroupIpArray");
    expect_array_memory<Nac_UclGroupIpAckArray>(hex(acks_packed()), 56, "Nac_UclGroupIpAckArray");
}

template <class Array>
void expect_failed_allocation(const Bytes& bytes, const std::string& line) {
    host::Services::instance().reset();
    host::Services::instance().fail_allocation(0);
    const Unpacked<Array> array(bytes, 0xAA);
    EXPECT_EQ(array->f0, word(0x60));
    EXPECT_EQ(array->f1_count, 2U);
    EXPECT_EQ(array->f1, nullptr);
    EXPECT_EQ(logged(), Lines{line});
    EXPECT_EQ(logged_categories(), std::vector<std::uint32_t>{12});
}

TEST_F(Uclgroup, FailedArrayAllocationIsLoggedWithOneBlank) {
    expect_failed_allocation<Nac_UclGroupIpArray>(
        hex(configs_packed()), "Nac_UclGroupIpArray_unpack: [KAPLO]:Malloc unpack data unsuccess, size(48)");
    expect_failed_allocation<Nac_UclGroupIpAckArray>(
        hex(acks_packed()), "Nac_UclGroupIpAckArray_unpack: [KAPLO]:Malloc unpack data unsuccess, size(56)");
}

TEST_F(Uclgroup, ArrayCountAtTheLimitLeavesCountZeroAndANullPointer) {
    for (const std::uint32_t count : {0x40000000U, 0xFFFFFFFFU, 0x3FFFFFFFU, 24U}) {  // room for 23
        Bytes configs = hex(configs_packed());
        put32(configs, 24, count);
        const Unpacked<Nac_UclGroupIpArray> array(configs, 0xAA);
        EXPECT_EQ(array->f0, word(0x60));
        EXPECT_EQ(array->f1_count, 0U) << count;
        EXPECT_EQ(array->f1, nullptr);
    }
    for (const std::uint32_t count : {0x40000000U, 26U}) {  // room for 25
        Bytes acks = hex(acks_packed());
        put32(acks, 24, count);
        const Unpacked<Nac_UclGroupIpAckArray> array(acks, 0xAA);
        EXPECT_EQ(array->f1_count, 0U) << count;
        EXPECT_EQ(array->f1, nullptr);
    }
    EXPECT_EQ(cache_allocations(), std::vector<Tag>{});
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(Uclgroup, ArrayVectorOutsideTheBufferIsRefusedSilently) {
    Bytes wraps = hex(configs_packed());
    put32(wraps, 20, 0xFFFFFFFC);
    Bytes count_cut = hex(configs_packed());
    put32(count_cut, 20, 122 - 20 - 3);  // one byte of the count is behind the end
    Bytes reference_cut = hex(configs_packed());
    reference_cut.resize(23);
    for (const Bytes& bytes : {wraps, count_cut, reference_cut}) {
        const Unpacked<Nac_UclGroupIpArray> array(bytes, 0xAA);
        EXPECT_EQ(array->f0, word(0x60));
        EXPECT_EQ(array->f1_count, 0U);
        EXPECT_EQ(array->f1, nullptr);
    }
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(Uclgroup, CorruptThirdElementLeavesTheCountAndANullPointer) {
    Nac_ConfigAccessUserUclGroupIpMsg elements[] = {kConfig, {}, kConfig};
    Bytes bytes = packed(Nac_UclGroupIpArray{word(0x60), 3, elements});
    const auto size = bytes.size();
    put32(bytes, 36, 0x1000);  // element 2: table far behind the buffer
    services.reset();
    const Unpacked<Nac_UclGroupIpArray> array(bytes);
    EXPECT_EQ(array->f0, word(0x60));
    EXPECT_EQ(array->f1_count, 3U);
    EXPECT_EQ(array->f1, nullptr);
    EXPECT_EQ(release_callers(), Lines{"Nac_UclGroupIpArray_free_unpacked"});
    EXPECT_EQ(logged(), Lines{"Nac_ConfigAccessUserUclGroupIpMsg_unpack_non_root: [KAPLO]:Table offset(4132) "
                              "is out of range(4 - " +
                              std::to_string(size) + ")"});
}

TEST_F(Uclgroup, CorruptAckElementIsReportedUnderItsNestedName) {
    Bytes bytes = hex(acks_packed());
    put32(bytes, 46, 46);  // element 0's soffset: vtable at 0
    services.reset();
    const Unpacked<Nac_UclGroupIpAckArray> array(bytes);
    EXPECT_EQ(array->f1_count, 2U);
    EXPECT_EQ(array->f1, nullptr);
    EXPECT_EQ(release_callers(), Lines{"Nac_UclGroupIpAckArray_free_unpacked"});
    EXPECT_EQ(logged(), Lines{"Nac_ConfigAccessUserUclGroupIpAckMsg_unpack_non_root: [KAPLO]:Vtable "
                              "offset(46) is out of range(4 - 126)"});
}

TEST_F(Uclgroup, CorruptEntryInAnElementFreesTheWholeArray) {
    Bytes bytes = hex(configs_packed());
    bytes.resize(bytes.size() - 1);  // the last element's entry loses a byte of its soffset
    services.reset();
    const Unpacked<Nac_UclGroupIpArray> array(bytes);
    EXPECT_EQ(array->f1_count, 2U);
    EXPECT_EQ(array->f1, nullptr);
    EXPECT_EQ(release_callers(), Lines{"Nac_UclGroupIpArray_free_unpacked"});
    EXPECT_EQ(logged(),
              Lines{"Nac_CfgUclGroupIp_unpack_non_root: [KAPLO]:Table offset(118) is out of range(4 "
                    "- 121)"});
}

TEST_F(Uclgroup, FieldOfAnEntryOutsideTheBufferFreesTheArraySilently) {
    Bytes bytes = hex(acks_packed());
    put16(bytes, 63, 0x1000);  // element 0's entry: the slot of f0
    services.reset();
    const Unpacked<Nac_UclGroupIpAckArray> array(bytes);
    EXPECT_EQ(array->f1_count, 2U);
    EXPECT_EQ(array->f1, nullptr);
    EXPECT_EQ(release_callers(), Lines{"Nac_UclGroupIpAckArray_free_unpacked"});
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(Uclgroup, ArraysReportBadArguments) {
    expect_argument_faults<Nac_UclGroupIpArray>("Nac_UclGroupIpArray");
    expect_argument_faults<Nac_UclGroupIpAckArray>("Nac_UclGroupIpAckArray");
}

TEST_F(Uclgroup, ArraysAreClearedAfterAHeaderFault) {
    expect_header_faults<Nac_UclGroupIpArray>(cleared, "Nac_UclGroupIpArray_unpack");
    expect_header_faults<Nac_UclGroupIpAckArray>(cleared, "Nac_UclGroupIpAckArray_unpack");
}

TEST_F(Uclgroup, ArrayPackRefusals) {
    expect_pack_refusals("Nac_UclGroupIpArray", Configs().array, 122);
    expect_pack_refusals("Nac_UclGroupIpAckArray", Acks().array, 130);
}

TEST_F(Uclgroup, BatchOfArraysIsRefusedWholeWhenItPasses65536Bytes) {
    std::vector<Nac_ConfigAccessUserUclGroupIpMsg> elements(1000);
    const Nac_UclGroupIpArray array = {0, 1000, elements.data()};
    ASSERT_EQ(packed_size(array), 16U + 8 + 38 * 1000);
    const Nac_UclGroupIpArray one[] = {array, {}};
    services.reset();
    EXPECT_EQ(Nac_UclGroupIpArray__sendbatch(1, one, 2, 0), 0U);
    ASSERT_EQ(bus.sends().size(), 1U);
    EXPECT_EQ(bus.sends().front().messages.size(), 2U);

    const Nac_UclGroupIpArray two[] = {{}, array, array};
    EXPECT_EQ(Nac_UclGroupIpArray__sendbatch(1, two, 3, 0), kRefused);
    EXPECT_EQ(bus.sends().size(), 1U);
    EXPECT_EQ(services.allocations().size(), 2U);
    EXPECT_EQ(services.releases().size(), 2U);
}

TEST_F(Uclgroup, BatchThatFillsItsAreaMayEndThereButNotGoOn) {
    std::vector<Nac_ConfigAccessUserUclGroupIpAckMsg> elements(1637);
    elements[0].f2 = {1, 1, 1, 1, 0};
    const Nac_UclGroupIpAckArray area = {0, 1637, elements.data()};
    const std::uint32_t size = 16 + 8 + 40 * 1637 + 16;
    ASSERT_EQ(packed_size(area), size);
    ASSERT_EQ(65536 - size, 16U);
    const Nac_UclGroupIpAckArray records[] = {area, {}, {}};
    EXPECT_EQ(Nac_UclGroupIpAckArray__sendbatch(1, records, 2, 0), 0U);
    EXPECT_EQ(bus.sends().size(), 1U);
    EXPECT_EQ(Nac_UclGroupIpAckArray__sendbatch(1, records, 3, 0), kRefused);
    EXPECT_EQ(bus.sends().size(), 1U);
}

TEST_F(Uclgroup, SingleSendOfAnArrayNeedsMemory) {
    const Configs configs;
    services.fail_allocation(0);
    EXPECT_EQ(Nac_UclGroupIpArray__sendsingle(1, &configs.array, 0, 0), kRefused);
    EXPECT_EQ(Nac_UclGroupIpAckArray__sendsingle(1, nullptr, 0, 0), kRefused);
    EXPECT_TRUE(bus.sends().empty());
    EXPECT_TRUE(services.releases().empty());
}

// ---- the module ----

TEST_F(Uclgroup, ModuleRegistersItsFiveTypesInOrder) {
    expect_registers<Nac_CfgUclGroupIp, Nac_ConfigAccessUserUclGroupIpMsg,
                     Nac_ConfigAccessUserUclGroupIpAckMsg, Nac_UclGroupIpArray, Nac_UclGroupIpAckArray>(
        nac_fwm_uclgroup_recv_init, {3706811115, 3927592541, 2030903690, 2813756148, 1411917765});
    expect_stops_at_refusal(nac_fwm_uclgroup_recv_init, 5);
}

TEST_F(Uclgroup, ModuleRegistersAResourceCleanThatDoesNothing) {
    expect_registers_clean(nac_fwm_uclgroup_send_init, nac_fwm_uclgroup__send_resource_clean);
}

}  // namespace
