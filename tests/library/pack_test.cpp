// SPDX-License-Identifier: Apache-2.0
// The exported pack functions: sizes, refusals, null buffers, and the order in which fields are written.
#include <array>

#include "tests/support/lazy_memory.h"
#include "tests/support/message.h"
#include "tests/support/message_expectations.h"

namespace {

using namespace tests;

// ---- the call itself, the same for all types ---------------------------------------------------------

class PackOfEveryType : public MessageTest, public testing::WithParamInterface<MessageExpectations> {
  protected:
    const MessageExpectations& type = GetParam();
    const std::uint32_t empty_bytes = type.empty_packed_bytes;
    const Bytes zero = Bytes(type.record_bytes);  // the record
};
INSTANTIATE_TEST_SUITE_P(All, PackOfEveryType, testing::ValuesIn(all_messages()), message_name);

TEST_P(PackOfEveryType, RefusesANullRecordSilently) {
    std::array<std::uint8_t, 512> buffer;
    buffer.fill(0xEE);
    const auto before = buffer;
    std::uint32_t length = 512;
    EXPECT_EQ(type.pack(nullptr, buffer.data(), &length), kRefused);
    EXPECT_EQ(length, 512U);
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(type.pack(nullptr, nullptr, &length), kRefused);
    EXPECT_EQ(length, 512U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_P(PackOfEveryType, RefusesANullLengthSilently) {
    std::array<std::uint8_t, 512> buffer;
    buffer.fill(0xEE);
    const auto before = buffer;
    EXPECT_EQ(type.pack(zero.data(), buffer.data(), nullptr), kRefused);
    EXPECT_EQ(type.pack(nullptr, nullptr, nullptr), kRefused);
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(logged(), Lines{});
}

TEST_P(PackOfEveryType, NeedsExactlyThePackedSize) {
    GuardedBuffer buffer(empty_bytes);
    std::uint32_t length = empty_bytes;
    EXPECT_EQ(type.pack(zero.data(), buffer.data(), &length), 0U);
    EXPECT_EQ(length, empty_bytes);
    Bytes record(type.record_bytes, 0xAA);
    EXPECT_EQ(type.unpack(buffer.data(), length, record.data()), type.record_bytes);
    EXPECT_EQ(record, zero);
    EXPECT_EQ(logged(), Lines{});
}

TEST_P(PackOfEveryType, RefusesOneByteLessSilentlyAndWritesNothing) {
    Bytes buffer(empty_bytes, 0xEE);
    const Bytes before = buffer;
    std::uint32_t length = empty_bytes - 1;
    EXPECT_EQ(type.pack(zero.data(), buffer.data(), &length), kRefused);
    EXPECT_EQ(length, empty_bytes - 1);
    EXPECT_EQ(buffer, before);
    EXPECT_EQ(logged(), Lines{});
}

TEST_P(PackOfEveryType, RefusesACapacityOfZero) {
    std::uint8_t byte = 0xEE;
    std::uint32_t length = 0;
    EXPECT_EQ(type.pack(zero.data(), &byte, &length), kRefused);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_EQ(logged(), Lines{});
}

TEST_P(PackOfEveryType, WritesOnlyThePackedSizeIntoALargerBuffer) {
    Bytes buffer(empty_bytes + 16, 0xEE);
    std::uint32_t length = empty_bytes + 16;
    EXPECT_EQ(type.pack(zero.data(), buffer.data(), &length), 0U);
    EXPECT_EQ(length, empty_bytes);
    EXPECT_EQ(Bytes(buffer.end() - 16, buffer.end()), Bytes(16, 0xEE));
}

TEST_P(PackOfEveryType, ReturnsTheSizeWithoutABufferAtThePriceOfOneLine) {
    std::uint32_t length = 0x80000000;
    EXPECT_EQ(type.pack(zero.data(), nullptr, &length), 0U);
    EXPECT_EQ(length, empty_bytes);
    const auto lines = services.log_lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].module_name, "KAPLO");
    EXPECT_EQ(lines[0].log_module_name, "KAPLO_TORINEX_SERIAL");
    EXPECT_EQ(lines[0].level, 2U);
    EXPECT_EQ(lines[0].category, 22U);
    EXPECT_EQ(lines[0].file, "");
    EXPECT_GT(lines[0].line, 0U);
    EXPECT_EQ(lines[0].function, type.pack_name());
    EXPECT_EQ(lines[0].format, "[KAPLO]:Param invalid(%s, %u, %s)");
    EXPECT_EQ(lines[0].text, "[KAPLO]:Param invalid(null, 2147483648, nonNull)");
}

TEST_P(PackOfEveryType, NeedsThePackedSizeAsCapacityWithoutABufferToo) {
    std::uint32_t length = empty_bytes - 1;
    EXPECT_EQ(type.pack(zero.data(), nullptr, &length), kRefused);
    EXPECT_EQ(length, empty_bytes - 1);
    EXPECT_EQ(logged(), Lines{});
    length = empty_bytes;
    EXPECT_EQ(type.pack(zero.data(), nullptr, &length), 0U);
    EXPECT_EQ(length, empty_bytes);
    EXPECT_EQ(logged_texts(),
              Lines{"[KAPLO]:Param invalid(null, " + std::to_string(empty_bytes) + ", nonNull)"});
}

// ---- a record without a zero, which is written in one piece ------------------------------------------

class PackOfEveryScalar : public MessageTest {
  protected:
    const Nac_SetPortMsg record = {1, 2};
    static constexpr std::uint32_t kBytes = 24;

