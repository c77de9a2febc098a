// SPDX-License-Identifier: Apache-2.0
// Unpacking bytes that may hold anything: every check, what it logs, and what it leaves of the record.
#include "tests/support/lazy_memory.h"
#include "tests/support/message.h"
#include "tests/support/message_expectations.h"
#include "tests/support/one_field.h"

namespace {

using namespace tests;

constexpr std::uint32_t kArgumentsAndLayout = 22;
constexpr std::uint32_t kMemory = 12;

// Unpacks into a record whose bytes are all `fill` and which nobody frees: for types without vectors, and
// for faults after which nothing is allocated.
Bytes unpacked_over(const MessageExpectations& type, const std::uint8_t* buffer, std::uint32_t length,
                    std::uint8_t fill) {
    Bytes record(type.record_bytes, fill);
    EXPECT_EQ(type.unpack(buffer, length, record.data()), type.record_bytes);
    return record;
}

// What holds for the one line logged so far, whatever its text.
void expect_one_line(const std::string& line, std::uint32_t category) {
    EXPECT_EQ(logged(), Lines{line});
    for (const LogLine& logged_line : RecordingServices::instance().log_lines()) {
        EXPECT_EQ(logged_line.module_name, "KAPLO");
        EXPECT_EQ(logged_line.log_module_name, "KAPLO_TORINEX_SERIAL");
        EXPECT_EQ(logged_line.level, 2U);
        EXPECT_EQ(logged_line.category, category);
        EXPECT_EQ(logged_line.file, "");
        EXPECT_GT(logged_line.line, 0U);
    }
}

// ---- what is the same for all types ------------------------------------------------------------------

class UnpackOfEveryType : public MessageTest, public testing::WithParamInterface<MessageExpectations> {
  protected:
    // A refused call: the record stays as it was, and one line gives the reason.
    void expect_refused(const std::uint8_t* buffer, std::uint32_t length, const std::string& values) {
        SCOPED_TRACE(values);
        services.reset();
        EXPECT_EQ(unpacked_over(type, buffer, length, 0xAA), Bytes(type.record_bytes, 0xAA));
        expect_one_line(type.unpack_name() + ": [KAPLO]:Param invalid(" + values + ")", kArgumentsAndLayout);
    }
    void expect_header_fault(const Bytes& bytes, const std::string& text) {
        SCOPED_TRACE(text);
        services.reset();
        GuardedBuffer buffer(bytes);
        EXPECT_EQ(unpacked_over(type, buffer.data(), buffer.size(), 0xAA),
                  Bytes(type.record_bytes, type.left_by_header_fault()));
        expect_one_line(type.header_fault_name() + ": [KAPLO]:" + text, kArgumentsAndLayout);
    }
    void expect_all_zero(const std::uint8_t* buffer, std::uint32_t length) {
        EXPECT_EQ(unpacked_over(type, buffer, length, 0xAA), Bytes(type.record_bytes));
        EXPECT_EQ(logged(), Lines{});
    }

