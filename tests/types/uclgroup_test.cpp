// SPDX-License-Identifier: Apache-2.0
// The UCL group messages: their bytes in both layouts.
#include "tests/support/byte_literals.h"

namespace {

using namespace tests;

class Uclgroup : public MessageTest {};

constexpr Nac_CfgUclGroupIp kEntry = {word(0x80), word(0x81), word(0x82), word(0x83), 0x84};
constexpr Nac_ConfigAccessUserUclGroupIpMsg kConfig = {0x70, kEntry};
constexpr Nac_ConfigAccessUserUclGroupIpAckMsg kConfigAck = {word(0x70), 0x71, kEntry};

// An entry as a table inside another message: vtable, then table.
constexpr const char* kEntryTable =
    "0e 00 15 00"                    // vtable length, table length
    "04 00 08 00 0c 00 10 00 14 00"  // offsets of f0 to f4
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
    "04 00 08 00 0c 00 10 00 14 00"  // offsets of f0 to f4
    "00 00 00 00 00 00";             // padding

// ---- Nac_CfgUclGroupIp ----

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

TEST_F(Uclgroup, EntryTravelsAsItsImageOf48Bytes) {
    EXPECT_BYTES(sent(kEntry), kEntryImage);
    EXPECT_EQ(sent(kEntry).size(), 48U);
}

// ---- Nac_ConfigAccessUserUclGroupIpMsg ----

// The reference of an entry is always 18: the entry's vtable of 14 bytes follows it at once.
TEST_F(Uclgroup, ConfigWithAllFieldsPacksTo56Bytes) {
    EXPECT_BYTES(packed(kConfig), join({"0c 00 00 00"   // root reference
                                        "08 00 09 00"   // vtable length, table length
                                        "04 00 05 00"   // offsets of f0, f1
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

TEST_F(Uclgroup, ConfigTravelsAsItsImageOf72Bytes) {
    EXPECT_BYTES(sent(kConfig), join({"04 00 00 00"      // root reference
                                      "c8 ff ff ff"      // soffset -56: vtable at 60
                                      "70",              // f0
                                      kEntryImage,       // f1 at 9
                                      "00 00 00"         // padding in front of the vtable
                                      "08 00 35 00"      // vtable length, table length 53
                                      "04 00 05 00"      // offsets of f0, f1
                                      "00 00 00 00"}));  // padding
    EXPECT_EQ(sent(kConfig).size(), 72U);
}

// ---- Nac_ConfigAccessUserUclGroupIpAckMsg ----

TEST_F(Uclgroup, ConfigAckWithAllFieldsPacksTo62Bytes) {
    EXPECT_BYTES(packed(kConfigAck), join({"0e 00 00 00"        // root reference
                                           "0a 00 0d 00"        // vtable length, table length
                                           "04 00 08 00 09 00"  // offsets of f0 to f2
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

TEST_F(Uclgroup, ConfigAckTravelsAsItsImageOf80Bytes) {
    EXPECT_BYTES(sent(kConfigAck), join({"04 00 00 00"            // root reference
                                         "c4 ff ff ff"            // soffset -60: vtable at 64
                                         "70 22 33 44"            // f0
                                         "71",                    // f1
                                         kEntryImage,             // f2 at 13
                                         "00 00 00"               // padding in front of the vtable
                                         "0a 00 39 00"            // vtable length, table length 57
                                         "04 00 08 00 09 00"      // offsets of f0 to f2
                                         "00 00 00 00 00 00"}));  // padding
    EXPECT_EQ(sent(kConfigAck).size(), 80U);
}

// ---- the two arrays ----

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
              "04 00 08 00"   // offsets of f0, f1
              "08 00 00 00"   // soffset
              "60 22 33 44"   // f0
              "04 00 00 00"   // f1: vector right after
              "02 00 00 00"   // count
              "10 00 00 00"   // element 0: table at 28 + 16
              "40 00 00 00"   // element 1: table at 32 + 64
              "08 00 09 00"   // element 0: vtable length, table length
              "04 00 05 00"   // element 0: offsets of f0, f1
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
              "04 00 08 00"        // offsets of f0, f1
              "08 00 00 00"        // soffset
              "60 22 33 44"        // f0
              "04 00 00 00"        // f1: vector right after
              "02 00 00 00"        // count
              "12 00 00 00"        // element 0: table at 28 + 18
              "48 00 00 00"        // element 1: table at 32 + 72
              "0a 00 0d 00"        // element 0: vtable length, table length
              "04 00 08 00 09 00"  // element 0: offsets of f0 to f2
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

TEST_F(Uclgroup, ArrayWithoutItsWordPutsTheVectorRightAfterTheSoffset) {
    Nac_ConfigAccessUserUclGroupIpMsg elements[] = {{0x70, {}}};
    EXPECT_BYTES(packed(Nac_UclGroupIpArray{0, 1, elements}),
                 join({"0c 00 00 00"   // root reference
                       "08 00 10 00"   // vtable length, table length 4 + 4 + 4 * 2
                       "00 00 04 00"   // f0 absent, f1
                       "08 00 00 00"   // soffset
                       "04 00 00 00"   // f1: vector right after
                       "01 00 00 00"   // count
                       "0c 00 00 00"   // element 0: table at 24 + 12
                       "08 00 09 00"   // element 0: vtable length, table length
                       "04 00 05 00"   // element 0: offsets of f0, f1
                       "08 00 00 00"   // element 0: soffset
                       "70"            // element 0: f0
                       "12 00 00 00",  // element 0: f1, table 18 on
                       kEmptyEntryTable}));
}

TEST_F(Uclgroup, AckArrayWithoutItsWordPutsTheVectorRightAfterTheSoffset) {
    Nac_ConfigAccessUserUclGroupIpAckMsg elements[] = {{0, 0x71, kSparseEntry}};
    EXPECT_BYTES(packed(Nac_UclGroupIpAckArray{0, 1, elements}),
                 join({"0c 00 00 00"        // root reference
                       "08 00 10 00"        // vtable length, table length 4 + 4 + 4 * 2
                       "00 00 04 00"        // f0 absent, f1
                       "08 00 00 00"        // soffset
                       "04 00 00 00"        // f1: vector right after
                       "01 00 00 00"        // count
                       "0e 00 00 00"        // element 0: table at 24 + 14
                       "0a 00 09 00"        // element 0: vtable length, table length
                       "00 00 04 00 05 00"  // element 0: f0 absent, f1, f2
                       "0a 00 00 00"        // element 0: soffset
                       "71"                 // element 0: f1
                       "12 00 00 00",       // element 0: f2, table 18 on
                       kSparseEntryTable}));
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
    const Unpacked<Nac_UclGroupIpArray> array(bytes);
    ASSERT_EQ(array->f1_count, 1U);
    EXPECT_TRUE(same_bytes(packed(array->f1[0]), packed(kConfig)));
}

}  // namespace