    // The first call of a unit looks for the host's services; all others take the short way, as those below
    // shall.
    PackOfEveryScalar() {
        Bytes buffer(kBytes);
        std::uint32_t length = kBytes;
        EXPECT_EQ(Nac_SetPortMsg__pack(&record, buffer.data(), &length), 0U);
    }
};

TEST_F(PackOfEveryScalar, RefusesANullLengthSilently) {
    Bytes buffer(kBytes, 0xEE);
    EXPECT_EQ(Nac_SetPortMsg__pack(&record, buffer.data(), nullptr), kRefused);
    EXPECT_EQ(buffer, Bytes(kBytes, 0xEE));
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(PackOfEveryScalar, IsRefusedWithAByteTooLittle) {
    Bytes buffer(kBytes, 0xEE);
    std::uint32_t length = kBytes - 1;
    EXPECT_EQ(Nac_SetPortMsg__pack(&record, buffer.data(), &length), kRefused);
    EXPECT_EQ(length, kBytes - 1);
    EXPECT_EQ(buffer, Bytes(kBytes, 0xEE));
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(PackOfEveryScalar, ReturnsTheSizeWithoutABufferAtThePriceOfOneLine) {
    std::uint32_t length = kBytes;
    EXPECT_EQ(Nac_SetPortMsg__pack(&record, nullptr, &length), 0U);
    EXPECT_EQ(length, kBytes);
    EXPECT_EQ(logged_texts(), Lines{"[KAPLO]:Param invalid(null, 24, nonNull)"});
}

TEST_P(PackOfEveryType, AllocatesNothing) {
    Bytes buffer(empty_bytes);
    std::uint32_t length = empty_bytes;
    EXPECT_EQ(type.pack(zero.data(), buffer.data(), &length), 0U);
    EXPECT_EQ(services.allocations().size(), 0U);
    EXPECT_EQ(services.releases().size(), 0U);
}

// ---- sizes -------------------------------------------------------------------------------------------

class Size : public MessageTest {};

TEST_F(Size, LeavesOutZeroScalarsOfEveryWidth) {
    EXPECT_EQ(packed_size(Nac_UserDetectInfo{0, 0, 0}), 18U);
    EXPECT_EQ(packed_size(Nac_UserDetectInfo{1, 0, 0}), 19U);
    EXPECT_EQ(packed_size(Nac_UserDetectInfo{0, 0xFF, 0}), 19U);
    EXPECT_EQ(packed_size(Nac_UserDetectInfo{0, 0, 1}), 22U);
    EXPECT_EQ(packed_size(Nac_PortVlanChangeMsg{0, 0, 0x100}), 20U);
    EXPECT_EQ(packed_size(Nac_PortVlanChangeMsg{0x1000000, 0x10000, 1}), 28U);
    EXPECT_EQ(packed_size(Nac_UserDataFlowCfg{0x100000000, 0, 0, 0}), 28U);
    EXPECT_EQ(packed_size(Nac_UserDataFlowCfg{1, 1, 1, 1}), 52U);
}

TEST_F(Size, OfAnAllZeroNestedTableIsItsReferenceAndItsEmptyTable) {
    // Root reference 4, vtable 8, soffset 4; then reference 4, vtable 14, soffset 4.
    EXPECT_EQ(packed_size(Nac_ConfigAccessUserUclGroupIpMsg{}), 16U + 22U);
    // Four nested tables of vtable 12 and soffset 4.
    EXPECT_EQ(packed_size(Nac_UserDataFlowInfo{}), 24U + 4U * (4U + 16U));
}

TEST_F(Size, CountsElementsOfAVectorOfTablesEachByItsOwnSize) {
    std::array<Nac_UserDataFlowInfo, 2> infos = {};
    EXPECT_EQ(packed_size(Nac_UserDataFlowMsg{1, infos.data()}), 22U + 4U + 100U);
    EXPECT_EQ(packed_size(Nac_UserDataFlowMsg{2, infos.data()}), 22U + 8U + 200U);
    infos[1].f0 = 1;
    infos[1].f4.f2 = 1;
    EXPECT_EQ(packed_size(Nac_UserDataFlowMsg{2, infos.data()}), 22U + 8U + 200U + 4U + 8U);
}

TEST_F(Size, CountsFixedArraysAlways) {
    EXPECT_EQ(packed_size(Nac_L2NotifyNacUserOfflineMsg{}), 42U);
    const Nac_L2NotifyNacUserOfflineMsg addressed = {0, 0, 0, 0, {1, 2, 3, 4, 5, 6}, 0, 0, 0};
    EXPECT_EQ(packed_size(addressed), 42U);
}

TEST_F(Size, CountsVectorsOfScalarsByTheirWidth) {
    std::array<std::uint8_t, 3> bytes = {1, 2, 3};
    std::array<std::uint16_t, 3> words = {1, 2, 3};
    std::array<std::uint32_t, 3> longs = {1, 2, 3};
    Nac_SetUserTableMsg entry = {};
    entry.f15_count = 3;
    entry.f15 = words.data();
    EXPECT_EQ(packed_size(entry), 238U + 8U + 6U);
    entry.f31_count = 3;
    entry.f31 = bytes.data();
    EXPECT_EQ(packed_size(entry), 252U + 8U + 3U);
    entry.f52_count = 3;
    entry.f52 = longs.data();
    EXPECT_EQ(packed_size(entry), 263U + 8U + 12U);
}

TEST_F(Size, IsWhatThePackedMessageTakes) {
    std::array<std::uint8_t, 3> bytes = {1, 2, 3};
    std::array<std::uint32_t, 2> longs = {1, 2};
    std::array<Nac_Ipv6Addr, 2> addresses = {};
    std::array<Nac_RadiusDaclRule, 2> rules = {};
    rules[0].f0 = 1;
    rules[1].f6.f27 = 1;
    Nac_SetUserTableMsg entry = {};
    entry.f0 = 1;
    entry.f12_count = 2;
    entry.f12 = addresses.data();
    entry.f31_count = 3;
    entry.f31 = bytes.data();
    entry.f32_count = 2;
    entry.f32 = rules.data();
    entry.f47 = 1;
    entry.f52_count = 2;
    entry.f52 = longs.data();
    // Scalars; two addresses of 38; 3 bytes; two rules of 218 and their 1 and 2 bytes; two u32.
    constexpr std::uint32_t size =
        238 + (4 + 8) + (8 + 2 * 38) + (8 + 3) + (8 + 2 * 218 + 1 + 2) + (8 + 2 * 4);
    GuardedBuffer buffer(size);
    std::uint32_t length = size;
    EXPECT_EQ(Nac_SetUserTableMsg__pack(&entry, buffer.data(), &length), 0U);
    EXPECT_EQ(length, size);
    const Unpacked<Nac_SetUserTableMsg> read({buffer.data(), buffer.data() + size});
    ASSERT_EQ(read->f32_count, 2U);
    EXPECT_EQ(read->f32[1].f6.f27, 1);
    ASSERT_EQ(read->f52_count, 2U);
    EXPECT_EQ(read->f52[1], 2U);
}

// ---- vectors that are not there ----------------------------------------------------------------------

class AbsentVector : public MessageTest {};

TEST_F(AbsentVector, OfCountZeroIsLeftOut) {
    EXPECT_BYTES(packed(Nac_UserDataFlowMsg{}), "0a 00 00 00 06 00 04 00 00 00 06 00 00 00");
    EXPECT_BYTES(packed(Nac_UclGroupIpArray{7, 0, nullptr}),
                 "0c 00 00 00"              // root reference
                 "08 00 08 00 04 00 00 00"  // vtable: f0, f1 absent
                 "08 00 00 00"              // soffset
                 "07 00 00 00");            // f0
}

TEST_F(AbsentVector, OfTablesWithAPointerAndCountZeroCostsNothing) {
    Nac_UserDataFlowInfo info = {};
    EXPECT_BYTES(packed(Nac_UserDataFlowMsg{0, &info}), "0a 00 00 00 06 00 04 00 00 00 06 00 00 00");
    Nac_ConfigAccessUserUclGroupIpMsg config = {};
    EXPECT_EQ(packed_size(Nac_UclGroupIpArray{0, 0, &config}), 16U);
    Nac_ConfigAccessUserUclGroupIpAckMsg ack = {};
    EXPECT_EQ(packed_size(Nac_UclGroupIpAckArray{0, 0, &ack}), 16U);
    Nac_Ipv6Addr address = {};
    Nac_RadiusDaclRule rule = {};
    Nac_SetUserTableMsg entry = {};
    entry.f12 = &address;
    entry.f32 = &rule;
    EXPECT_EQ(packed_size(entry), 238U);
}

// Packs with exactly the size that is reported, and expects the last `uncounted` bytes untouched.
template <class Record>
void expect_untouched_tail(const Record& record, std::uint32_t size, std::uint32_t uncounted) {
    EXPECT_EQ(packed_size(record), size);
    Record without = {};
    const Bytes shorter = packed(without);
    ASSERT_EQ(shorter.size(), size - uncounted);
    Bytes expected = shorter;
    expected.insert(expected.end(), uncounted, 0xEE);
    EXPECT_TRUE(same_bytes(packed(record), expected));
}

TEST_F(AbsentVector, OfScalarsWithAPointerAndCountZeroCountsEightBytesThatPackLeavesAlone) {
    std::uint8_t byte = 1;
    Nac_IpsecAuthenReqMsg request = {};
    request.f5 = &byte;
    expect_untouched_tail(request, 58 + 8, 8);
    request.f6 = request.f8 = request.f15 = &byte;
    expect_untouched_tail(request, 58 + 32, 32);
    Nac_IpsecAuthenAckMsg ack = {};
    ack.f14 = &byte;
    expect_untouched_tail(ack, 46 + 8, 8);
    ack.f15 = ack.f16 = &byte;
    expect_untouched_tail(ack, 46 + 24, 24);
    std::uint16_t word = 1;
    std::uint32_t number = 1;
    Nac_SetUserTableMsg entry = {};
    entry.f15 = &word;
    expect_untouched_tail(entry, 238 + 8, 8);
    entry.f16 = &word;
    entry.f31 = entry.f42 = entry.f51 = &byte;
    entry.f52 = &number;
    expect_untouched_tail(entry, 238 + 48, 48);
}

TEST_F(AbsentVector, WithACountAndANullPointerIsLeftOut) {
    EXPECT_BYTES(packed(Nac_UserDataFlowMsg{3, nullptr}), "0a 00 00 00 06 00 04 00 00 00 06 00 00 00");
    EXPECT_EQ(packed(Nac_UclGroupIpArray{0, 3, nullptr}), packed(Nac_UclGroupIpArray{}));
    EXPECT_EQ(packed(Nac_UclGroupIpAckArray{0, 0xFFFFFFFF, nullptr}), packed(Nac_UclGroupIpAckArray{}));
    Nac_IpsecAuthenReqMsg request = {};
    request.f5_count = request.f6_count = request.f8_count = request.f15_count = 0xFFFFFFFF;
    EXPECT_EQ(packed(request), packed(Nac_IpsecAuthenReqMsg{}));
    Nac_IpsecAuthenAckMsg ack = {};
    ack.f14_count = ack.f15_count = ack.f16_count = 1;
    EXPECT_EQ(packed(ack), packed(Nac_IpsecAuthenAckMsg{}));
    Nac_SetUserTableMsg entry = {};
    entry.f12_count = entry.f15_count = entry.f16_count = entry.f31_count = 5;
    entry.f32_count = entry.f42_count = entry.f51_count = entry.f52_count = 5;
    EXPECT_EQ(packed(entry), packed(Nac_SetUserTableMsg{}));
}

// ---- messages too large for 32 bits ------------------------------------------------------------------

class TooLarge : public MessageTest {
  protected:
    // Sizes read no element of a vector of scalars, so counts need no arrays.
    template <class Record>
    void expect_refused(const Record& record) {
        std::uint8_t buffer = 0xEE;
        std::uint32_t length = 0xFFFFFFFF;
        EXPECT_EQ(nac::Functions<Record>::pack(&record, &buffer, &length), kRefused);
        EXPECT_EQ(length, 0xFFFFFFFF);
        EXPECT_EQ(buffer, 0xEE);
        EXPECT_EQ(nac::Functions<Record>::pack(&record, nullptr, &length), kRefused);
        EXPECT_EQ(length, 0xFFFFFFFF);
        EXPECT_EQ(logged(), Lines{});
    }

    std::uint8_t byte = 1;
    std::uint16_t word = 1;
    std::uint32_t number = 1;
};

TEST_F(TooLarge, LargestSizeOf32BitsIsNot) {
    Nac_IpsecAuthenAckMsg ack = {};
    ack.f14 = &byte;
    ack.f14_count = 0xFFFFFFFF - 46 - 8;
    EXPECT_EQ(packed_size(ack), 0xFFFFFFFF);
    Nac_IpsecAuthenReqMsg request = {};
    request.f15 = &byte;
    request.f15_count = 0xFFFFFFFF - 58 - 8;
    EXPECT_EQ(packed_size(request), 0xFFFFFFFF);
}

TEST_F(TooLarge, OneByteMoreIsRefused) {
    Nac_IpsecAuthenAckMsg ack = {};
    ack.f14 = &byte;
    ack.f14_count = 0xFFFFFFFF - 46 - 8 + 1;
    expect_refused(ack);
    ack.f14_count = 0xFFFFFFFF;
    expect_refused(ack);
}

TEST_F(TooLarge, SeveralVectorsWhoseSumWouldBeSmallModulo32BitsAreRefused) {
    Nac_IpsecAuthenAckMsg ack = {};
    ack.f14 = ack.f15 = &byte;
    ack.f14_count = ack.f15_count = 0x80000000;
    expect_refused(ack);
    ack.f16 = &byte;
    ack.f14_count = ack.f15_count = ack.f16_count = 0xFFFFFFFF;
    expect_refused(ack);
    Nac_IpsecAuthenReqMsg request = {};
    request.f5 = request.f6 = request.f8 = request.f15 = &byte;
    request.f5_count = request.f6_count = request.f8_count = request.f15_count = 0x40000000;
    expect_refused(request);
}

TEST_F(TooLarge, WideElementsWhoseBytesWouldBeSmallModulo32BitsAreRefused) {
    Nac_SetUserTableMsg words = {};
    words.f16 = &word;
    words.f16_count = 0x80000000;
    expect_refused(words);
    Nac_SetUserTableMsg numbers = {};
    numbers.f52 = &number;
    numbers.f52_count = 0x40000000;
    expect_refused(numbers);
    numbers.f52_count = 0xFFFFFFFF;
    expect_refused(numbers);
}

TEST_F(TooLarge, ElementReferencesAloneAreRefused) {
    Nac_Ipv6Addr address = {};
    Nac_SetUserTableMsg entry = {};
    entry.f12 = &address;
    for (const std::uint32_t count : {0x3FFFFFFFU, 0x40000000U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(count);
        entry.f12_count = count;
        expect_refused(entry);
    }
}

TEST_F(TooLarge, ElementsThatSumUpAreRefused) {
    // References of 0xF8000000 bytes leave the bytes of fewer than four million of these elements.
    constexpr std::uint32_t count = 0x3E000000;
    LazyMemory elements(std::size_t{count} * sizeof(Nac_ConfigAccessUserUclGroupIpMsg));
    auto* const first = reinterpret_cast<Nac_ConfigAccessUserUclGroupIpMsg*>(elements.data());
    expect_refused(Nac_UclGroupIpArray{0, count, first});
}

// ---- table lengths above 16 bits ---------------------------------------------------------------------

class LongVector : public MessageTest {};

TEST_F(LongVector, OfBytesLeavesTheLow16BitsInTheTableLength) {
    Bytes content(70000, 0x61);
    Nac_IpsecAuthenAckMsg ack = {};
    ack.f14_count = 70000;
    ack.f14 = content.data();
    const Bytes bytes = packed(ack);
    ASSERT_EQ(bytes.size(), 46U + 8U + 70000U);
    EXPECT_EQ(get16(bytes, 6), (4 + 4 + 4 + 70000) - 0x10000);
    const Unpacked<Nac_IpsecAuthenAckMsg> read(bytes);
    ASSERT_EQ(read->f14_count, 70000U);
    EXPECT_EQ(std::memcmp(read->f14, content.data(), 70000), 0);
}

TEST_F(LongVector, OfTablesLeavesTheLow16BitsInTheTableLength) {
    std::vector<Nac_ConfigAccessUserUclGroupIpMsg> elements(16382);
    elements.back().f0 = 9;
    const Nac_UclGroupIpArray array = {0, 16382, elements.data()};
    const Bytes bytes = packed(array);
    EXPECT_EQ(get16(bytes, 6), 4);  // soffset, reference, count and 65528 bytes of element references: 65540
    const Unpacked<Nac_UclGroupIpArray> read(bytes);
    ASSERT_EQ(read->f1_count, 16382U);
    EXPECT_EQ(read->f1[16381].f0, 9);
}

// ---- the order of fields in the table ----------------------------------------------------------------

class FieldOrder : public MessageTest {};

TEST_F(FieldOrder, IsThatOfTheIdsScalarsAndReferencesMixed) {
    std::uint8_t byte = 'z';
    Nac_IpsecAuthenReqMsg request = {};
    request.f4 = 4;
    request.f6_count = 1;
    request.f6 = &byte;
    request.f7 = 7;
    request.f10 = 10;
    EXPECT_BYTES(packed(request),
                 "28 00 00 00"                          // root reference
                 "24 00 24 00"                          // vtable length, table length
                 "00 00 00 00 00 00 00 00 04 00"        // f4
                 "00 00 08 00 0c 00 00 00 0d 00 11 00"  // f6, f7, f9, f10
                 "00 00 00 00 00 00 00 00 00 00"        // f11 to f15 absent
                 "24 00 00 00"                          // soffset
                 "04 00 00 00"                          // f4
                 "0d 00 00 00"                          // f6, at 8: its vector at 21
                 "07"                                   // f7
                 "0d 00 00 00"                          // f9, at 13: its vector at 26
                 "0a 00 00 00"                          // f10
                 "01 00 00 00 7a"                       // f6
                 "06 00 00 00 00 00 00 00 00 00");      // f9
}

TEST_F(FieldOrder, OfTheOfflineNoticePutsItsScalarsFirst) {
    const Nac_L2NotifyNacUserOfflineMsg notice = {1, 0, 3, 4, {10, 11, 12, 13, 14, 15}, 5, 0, 7};
    EXPECT_BYTES(packed(notice),
                 "18 00 00 00"                      // root reference
                 "14 00 24 00"                      // vtable length, table length with the array
                 "04 00 00 00 08 00 0c 00 16 00"    // f0, f1 absent, f2, f3, f4
                 "0e 00 00 00 12 00"                // f5, f6 absent, f7
                 "14 00 00 00"                      // soffset
                 "01 00 00 00"                      // f0
                 "03 00 00 00"                      // f2
                 "04 00"                            // f3
                 "05 00 00 00"                      // f5
                 "07 00 00 00"                      // f7
                 "04 00 00 00"                      // f4: right after itself
                 "06 00 00 00 0a 0b 0c 0d 0e 0f");  // its count and bytes
}

TEST_F(FieldOrder, OfTheRuleAddressesPutsItsScalarsFirst) {
    Nac_DaclRuleIpInfo info = {};
    info.f3 = 3;
    info.f8 = 8;
    info.f27 = 27;
    info.f4[0] = 0x40;
    info.f7[15] = 0x70;
    info.f16[0] = 0x16;
    info.f17[5] = 0x17;
    EXPECT_BYTES(packed(info),
                 "40 00 00 00"              // root reference
                 "3c 00 88 00"              // vtable length; table length with the six arrays
                 "00 00 00 00 00 00 04 00"  // f0 to f2 absent, f3
                 "0c 00 10 00 14 00 18 00"  // f4 to f7
                 "08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"              // f8, f9 to f15 absent
                 "1c 00 20 00"                                                  // f16, f17
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 0a 00"  // f18 to f26 absent, f27
                 "3c 00 00 00"                                                  // soffset
                 "03 00 00 00"                                                  // f3
                 "08 00"                                                        // f8
                 "1b 00"                                                        // f27
                 "18 00 00 00"                                                  // f4
                 "28 00 00 00"                                                  // f5
                 "38 00 00 00"                                                  // f6
                 "48 00 00 00"                                                  // f7
                 "58 00 00 00"                                                  // f16
                 "5e 00 00 00"                                                  // f17
                 "10 00 00 00 40 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f4
                 "10 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f5
                 "10 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f6
                 "10 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 70"  // f7
                 "06 00 00 00 16 00 00 00 00 00"                                // f16
                 "06 00 00 00 00 00 00 00 00 17");                              // f17
}

TEST_F(FieldOrder, OfTheUserTablePutsItsScalarsFirst) {
    std::uint8_t byte = 'b';
    Nac_SetUserTableMsg entry = {};
    entry.f4 = 4;
    entry.f6 = 6;
    entry.f31_count = 1;
    entry.f31 = &byte;
    entry.f47 = 47;
    entry.f54 = 54;
    const Bytes bytes = packed(entry);
    ASSERT_EQ(get32(bytes, 0), 118U);
    const auto offset = [&](std::uint32_t id) { return get16(bytes, 4 + 4 + 2 * id); };
    EXPECT_EQ(offset(4), 4);
    EXPECT_EQ(offset(6), 8);
    EXPECT_EQ(offset(47), 12);
    EXPECT_EQ(offset(54), 20);
    EXPECT_EQ(offset(5), 21);  // the references, in field order
    EXPECT_EQ(offset(19), 25);
    EXPECT_EQ(offset(20), 29);
    EXPECT_EQ(offset(31), 33);
    EXPECT_EQ(offset(33), 37);
    EXPECT_EQ(offset(53), 41);
    EXPECT_EQ(get16(bytes, 6), 45 + 46) << "inline part and the bodies of f5 and f53, without that of f31";
}

}  // namespace