    const MessageExpectations& type = GetParam();
};
INSTANTIATE_TEST_SUITE_P(All, UnpackOfEveryType, testing::ValuesIn(all_messages()), message_name);

TEST_P(UnpackOfEveryType, RefusesANullBuffer) { expect_refused(nullptr, 64, "null, 64, nonNull"); }

TEST_P(UnpackOfEveryType, RefusesANullRecord) {
    const Bytes bytes(64);
    EXPECT_EQ(type.unpack(bytes.data(), 64, nullptr), type.record_bytes);
    expect_one_line(type.unpack_name() + ": [KAPLO]:Param invalid(nonNull, 64, null)", kArgumentsAndLayout);
}

TEST_P(UnpackOfEveryType, LogsAllFaultyArgumentsInOneLine) {
    EXPECT_EQ(type.unpack(nullptr, 0, nullptr), type.record_bytes);
    expect_one_line(type.unpack_name() + ": [KAPLO]:Param invalid(null, 0, null)", kArgumentsAndLayout);
}

TEST_P(UnpackOfEveryType, RefusesLengthsBelowFour) {
    GuardedBuffer buffer(Bytes{1, 2, 3});
    expect_refused(buffer.last(0), 0, "nonNull, 0, nonNull");
    expect_refused(buffer.last(1), 1, "nonNull, 1, nonNull");
    expect_refused(buffer.last(2), 2, "nonNull, 2, nonNull");
    expect_refused(buffer.last(3), 3, "nonNull, 3, nonNull");
}

TEST_P(UnpackOfEveryType, RefusesLengthsWithTheTopBitAndShowsThemSigned) {
    const Bytes bytes(64);
    expect_refused(bytes.data(), 0x80000000, "nonNull, -2147483648, nonNull");
    expect_refused(bytes.data(), 0xFFFFFFFF, "nonNull, -1, nonNull");
}

TEST_P(UnpackOfEveryType, FindsNoTableInFourBytes) {
    expect_header_fault(hex("04 00 00 00"), "Table offset(4) is out of range(4 - 4)");
}

TEST_P(UnpackOfEveryType, RefusesAVtableOutside) {
    expect_header_fault(hex("04 00 00 00"    // root reference
                            "04 00 00 00"    // soffset: vtable at 0
                            "00 00 00 00"),  // unused
                        "Vtable offset(4) is out of range(4 - 8)");
}

TEST_P(UnpackOfEveryType, RefusesAVtableThatRunsOut) {
    expect_header_fault(hex("08 00 00 00"    // root reference
                            "09 00 04 00"    // vtable length 9 with 8 bytes left
                            "04 00 00 00"),  // soffset
                        "Vtable Len(9) is out of range(0 - 8)");
}

TEST_P(UnpackOfEveryType, ReadsFourZeroBytesAfterTheRootAsAnAllZeroRecord) {
    // The table and its vtable, of length 0, are the same four bytes.
    GuardedBuffer buffer(hex("04 00 00 00 00 00 00 00"));
    expect_all_zero(buffer.data(), buffer.size());
}

TEST_P(UnpackOfEveryType, ReadsAVtableWithoutSlotsAsAnAllZeroRecord) {
    GuardedBuffer buffer(
        hex("08 00 00 00"     // root reference
            "04 00 04 00"     // vtable length, table length
            "04 00 00 00"));  // soffset
    expect_all_zero(buffer.data(), buffer.size());
}

TEST_P(UnpackOfEveryType, AcceptsTheLongestLength) {
    LazyMemory buffer(0x7FFFFFFF, hex("08 00 00 00 04 00 04 00 04 00 00 00"));
    expect_all_zero(buffer.data(), buffer.size());
}

TEST_P(UnpackOfEveryType, CanBeFreedAfterAHeaderFaultAndAgain) {
    const Bytes bad = hex("ff 00 00 00");
    Bytes record(type.record_bytes);
    EXPECT_EQ(type.unpack(bad.data(), 4, record.data()), type.record_bytes);
    type.free(record.data());
    type.free(record.data());
    EXPECT_EQ(record, Bytes(type.record_bytes));
    for (const Release& release : services.releases()) EXPECT_EQ(release.block, nullptr);
}

TEST_P(UnpackOfEveryType, IsNotFreedForANullRecord) {
    type.free(nullptr);
    EXPECT_EQ(services.releases().size(), 0U);
}

// ---- the header of the root table --------------------------------------------------------------------

class Header : public MessageTest {
  protected:
    void expect_fault(const Bytes& bytes, const std::string& text) {
        SCOPED_TRACE(text);
        services.reset();
        GuardedBuffer buffer(bytes);
        EXPECT_EQ(
            unpacked_over(message_type("Nac_TableVersionChangeMsg"), buffer.data(), buffer.size(), 0xAA),
            Bytes(4, 0xAA));
        expect_one_line("Nac_TableVersionChangeMsg_unpack: [KAPLO]:" + text, kArgumentsAndLayout);
    }
    void expect_value(const Bytes& bytes, std::uint32_t value) {
        SCOPED_TRACE(value);
        services.reset();
        EXPECT_EQ(Unpacked<Nac_TableVersionChangeMsg>(bytes, 0xAA)->f0, value);
        EXPECT_EQ(logged(), Lines{});
    }
};

constexpr std::string_view kVersion =
    "0a 00 00 00"   // root reference: table at 10
    "06 00 08 00"   // vtable length, table length
    "04 00"         // offset of f0
    "06 00 00 00"   // soffset
    "44 33 22 11";  // f0

Bytes version_with_root(std::uint32_t root) {
    Bytes bytes = hex(kVersion);
    put32(bytes, 0, root);
    return bytes;
}

Bytes version_with_soffset(std::uint32_t soffset) {
    Bytes bytes = hex(kVersion);
    put32(bytes, 10, soffset);
    return bytes;
}

TEST_F(Header, RootReferenceBelowFourIsOutOfRange) {
    expect_fault(version_with_root(0), "Table offset(0) is out of range(4 - 18)");
    expect_fault(version_with_root(3), "Table offset(3) is out of range(4 - 18)");
}

TEST_F(Header, TableMayStartRightAfterTheRootReference) {
    expect_value(hex("04 00 00 00"  // root reference
                     "f8 ff ff ff"  // soffset -8: vtable at 12
                     "44 33 22 11"  // f0
                     "06 00 08 00"  // vtable length, table length
                     "04 00"),      // offset of f0
                 0x11223344);
}

TEST_F(Header, TableMayStartFourBytesBeforeTheEnd) {
    expect_value(hex("0e 00 00 00"    // root reference: table at 14 of 18
                     "06 00 08 00"    // vtable length, table length
                     "fc ff"          // unused
                     "00 00 00 00"    // unused
                     "0a 00 00 00"),  // soffset
                 0);
}

TEST_F(Header, TableMayNotStartThreeBytesBeforeTheEnd) {
    expect_fault(version_with_root(15), "Table offset(15) is out of range(4 - 18)");
}

TEST_F(Header, RootReferenceFarOutsideIsShownUnsigned) {
    expect_fault(version_with_root(18), "Table offset(18) is out of range(4 - 18)");
    expect_fault(version_with_root(0x80000000), "Table offset(2147483648) is out of range(4 - 18)");
    expect_fault(version_with_root(0xFFFFFFFF), "Table offset(4294967295) is out of range(4 - 18)");
}

TEST_F(Header, ShortBuffersHoldNoTable) {
    expect_fault(hex("04 00 00 00"), "Table offset(4) is out of range(4 - 4)");
    expect_fault(hex("04 00 00 00 00"), "Table offset(4) is out of range(4 - 5)");
    expect_fault(hex("04 00 00 00 00 00 00"), "Table offset(4) is out of range(4 - 7)");
}

TEST_F(Header, VtableMayNotStartBeforeFour) {
    // The complaint names the table's position, not the vtable's.
    expect_fault(version_with_soffset(10 - 3), "Vtable offset(10) is out of range(4 - 14)");
    expect_fault(version_with_soffset(10 - 0), "Vtable offset(10) is out of range(4 - 14)");
}

TEST_F(Header, VtableMayStartAtFour) { expect_value(version_with_soffset(10 - 4), 0x11223344); }

TEST_F(Header, VtableMayStartFourBytesBeforeTheEnd) {
    // f0's bytes at 14 are a vtable of length 4, so there is no f0.
    Bytes bytes = version_with_soffset(10U - 14U);
    put32(bytes, 14, 4);
    expect_value(bytes, 0);
}

TEST_F(Header, VtableMayNotStartThreeBytesBeforeTheEnd) {
    expect_fault(version_with_soffset(10U - 15U), "Vtable offset(10) is out of range(4 - 14)");
}

TEST_F(Header, VtablePositionIsFoundModulo32Bits) {
    expect_fault(version_with_soffset(11), "Vtable offset(10) is out of range(4 - 14)");  // at 0xFFFFFFFF
    expect_fault(version_with_soffset(0x80000000), "Vtable offset(10) is out of range(4 - 14)");
    expect_fault(version_with_soffset(0x7FFFFFFF), "Vtable offset(10) is out of range(4 - 14)");
}

TEST_F(Header, VtableMayEndWithTheBuffer) {
    expect_value(hex("04 00 00 00"    // root reference
                     "f8 ff ff ff"    // soffset -8: vtable at 12
                     "44 33 22 11"    // f0
                     "08 00 08 00"    // vtable length 8: to the last byte
                     "04 00 00 00"),  // offsets of f0 and of a field that nobody knows
                 0x11223344);
}

TEST_F(Header, VtableMayNotEndOneBytePastTheBuffer) {
    expect_fault(hex("04 00 00 00"    // root reference
                     "f8 ff ff ff"    // soffset -8
                     "44 33 22 11"    // f0
                     "09 00 08 00"    // vtable length 9 with 8 bytes left
                     "04 00 00 00"),  // offsets
                 "Vtable Len(9) is out of range(0 - 8)");
}

TEST_F(Header, VtableOfTheLargestLengthIsOutOfRange) {
    Bytes bytes = hex(kVersion);
    put16(bytes, 4, 0xFFFF);
    expect_fault(bytes, "Vtable Len(65535) is out of range(0 - 14)");
}

TEST_F(Header, FaultLeavesRecordsWithoutMemoryUntouchedUnlessTheirNestedDecoderReadsTheRoot) {
    const Bytes bad = hex("ff 00 00 00");
    EXPECT_TRUE(Unpacked<Nac_UserDataFlowCfg>(bad, 0xAA).all(0xAA));
    EXPECT_TRUE(Unpacked<Nac_UserDataFlowInfo>(bad, 0xAA).all(0));
    EXPECT_EQ(
        logged(),
        (Lines{"Nac_UserDataFlowCfg_unpack: [KAPLO]:Table offset(255) is out of range(4 - 4)",
               "Nac_UserDataFlowInfo_unpack_non_root: [KAPLO]:Table offset(255) is out of range(4 - 4)"}));
}

// ---- scalars -----------------------------------------------------------------------------------------

class ScalarBounds : public MessageTest {};

TEST_F(ScalarBounds, ByteMayBeTheLastOne) {
    const Unpacked<Nac_UserDetectInfo> detect(only_field(1, "77"));
    EXPECT_EQ(detect->f1, 0x77);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, ByteOneFurtherFailsSilentlyWithAllLaterFields) {
    const Unpacked<Nac_UserDetectInfo> detect(hex("0e 00 00 00"        // root reference
                                                  "0a 00 0a 00"        // vtable length, table length
                                                  "04 00 09 00 05 00"  // f1 at 23, one past the end
                                                  "0a 00 00 00"        // soffset
                                                  "11"                 // f0
                                                  "44 33 22 11"),      // f2
                                              0xAA);
    EXPECT_EQ(detect->f0, 0x11);
    EXPECT_EQ(detect->f1, 0);
    EXPECT_EQ(detect->f2, 0U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, U16MayEndWithTheBuffer) {
    EXPECT_EQ(Unpacked<Nac_PortVlanChangeMsg>(only_field(2, "34 12"))->f2, 0x1234);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, U16OneByteFurtherFailsSilently) {
    EXPECT_TRUE(Unpacked<Nac_PortVlanChangeMsg>(only_field(2, "34"), 0xAA).all(0));
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, U32MayEndWithTheBuffer) {
    EXPECT_EQ(Unpacked<Nac_SetPortMsg>(only_field(1, "78 56 34 12"))->f1, 0x12345678U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, U32OneByteFurtherFailsSilently) {
    EXPECT_TRUE(Unpacked<Nac_SetPortMsg>(only_field(1, "78 56 34"), 0xAA).all(0));
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, U64MayEndWithTheBuffer) {
    EXPECT_EQ(Unpacked<Nac_UserDataFlowCfg>(only_field(3, "08 07 06 05 04 03 02 01"))->f3,
              0x0102030405060708U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, U64OneByteFurtherFailsSilentlyWithAllLaterFields) {
    const Unpacked<Nac_UserDataFlowCfg> cfg(
        hex("10 00 00 00"                // root reference
            "0c 00 24 00"                // vtable length, table length
            "04 00 0d 00 04 00 04 00"    // f1 at 29, one too far
            "0c 00 00 00"                // soffset
            "01 02 03 04 05 06 07 08"    // f0, also in the offsets of f2 and f3
            "01 02 03 04 05 06 07 08"),  // f1 from its second byte
        0xAA);
    EXPECT_EQ(cfg->f0, 0x0807060504030201U);
    EXPECT_EQ(cfg->f1, 0U);
    EXPECT_EQ(cfg->f2, 0U);
    EXPECT_EQ(cfg->f3, 0U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, FieldAtTheGreatestDistanceFailsSilently) {
    Bytes bytes = hex(kVersion);
    put16(bytes, 8, 0xFFFF);
    EXPECT_TRUE(Unpacked<Nac_TableVersionChangeMsg>(bytes, 0xAA).all(0));
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, OffsetIsNotCheckedAgainstTheTableLength) {
    Bytes bytes = hex(kVersion);
    put16(bytes, 6, 4);  // a table of nothing but its soffset
    EXPECT_EQ(Unpacked<Nac_TableVersionChangeMsg>(bytes)->f0, 0x11223344U);
    put16(bytes, 8, 1);  // an offset inside the soffset
    EXPECT_EQ(Unpacked<Nac_TableVersionChangeMsg>(bytes)->f0, 0x44000000U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ScalarBounds, FieldOfATableAtTheEndOfTheLongestBufferIsChecked) {
    constexpr std::uint32_t length = 0x7FFFFFFF;
    LazyMemory buffer(length);
    // The table stands in the last four bytes; f0 would lie up to 64 KiB after them.
    Bytes head = hex("fb ff ff 7f 06 00 08 00 ff ff");
    std::memcpy(buffer.data(), head.data(), head.size());
    put32(head, 0, length - 4 - 4);  // soffset: vtable at 4
    std::memcpy(buffer.data() + length - 4, head.data(), 4);
    EXPECT_EQ(unpacked_over(message_type("Nac_TableVersionChangeMsg"), buffer.data(), length, 0xAA),
              Bytes(4));
    EXPECT_EQ(logged(), Lines{});
}

// ---- nested tables -----------------------------------------------------------------------------------

class NestedTable : public MessageTest {
  protected:
    // A configuration whose f0 is 0x55 and whose nested table is reached by `reference`, at 17 of `length`
    // bytes; the nested table's own f0 is 9.
    static Bytes config(std::uint32_t reference) {
        Bytes bytes =
            hex("0c 00 00 00"              // root reference
                "08 00 09 00 04 00 05 00"  // vtable
                "08 00 00 00"              // soffset
                "55"                       // f0
                "0a 00 00 00"              // f1, at 17: table at 27
                "06 00 08 00 04 00"        // nested vtable: only f0
                "06 00 00 00"              // nested soffset
                "09 00 00 00");            // nested f0
        put32(bytes, 17, reference);
        return bytes;
    }

    void expect_outcome(const Bytes& bytes, std::uint32_t nested_f0, const Lines& lines) {
        services.reset();
        const Unpacked<Nac_ConfigAccessUserUclGroupIpMsg> read(bytes, 0xAA);
        EXPECT_EQ(read->f0, 0x55);  // read before, so kept
        EXPECT_EQ(read->f1.f0, nested_f0);
        EXPECT_EQ(read->f1.f4, 0);
        EXPECT_EQ(logged(), lines);
    }
};

TEST_F(NestedTable, IsReadWhereItsReferencePoints) { expect_outcome(config(10), 9, {}); }

TEST_F(NestedTable, ReferenceOfZeroPointsToItself) {
    // Four zero bytes: a table whose vtable is itself and has length 0.
    expect_outcome(config(0), 0, {});
}

TEST_F(NestedTable, ReferenceMayBeTheLastFourBytes) {
    expect_outcome(hex("0c 00 00 00 08 00 09 00 04 00 05 00 08 00 00 00 55"
                       "00 00 00 00"),  // f1
                   0, {});
}

TEST_F(NestedTable, ReferenceOneByteFurtherFailsSilently) {
    expect_outcome(hex("0c 00 00 00 08 00 09 00 04 00 05 00 08 00 00 00 55"
                       "00 00 00"),  // f1, cut
                   0, {});
}

TEST_F(NestedTable, ReferenceThatWrapsFailsSilently) {
    expect_outcome(config(0xFFFFFFFF), 0, {});        // to 16
    expect_outcome(config(0x100000000 - 17), 0, {});  // to 0
    expect_outcome(config(0x100000000 - 17 + 4), 0, {});
}

TEST_F(NestedTable, ReferenceToTheLastPositionBeforeTheWrapIsACheckedTablePosition) {
    expect_outcome(
        config(0xFFFFFFFF - 17), 0,
        {"Nac_CfgUclGroupIp_unpack_non_root: [KAPLO]:Table offset(4294967295) is out of range(4 - 35)"});
}

TEST_F(NestedTable, MayStartFourBytesBeforeTheEnd) {
    Bytes bytes = config(31 - 17);
    put32(bytes, 31, 31 - 21);  // its soffset: the nested vtable at 21
    expect_outcome(bytes, 0, {});
    put16(bytes, 21 + 4, 1);  // f0 would start in the soffset and end after the buffer
    expect_outcome(bytes, 0, {});
}

TEST_F(NestedTable, MayNotStartThreeBytesBeforeTheEnd) {
    expect_outcome(config(32 - 17), 0,
                   {"Nac_CfgUclGroupIp_unpack_non_root: [KAPLO]:Table offset(32) is out of range(4 - 35)"});
}

TEST_F(NestedTable, VtableOutsideIsLoggedUnderTheNestedName) {
    Bytes bytes = config(10);
    put32(bytes, 27, 24);  // vtable at 3
    expect_outcome(bytes, 0,
                   {"Nac_CfgUclGroupIp_unpack_non_root: [KAPLO]:Vtable offset(27) is out of range(4 - 31)"});
}

TEST_F(NestedTable, VtableThatRunsOutIsLoggedUnderTheNestedName) {
    Bytes bytes = config(10);
    put16(bytes, 21, 15);
    expect_outcome(bytes, 0,
                   {"Nac_CfgUclGroupIp_unpack_non_root: [KAPLO]:Vtable Len(15) is out of range(0 - 14)"});
}

TEST_F(NestedTable, LineOfANestedFaultIsAsThatOfTheRoot) {
    const Unpacked<Nac_ConfigAccessUserUclGroupIpMsg> read(config(32 - 17));
    expect_one_line("Nac_CfgUclGroupIp_unpack_non_root: [KAPLO]:Table offset(32) is out of range(4 - 35)",
                    kArgumentsAndLayout);
}

TEST_F(NestedTable, FieldFaultInsideEndsTheParentSilentlyAndKeepsWhatWasRead) {
    // A query answer: f0, and f1 with f0 = 2 and an f1 that lies outside.
    const Unpacked<Nac_UserDataFlowQueryAckMsg> answer(hex("0c 00 00 00"              // root reference
                                                           "08 00 0c 00 04 00 08 00"  // vtable
                                                           "08 00 00 00"              // soffset
                                                           "01 00 00 00"              // f0
                                                           "0e 00 00 00"              // f1: from 20 to 34
                                                           "0a 00 08 00 04 00 05 00 04 00"  // its vtable
                                                           "0a 00 00 00"                    // its soffset
                                                           "02 00 00 00"),                  // its f0
                                                       0xAA);
    EXPECT_EQ(answer->f0, 1U);
    EXPECT_EQ(answer->f1.f0, 2U);
    EXPECT_EQ(answer->f1.f1, 0U);
    EXPECT_EQ(answer->f1.f2.f0, 0U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(NestedTable, FaultInsideKeepsLaterFieldsOfTheParentZero) {
    // An information whose f2 is damaged and whose f3 is valid: f3 is not read any more.
    const Unpacked<Nac_UserDataFlowInfo> info(hex("10 00 00 00"                          // root reference
                                                  "0c 00 0c 00 00 00 00 00 04 00 08 00"  // vtable: f2, f3
                                                  "0c 00 00 00"                          // soffset
                                                  "ff 00 00 00"                          // f2: at 275
                                                  "0a 00 00 00"                          // f3: from 24 to 34
                                                  "06 00 0c 00 04 00"                    // f3's vtable
                                                  "06 00 00 00"                          // f3's soffset
                                                  "01 00 00 00 00 00 00 00"),            // f3's f0
                                              0xAA);
    EXPECT_TRUE(info.all(0));
    EXPECT_EQ(logged(), (Lines{"Nac_UserDataFlowCfg_unpack_non_root: [KAPLO]:Table offset(275) is out of "
                               "range(4 - 46)"}));
}

TEST_F(NestedTable, MissingInAShorterVtableStaysZero) {
    const Unpacked<Nac_RadiusDaclRule> rule(only_field(5, "01 00 00 00"), 0xAA);  // vtable of 16 bytes
    EXPECT_EQ(rule->f5, 1U);
    const Nac_DaclRuleIpInfo zero = {};
    EXPECT_EQ(std::memcmp(&rule->f6, &zero, sizeof zero), 0);
}

// ---- vectors of tables -------------------------------------------------------------------------------

class TableVector : public MessageTest {
  protected:
    // What a list with faults looks like: nothing allocated is left, the count perhaps is.
    void expect_no_array(const Bytes& bytes, std::uint32_t count, const Lines& lines) {
        services.reset();
        const Unpacked<Nac_UserDataFlowMsg> list(bytes, 0xAA);
        EXPECT_EQ(list->f0_count, count);
        EXPECT_EQ(list->f0, nullptr);
        EXPECT_EQ(logged(), lines);
    }
    void expect_no_allocation(const Bytes& bytes) {
        expect_no_array(bytes, 0, {});
        EXPECT_EQ(services.allocations().size(), 0U);
    }
};

TEST_F(TableVector, ArrayIsAllocatedForAllElementsAndReleasedByFree) {
    {
        // Both element references are 0: each element is the four zero bytes of its own reference.
        const Unpacked<Nac_UserDataFlowMsg> list(only_field(0,
                                                            "04 00 00 00"                // f0
                                                            "02 00 00 00"                // count
                                                            "00 00 00 00 00 00 00 00"),  // element references
                                                 0xAA);
        ASSERT_EQ(list->f0_count, 2U);
        const Bytes zero(2 * std::size_t{136});
        EXPECT_EQ(std::memcmp(list->f0, zero.data(), zero.size()), 0);
    }
    ASSERT_EQ(services.allocations().size(), 1U);
    const Allocation allocation = services.allocations()[0];
    EXPECT_EQ(allocation.allocator, Allocator::cache);
    EXPECT_EQ(allocation.size, 272U);
    EXPECT_EQ(allocation.owner_code, 12U);
    EXPECT_EQ(allocation.caller, "Nac_UserDataFlowMsg_unpack_non_root");
    ASSERT_EQ(services.releases().size(), 1U);
    EXPECT_EQ(services.releases()[0].block, allocation.block);
    EXPECT_EQ(services.releases()[0].owner_code, 12U);
    EXPECT_EQ(services.releases()[0].caller, "Nac_UserDataFlowMsg_free_unpacked");
}

TEST_F(TableVector, ReferenceOneByteTooFarFailsSilently) { expect_no_allocation(only_field(0, "04 00 00")); }

TEST_F(TableVector, ReferenceOfZeroIsAnEmptyVector) { expect_no_allocation(only_field(0, "00 00 00 00")); }

TEST_F(TableVector, ReferenceThatWrapsFailsSilently) {
    expect_no_allocation(only_field(0, "ff ff ff ff"));              // to 13
    expect_no_allocation(only_field(0, "f6 ff ff ff 00 00 00 00"));  // to 4, where a count could be read
}

TEST_F(TableVector, CountMayBeTheLastFourBytes) {
    const Unpacked<Nac_UserDataFlowMsg> list(only_field(0, "05 00 00 00 ee 00 00 00 00"));
    EXPECT_TRUE(list.all(0));
    expect_no_allocation(only_field(0, "04 00 00 00 00 00 00 00"));
}

TEST_F(TableVector, CountOneByteTooFarFailsSilently) {
    expect_no_allocation(only_field(0, "05 00 00 00 01 00 00 00"));
    expect_no_allocation(only_field(0, "ff ff ff 7f 00 00 00 00"));
}

TEST_F(TableVector, ElementReferencesMayEndWithTheBuffer) {
    const Unpacked<Nac_UserDataFlowMsg> list(only_field(0, "04 00 00 00 01 00 00 00 00 00 00 00"));
    EXPECT_EQ(list->f0_count, 1U);
    EXPECT_NE(list->f0, nullptr);
}

TEST_F(TableVector, ElementReferencesOneByteTooFarFailBeforeAnyAllocation) {
    expect_no_allocation(only_field(0, "04 00 00 00 01 00 00 00 00 00 00"));
    expect_no_allocation(only_field(0, "04 00 00 00 02 00 00 00 00 00 00 00 00 00 00"));
}

TEST_F(TableVector, CountsThatNoBufferHoldsFailBeforeAnyAllocation) {
    expect_no_allocation(only_field(0, "04 00 00 00 ff ff ff 3f 00 00 00 00"));
    expect_no_allocation(only_field(0, "04 00 00 00 00 00 00 40 00 00 00 00"));  // times 4 would be 0
    expect_no_allocation(only_field(0, "04 00 00 00 01 00 00 40 00 00 00 00"));  // times 4 would be 4
    expect_no_allocation(only_field(0, "04 00 00 00 ff ff ff ff 00 00 00 00"));
}

TEST_F(TableVector, FailedAllocationKeepsTheCountAndLogsSixteenBlanks) {
    services.fail_allocation(0);
    const Unpacked<Nac_UserDataFlowMsg> list(only_field(0, "04 00 00 00 01 00 00 00 00 00 00 00"), 0xAA);
    EXPECT_EQ(list->f0_count, 1U);
    EXPECT_EQ(list->f0, nullptr);
    expect_one_line(
        "Nac_UserDataFlowMsg_unpack_non_root: [KAPLO]:Malloc unpack data unsuccess,                size(136)",
        kMemory);
    EXPECT_EQ(services.log_lines()[0].format,
              "[KAPLO]:Malloc unpack data unsuccess,                size(%u)");
}

// Three elements, each with only its f0: 1, 2, 3. Element k's table stands at 40 + 14 k.
Bytes list_of_three() {
    return only_field(0,
                      "04 00 00 00"                // f0, at 14
                      "03 00 00 00"                // count
                      "12 00 00 00"                // element 0: from 22 to 40
                      "1c 00 00 00"                // element 1: from 26 to 54
                      "26 00 00 00"                // element 2: from 30 to 68
                      "06 00 08 00 04 00"          // element 0's vtable, at 34
                      "06 00 00 00 01 00 00 00"    // element 0
                      "06 00 08 00 04 00"          // element 1's vtable, at 48
                      "06 00 00 00 02 00 00 00"    // element 1
                      "06 00 08 00 04 00"          // element 2's vtable, at 62
                      "06 00 00 00 03 00 00 00");  // element 2, to 76
}

TEST_F(TableVector, ElementsAreReadInOrder) {
    const Unpacked<Nac_UserDataFlowMsg> list(list_of_three());
    ASSERT_EQ(list->f0_count, 3U);
    EXPECT_EQ(list->f0[0].f0, 1U);
    EXPECT_EQ(list->f0[1].f0, 2U);
    EXPECT_EQ(list->f0[2].f0, 3U);
}

TEST_F(TableVector, FailingElementFreesTheWholeArrayAndKeepsTheCount) {
    Bytes bytes = list_of_three();
    put32(bytes, 30, 43);  // element 2 at 73
    expect_no_array(
        bytes, 3, {"Nac_UserDataFlowInfo_unpack_non_root: [KAPLO]:Table offset(73) is out of range(4 - 76)"});
    ASSERT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.allocations()[0].size, 408U);
    ASSERT_EQ(services.releases().size(), 1U);
    EXPECT_EQ(services.releases()[0].block, services.allocations()[0].block);
    EXPECT_EQ(services.releases()[0].owner_code, 12U);
    EXPECT_EQ(services.releases()[0].caller, "Nac_UserDataFlowMsg_free_unpacked");
}

TEST_F(TableVector, ElementReferenceThatWrapsFailsSilently) {
    Bytes bytes = list_of_three();
    put32(bytes, 26, 0x100000000 - 26 + 4);
    expect_no_array(bytes, 3, {});
}

TEST_F(TableVector, ElementVtableFaultsCarryTheElementName) {
    Bytes bytes = list_of_three();
    put32(bytes, 54, 51);  // element 1's vtable at 3
    expect_no_array(
        bytes, 3,
        {"Nac_UserDataFlowInfo_unpack_non_root: [KAPLO]:Vtable offset(54) is out of range(4 - 72)"});
    bytes = list_of_three();
    put16(bytes, 62, 15);
    expect_no_array(bytes, 3,
                    {"Nac_UserDataFlowInfo_unpack_non_root: [KAPLO]:Vtable Len(15) is out of range(0 - 14)"});
}

TEST_F(TableVector, FieldFaultInAnElementFreesTheArraySilently) {
    Bytes bytes = list_of_three();
    put16(bytes, 66, 5);  // element 2's f0 ends one byte after the buffer
    expect_no_array(bytes, 3, {});
    EXPECT_EQ(services.releases().size(), 1U);
}

TEST_F(TableVector, FaultInATableNestedInAnElementFreesTheArray) {
    const Bytes bytes = only_field(1,
                                   "04 00 00 00"              // f1, at 16
                                   "01 00 00 00"              // count
                                   "0c 00 00 00"              // element 0: from 24 to 36
                                   "08 00 08 00 00 00 04 00"  // its vtable: only f1
                                   "08 00 00 00"              // its soffset
                                   "ff 00 00 00");            // its f1, at 40: at 295
    const Unpacked<Nac_UclGroupIpArray> array(bytes);
    EXPECT_EQ(array->f1_count, 1U);
    EXPECT_EQ(array->f1, nullptr);
    EXPECT_EQ(
        logged(),
        (Lines{"Nac_CfgUclGroupIp_unpack_non_root: [KAPLO]:Table offset(295) is out of range(4 - 44)"}));
    ASSERT_EQ(services.releases().size(), 1U);
    EXPECT_EQ(services.releases()[0].caller, "Nac_UclGroupIpArray_free_unpacked");
}

TEST_F(TableVector, FieldsBeforeAFailedVectorKeepTheirValues) {
    const Unpacked<Nac_UclGroupIpArray> array(hex("0c 00 00 00"              // root reference
                                                  "08 00 0c 00 04 00 08 00"  // vtable
                                                  "08 00 00 00"              // soffset
                                                  "44 33 22 11"              // f0
                                                  "04 00 00 00"              // f1
                                                  "00 00 00 40"),            // count
                                              0xAA);
    EXPECT_EQ(array->f0, 0x11223344U);
    EXPECT_EQ(array->f1_count, 0U);
    EXPECT_EQ(array->f1, nullptr);
    EXPECT_EQ(logged(), Lines{});
}

// More than 4 GiB of records, 136 bytes each, from 126 MB of zero bytes.
class HugeList : public MessageTest {
  protected:
    static constexpr std::uint32_t kTooMany = 31580642;  // times 136: 16 above 2^32

    Nac_UserDataFlowMsg unpacked(std::uint32_t count) {
        Bytes head = only_field(0, "04 00 00 00 00 00 00 00");
        put32(head, 18, count);
        LazyMemory buffer(22 + 4 * std::size_t{count}, head);
        Nac_UserDataFlowMsg list = {};
        EXPECT_EQ(Nac_UserDataFlowMsg__unpack(buffer.data(), buffer.size(), &list), 16U);
        return list;
    }
};

TEST_F(HugeList, LargestArrayThat32BitsCountIsAskedFor) {
    services.fail_allocation(0);
    const Nac_UserDataFlowMsg list = unpacked(kTooMany - 1);
    EXPECT_EQ(list.f0_count, kTooMany - 1);
    EXPECT_EQ(list.f0, nullptr);
    ASSERT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.allocations()[0].size, 4294967176U);  // above 2^31: the hook takes it unsigned
    EXPECT_EQ(logged_texts(), Lines{"[KAPLO]:Malloc unpack data unsuccess,                size(4294967176)"});
}

TEST_F(HugeList, LargerArrayIsAFailedAllocationThatTheHookNeverSees) {
    const Nac_UserDataFlowMsg list = unpacked(kTooMany);
    EXPECT_EQ(list.f0_count, kTooMany);
    EXPECT_EQ(list.f0, nullptr);
    EXPECT_EQ(services.allocations().size(), 0U);
    expect_one_line(
        "Nac_UserDataFlowMsg_unpack_non_root: [KAPLO]:Malloc unpack data unsuccess,                size(16)",
        kMemory);
}

TEST_F(TableVector, ReferenceThatWrapsNearTheEndOfTheLongestBufferFailsSilently) {
    constexpr std::uint32_t length = 0x7FFFFFFF;
    constexpr std::uint32_t table = length - 8;
    LazyMemory buffer(length, hex("f7 ff ff 7f 06 00 08 00 04 00"));  // root reference, vtable at 4
    Bytes tail(8);
    put32(tail, 0, table - 4);         // soffset
    put32(tail, 4, 0 - (length - 4));  // f0: to 0, were it not for the wrap
    std::memcpy(buffer.data() + table, tail.data(), tail.size());
    Nac_UserDataFlowMsg list = {};
    EXPECT_EQ(Nac_UserDataFlowMsg__unpack(buffer.data(), length, &list), 16U);
    EXPECT_EQ(list.f0_count, 0U);
    EXPECT_EQ(logged(), Lines{});
}

// ---- vectors of bytes --------------------------------------------------------------------------------

class ByteVector : public MessageTest {
  protected:
    void expect_no_allocation(std::string_view content) {
        SCOPED_TRACE(content);
        const Unpacked<Nac_IpsecAuthenAckMsg> ack(only_field(14, content), 0xAA);
        EXPECT_TRUE(ack.all(0));
        EXPECT_EQ(services.allocations().size(), 0U);
        EXPECT_EQ(logged(), Lines{});
    }
};

TEST_F(ByteVector, MayEndWithTheBufferAndIsNotTerminated) {
    {
        const Unpacked<Nac_IpsecAuthenAckMsg> ack(only_field(14, "04 00 00 00 03 00 00 00 61 62 63"), 0xAA);
        ASSERT_EQ(ack->f14_count, 3U);
        EXPECT_EQ(std::memcmp(ack->f14, "abc", 3), 0);
    }
    ASSERT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.allocations()[0].allocator, Allocator::cache);
    EXPECT_EQ(services.allocations()[0].size, 3U);
    EXPECT_EQ(services.allocations()[0].owner_code, 12U);
    EXPECT_EQ(services.allocations()[0].caller, "Nac_IpsecAuthenAckMsg_unpack_non_root");
    ASSERT_EQ(services.releases().size(), 1U);
    EXPECT_EQ(services.releases()[0].caller, "Nac_IpsecAuthenAckMsg_free_unpacked");
}

TEST_F(ByteVector, OneByteTooManyFailsSilently) { expect_no_allocation("04 00 00 00 04 00 00 00 61 62 63"); }

TEST_F(ByteVector, CountsThatWrapFailSilently) {
    expect_no_allocation("04 00 00 00 ff ff ff ff 61 62 63");
    expect_no_allocation("04 00 00 00 d0 ff ff ff 61 62 63");  // from 50 to 2
    expect_no_allocation("04 00 00 00 ff ff ff 7f 61 62 63");
}

TEST_F(ByteVector, OfNoBytesHasANullPointer) { expect_no_allocation("04 00 00 00 00 00 00 00 61"); }

TEST_F(ByteVector, ReferenceOfZeroIsAnEmptyVector) { expect_no_allocation("00 00 00 00"); }

TEST_F(ByteVector, ReferenceAndCountMustLieInside) {
    expect_no_allocation("04 00 00");
    expect_no_allocation("04 00 00 00 00 00 00");
    expect_no_allocation("ff ff ff ff 00 00 00 00");
}

TEST_F(ByteVector, FailedAllocationIsLoggedWithItsSize) {
    services.fail_allocation(0);
    const Unpacked<Nac_IpsecAuthenAckMsg> ack(only_field(14, "04 00 00 00 03 00 00 00 61 62 63"), 0xAA);
    EXPECT_EQ(ack->f14_count, 3U);
    EXPECT_EQ(ack->f14, nullptr);
    expect_one_line(
        "Nac_IpsecAuthenAckMsg_unpack_non_root: [KAPLO]:Malloc unpack data unsuccess,                size(3)",
        kMemory);
}

// An answer with f14 = "a" and f15 = "bc", whose f16 names 9 bytes where none are.
Bytes answer_with_bad_third_vector() {
    Bytes bytes =
        hex("2a 00 00 00"                                // root reference: table at 42
            "26 00 10 00"                                // vtable length, table length
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f0 to f6 absent
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f7 to f13 absent
            "04 00 08 00 0c 00"                          // f14, f15, f16
            "26 00 00 00"                                // soffset
            "0c 00 00 00"                                // f14: from 46 to 58
            "0d 00 00 00"                                // f15: from 50 to 63
            "0f 00 00 00"                                // f16: from 54 to 69
            "01 00 00 00 61"                             // f14
            "02 00 00 00 62 63"                          // f15
            "09 00 00 00");                              // f16
    return bytes;
}

TEST_F(ByteVector, FaultReleasesTheVectorsBeforeItAndKeepsTheirCounts) {
    const Unpacked<Nac_IpsecAuthenAckMsg> ack(answer_with_bad_third_vector(), 0xAA);
    EXPECT_EQ(ack->f14_count, 1U);
    EXPECT_EQ(ack->f14, nullptr);
    EXPECT_EQ(ack->f15_count, 2U);
    EXPECT_EQ(ack->f15, nullptr);
    EXPECT_EQ(ack->f16_count, 0U);
    EXPECT_EQ(ack->f16, nullptr);
    EXPECT_EQ(services.allocations().size(), 2U);
    EXPECT_EQ(services.releases().size(), 2U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(ByteVector, FailedAllocationOfALaterOneReleasesTheFirst) {
    Bytes bytes = answer_with_bad_third_vector();
    put32(bytes, 69, 0);  // nothing wrong with f16 now
    services.fail_allocation(1);
    const Unpacked<Nac_IpsecAuthenAckMsg> ack(bytes, 0xAA);
    EXPECT_EQ(ack->f14_count, 1U);
    EXPECT_EQ(ack->f14, nullptr);
    EXPECT_EQ(ack->f15_count, 2U);
    EXPECT_EQ(ack->f15, nullptr);
    EXPECT_EQ(logged_texts(), Lines{"[KAPLO]:Malloc unpack data unsuccess,                size(2)"});
    ASSERT_EQ(services.releases().size(), 1U);
    EXPECT_EQ(services.releases()[0].block, services.allocations()[0].block);
}

// ---- vectors of numbers ------------------------------------------------------------------------------

class NumberVector : public MessageTest {
  protected:
    static constexpr std::uint32_t kU16 = 15;
    static constexpr std::uint32_t kU32 = 52;

    void expect_no_allocation(std::uint32_t id, std::string_view content) {
        SCOPED_TRACE(content);
        const Unpacked<Nac_SetUserTableMsg> entry(only_field(id, content), 0xAA);
        EXPECT_TRUE(entry.all(0));
        EXPECT_EQ(services.allocations().size(), 0U);
        EXPECT_EQ(logged(), Lines{});
    }
};

TEST_F(NumberVector, OfU16MayEndWithTheBuffer) {
    const Unpacked<Nac_SetUserTableMsg> entry(only_field(kU16, "04 00 00 00 02 00 00 00 34 12 78 56"));
    ASSERT_EQ(entry->f15_count, 2U);
    EXPECT_EQ(entry->f15[0], 0x1234);
    EXPECT_EQ(entry->f15[1], 0x5678);
    ASSERT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.allocations()[0].size, 4U);
    EXPECT_EQ(services.allocations()[0].caller, "Nac_SetUserTableMsg_unpack_non_root");
}

TEST_F(NumberVector, OfU16OneByteTooFarFailsSilently) {
    expect_no_allocation(kU16, "04 00 00 00 02 00 00 00 34 12 78");
}

TEST_F(NumberVector, OfU16WithCountsThatNoBufferHoldsFailsSilently) {
    expect_no_allocation(kU16, "04 00 00 00 ff ff ff 7f 34 12");
    expect_no_allocation(kU16, "04 00 00 00 00 00 00 80 34 12");  // times 2 would be 0
    expect_no_allocation(kU16, "04 00 00 00 01 00 00 80 34 12");  // times 2 would be 2
    expect_no_allocation(kU16, "04 00 00 00 ff ff ff ff 34 12");
}

TEST_F(NumberVector, OfU32MayEndWithTheBuffer) {
    const Unpacked<Nac_SetUserTableMsg> entry(only_field(kU32, "04 00 00 00 01 00 00 00 78 56 34 12"));
    ASSERT_EQ(entry->f52_count, 1U);
    EXPECT_EQ(entry->f52[0], 0x12345678U);
    ASSERT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.allocations()[0].size, 4U);
}

TEST_F(NumberVector, OfU32OneByteTooFarFailsSilently) {
    expect_no_allocation(kU32, "04 00 00 00 01 00 00 00 78 56 34");
}

TEST_F(NumberVector, OfU32WithCountsThatNoBufferHoldsFailsSilently) {
    expect_no_allocation(kU32, "04 00 00 00 ff ff ff 3f 78 56 34 12");
    expect_no_allocation(kU32, "04 00 00 00 00 00 00 40 78 56 34 12");  // times 4 would be 0
    expect_no_allocation(kU32, "04 00 00 00 01 00 00 40 78 56 34 12");  // times 4 would be 4
    expect_no_allocation(kU32, "04 00 00 00 ff ff ff ff 78 56 34 12");
}

TEST_F(NumberVector, OfNoElementsHasANullPointer) {
    expect_no_allocation(kU16, "04 00 00 00 00 00 00 00");
    expect_no_allocation(kU32, "00 00 00 00");
}

TEST_F(NumberVector, FailedAllocationIsLoggedWithItsSizeInBytes) {
    services.fail_allocation(0);
    const Unpacked<Nac_SetUserTableMsg> entry(
        only_field(kU32, "04 00 00 00 02 00 00 00 01 00 00 00 02 00 00 00"));
    EXPECT_EQ(entry->f52_count, 2U);
    EXPECT_EQ(entry->f52, nullptr);
    expect_one_line(
        "Nac_SetUserTableMsg_unpack_non_root: [KAPLO]:Malloc unpack data unsuccess,                size(8)",
        kMemory);
}

// ---- fixed arrays ------------------------------------------------------------------------------------

class FixedArray : public MessageTest {
  protected:
    // f4 of an offline notice, a hardware address of six bytes.
    void expect_failure(std::string_view content) {
        SCOPED_TRACE(content);
        const Unpacked<Nac_L2NotifyNacUserOfflineMsg> notice(only_field(4, content), 0xAA);
        EXPECT_TRUE(notice.all(0));
        EXPECT_EQ(logged(), Lines{});
    }
};

TEST_F(FixedArray, IsCopiedIntoTheRecordWithoutAllocation) {
    const Unpacked<Nac_L2NotifyNacUserOfflineMsg> notice(
        only_field(4, "04 00 00 00 06 00 00 00 01 02 03 04 05 06"));
    const Bytes address = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(std::memcmp(notice->f4, address.data(), 6), 0);
    EXPECT_EQ(services.allocations().size(), 0U);
}

TEST_F(FixedArray, OfOneElementTooFewFailsSilently) {
    expect_failure("04 00 00 00 05 00 00 00 01 02 03 04 05 06 07");
}

TEST_F(FixedArray, OfOneElementTooManyFailsSilently) {
    expect_failure("04 00 00 00 07 00 00 00 01 02 03 04 05 06 07");
}

TEST_F(FixedArray, OfNoElementsFailsSilently) {
    expect_failure("04 00 00 00 00 00 00 00");
    expect_failure("00 00 00 00");  // the reference is its own count
}

TEST_F(FixedArray, OfTheLargestCountFailsSilently) {
    expect_failure("04 00 00 00 ff ff ff ff 01 02 03 04 05 06");
    expect_failure("04 00 00 00 06 00 00 80 01 02 03 04 05 06");
}

TEST_F(FixedArray, MustLieInside) {
    expect_failure("04 00 00");
    expect_failure("04 00 00 00 06 00 00");
    expect_failure("04 00 00 00 06 00 00 00 01 02 03 04 05");
    expect_failure("ff ff ff ff 06 00 00 00 01 02 03 04 05 06");
}

TEST_F(FixedArray, FaultKeepsEarlierFieldsAndLeavesLaterOnesZero) {
    const Unpacked<Nac_L2NotifyNacUserOfflineMsg> notice(hex("16 00 00 00"              // root reference: 22
                                                             "10 00 0c 00"              // vtable of 6 slots
                                                             "00 00 00 00 04 00 00 00"  // f2
                                                             "08 00 04 00"              // f4, f5
                                                             "00 00"                    // unused
                                                             "12 00 00 00"              // soffset 18
                                                             "09 00 00 00"              // f2, f5
                                                             "04 00 00 00"              // f4
                                                             "05 00 00 00 01 02 03 04 05"),  // five elements
                                                         0xAA);
    EXPECT_EQ(notice->f2, 9U);
    EXPECT_EQ(notice->f5, 0U);
    EXPECT_EQ(notice->f4[0], 0);
}

TEST_F(FixedArray, OfU16NeedsItsSixteenElements) {
    constexpr std::string_view sixteen =
        "01 00 02 00 03 00 04 00 05 00 06 00 07 00 08 00"
        "09 00 0a 00 0b 00 0c 00 0d 00 0e 00 0f 00 10 01";
    const auto entry_with = [&](std::string_view count) {
        return only_field(53, "04 00 00 00" + std::string(count) + std::string(sixteen));
    };
    const Unpacked<Nac_SetUserTableMsg> entry(entry_with("10 00 00 00"));
    EXPECT_EQ(entry->f53[0], 1);
    EXPECT_EQ(entry->f53[15], 0x110);
    EXPECT_TRUE(Unpacked<Nac_SetUserTableMsg>(entry_with("0f 00 00 00")).all(0));
    EXPECT_TRUE(Unpacked<Nac_SetUserTableMsg>(entry_with("11 00 00 00")).all(0));
    EXPECT_TRUE(Unpacked<Nac_SetUserTableMsg>(entry_with("10 00 00 80")).all(0));
    Bytes cut = entry_with("10 00 00 00");
    cut.pop_back();
    EXPECT_TRUE(Unpacked<Nac_SetUserTableMsg>(cut).all(0));
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(FixedArray, FaultReleasesTheVectorsOfTheRecord) {
    // An authentication request with f5 = "a" and an address of seven bytes.
    const Unpacked<Nac_IpsecAuthenReqMsg> request(hex("1c 00 00 00"                    // root reference: 28
                                                      "18 00 0c 00"                    // vtable of 10 slots
                                                      "00 00 00 00 00 00 00 00 00 00"  // f0 to f4 absent
                                                      "04 00 00 00 00 00 00 00 08 00"  // f5, f9
                                                      "18 00 00 00"                    // soffset
                                                      "08 00 00 00"                    // f5: from 32 to 40
                                                      "09 00 00 00"                    // f9: from 36 to 45
                                                      "01 00 00 00 61"                 // f5
                                                      "07 00 00 00 01 02 03 04 05 06 07"),  // f9
                                                  0xAA);
    EXPECT_EQ(request->f5_count, 1U);
    EXPECT_EQ(request->f5, nullptr);
    EXPECT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.releases().size(), 1U);
    EXPECT_EQ(logged(), Lines{});
}

// ---- what every type with vectors does with memory ---------------------------------------------------

// A message with one vector of one element, and what is logged when its array cannot be had.
struct OneElement {
    const char* type;
    Bytes bytes;
    const char* allocated_by;
    std::uint32_t size;
    const char* complaint;
};

std::ostream& operator<<(std::ostream& to, const OneElement& element) { return to << element.type; }

const std::vector<OneElement>& one_element_messages() {
    const std::string_view table = "04 00 00 00 01 00 00 00 00 00 00 00";  // all zero
    const std::string_view letter = "04 00 00 00 01 00 00 00 61";
    static const std::vector<OneElement> messages = {
        {"Nac_UserDataFlowMsg", only_field(0, table), "Nac_UserDataFlowMsg_unpack_non_root", 136,
         "[KAPLO]:Malloc unpack data unsuccess,                size(136)"},
        {"Nac_UclGroupIpArray", only_field(1, table), "Nac_UclGroupIpArray_unpack", 24,
         "[KAPLO]:Malloc unpack data unsuccess, size(24)"},
        {"Nac_UclGroupIpAckArray", only_field(1, table), "Nac_UclGroupIpAckArray_unpack", 28,
         "[KAPLO]:Malloc unpack data unsuccess, size(28)"},
        {"Nac_SetUserTableMsg", only_field(32, table), "Nac_SetUserTableMsg_unpack_non_root", 148,
         "[KAPLO]:Malloc unpack data unsuccess,                size(148)"},
        {"Nac_IpsecAuthenReqMsg", only_field(15, letter), "Nac_IpsecAuthenReqMsg_unpack_non_root", 1,
         "[KAPLO]:Malloc unpack data unsuccess,                size(1)"},
        {"Nac_IpsecAuthenAckMsg", only_field(16, letter), "Nac_IpsecAuthenAckMsg_unpack_non_root", 1,
         "[KAPLO]:Malloc unpack data unsuccess,                size(1)"},
    };
    return messages;
}

class ReceivedArray : public MessageTest, public testing::WithParamInterface<OneElement> {
  protected:
    Bytes unpacked() const {
        GuardedBuffer buffer(GetParam().bytes);
        return unpacked_over(type, buffer.data(), buffer.size(), 0xAA);
    }
    // Releases of actual blocks; the user table also hands over pointers that are null.
    std::vector<Release> releases() const {
        std::vector<Release> result;
        for (const Release& release : services.releases())
            if (release.block != nullptr) result.push_back(release);
        return result;
    }

    const MessageExpectations& type = message_type(GetParam().type);
};
INSTANTIATE_TEST_SUITE_P(All, ReceivedArray, testing::ValuesIn(one_element_messages()),
                         [](const auto& element) { return std::string(element.param.type); });

TEST_P(ReceivedArray, IsAllocatedAndReleasedUnderItsNamesAndOwner) {
    Bytes record = unpacked();
    ASSERT_EQ(services.allocations().size(), 1U);
    const Allocation allocation = services.allocations()[0];
    EXPECT_EQ(allocation.allocator, Allocator::cache);
    EXPECT_EQ(allocation.caller, GetParam().allocated_by);
    EXPECT_EQ(allocation.size, GetParam().size);
    EXPECT_EQ(allocation.owner_code, 12U);
    EXPECT_EQ(releases().size(), 0U);
    type.free(record.data());
    ASSERT_EQ(releases().size(), 1U);
    EXPECT_EQ(releases()[0].block, allocation.block);
    EXPECT_EQ(releases()[0].caller, type.free_name());
    EXPECT_EQ(releases()[0].owner_code, 12U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_P(ReceivedArray, IsReleasedOnceByTwoCallsOfFree) {
    Bytes record = unpacked();
    type.free(record.data());
    const Bytes after_first = record;
    type.free(record.data());
    EXPECT_EQ(record, after_first);
    EXPECT_NE(record, Bytes(type.record_bytes)) << "the count stays";
    EXPECT_EQ(releases().size(), 1U);
}

TEST_P(ReceivedArray, ThatCannotBeHadIsComplainedOfOnce) {
    services.fail_allocation(0);
    Bytes record = unpacked();
    EXPECT_NE(record, Bytes(type.record_bytes)) << "the count stays";
    expect_one_line(std::string(GetParam().allocated_by) + ": " + GetParam().complaint, kMemory);
    EXPECT_EQ(releases().size(), 0U);
    type.free(record.data());
    EXPECT_EQ(releases().size(), 0U);
}

}  // namespace
