// SPDX-License-Identifier: Apache-2.0
// The IPsec access messages: their bytes in both layouts, and what their unpack does with faults.
#include "tests/support/message_checks.h"

namespace {

using namespace tests;
using enum AfterHeaderFault;

class IpsecAccess : public MessageTest {};

// The byte strings are only read: the record's pointers are not const because unpack's arrays are freed.
std::uint8_t long_string[] = {0xa0, 0xa1, 0xa2};
std::uint8_t string[] = {0xb0, 0xb1};
std::uint8_t short_string[] = {0xc0};
std::uint8_t longest_string[] = {0xd0, 0xd1, 0xd2, 0xd3};

Nac_IpsecAuthenReqMsg full_request() {
    return {word(0x80),
            word(0x81),
            word(0x82),
            word(0x83),
            word(0x84),
            3,
            long_string,
            2,
            string,
            0x87,
            1,
            short_string,
            {0x89, 1, 2, 3, 4, 0xf9},
            word(0x8a),
            word(0x8b),
            word(0x8c),
            word(0x8d),
            word(0x8e),
            4,
            longest_string};
}

// The references stand among the scalars, where their field ids put them.
constexpr const char* kRequest =
    "28 00 00 00"                    // root reference
    "24 00"                          // vtable length
    "65 00"                          // table length: 65 inline, the five byte strings 36
    "04 00 08 00 0c 00 10 00 14 00"  // places of f0 to f4
    "18 00 1c 00"                    // places of f5, f6
    "20 00"                          // place of f7
    "21 00"                          // place of f8
    "25 00"                          // place of f9
    "29 00 2d 00 31 00 35 00 39 00"  // places of f10 to f14
    "3d 00"                          // place of f15
    "24 00 00 00"                    // soffset
    "80 22 33 44"                    // f0
    "81 22 33 44"                    // f1
    "82 22 33 44"                    // f2
    "83 22 33 44"                    // f3
    "84 22 33 44"                    // f4
    "29 00 00 00"                    // f5: vector 41 on
    "2c 00 00 00"                    // f6: vector 44 on
    "87"                             // f7
    "2d 00 00 00"                    // f8: vector 45 on
    "2e 00 00 00"                    // f9: vector 46 on
    "8a 22 33 44"                    // f10
    "8b 22 33 44"                    // f11
    "8c 22 33 44"                    // f12
    "8d 22 33 44"                    // f13
    "8e 22 33 44"                    // f14
    "20 00 00 00"                    // f15: vector 32 on
    "03 00 00 00"                    // f5: count
    "a0 a1 a2"                       // f5
    "02 00 00 00"                    // f6: count
    "b0 b1"                          // f6
    "01 00 00 00"                    // f8: count
    "c0"                             // f8
    "06 00 00 00"                    // f9: count
    "89 01 02 03 04 f9"              // f9
    "04 00 00 00"                    // f15: count
    "d0 d1 d2 d3";                   // f15

Nac_IpsecAuthenAckMsg full_answer() {
    return {word(0x80), word(0x81),  word(0x82), word(0x83), word(0x84), word(0x85),  word(0x86),
            word(0x87), word(0x88),  word(0x89), word(0x8a), word(0x8b), word(0x8c),  word(0x8d),
            3,          long_string, 2,          string,     1,          short_string};
}

constexpr const char* kAnswer =
    "2a 00 00 00"                                // root reference
    "26 00"                                      // vtable length
    "5a 00"                                      // table length: 72 inline, strings 18
    "04 00 08 00 0c 00 10 00 14 00 18 00 1c 00"  // places of f0 to f6
    "20 00 24 00 28 00 2c 00 30 00 34 00 38 00"  // places of f7 to f13
    "3c 00 40 00 44 00"                          // places of f14 to f16
    "26 00 00 00"                                // soffset
    "80 22 33 44"                                // f0
    "81 22 33 44"                                // f1
    "82 22 33 44"                                // f2
    "83 22 33 44"                                // f3
    "84 22 33 44"                                // f4
    "85 22 33 44"                                // f5
    "86 22 33 44"                                // f6
    "87 22 33 44"                                // f7
    "88 22 33 44"                                // f8
    "89 22 33 44"                                // f9
    "8a 22 33 44"                                // f10
    "8b 22 33 44"                                // f11
    "8c 22 33 44"                                // f12
    "8d 22 33 44"                                // f13
    "0c 00 00 00"                                // f14: vector 12 on
    "0f 00 00 00"                                // f15: vector 15 on
    "11 00 00 00"                                // f16: vector 17 on
    "03 00 00 00"                                // f14: count
    "a0 a1 a2"                                   // f14
    "02 00 00 00"                                // f15: count
    "b0 b1"                                      // f15
    "01 00 00 00"                                // f16: count
    "c0";                                        // f16

// ---- Nac_IpsecAuthenReqMsg ----

TEST_F(IpsecAccess, RequestRecordAlignsItsPointersAndTheWordBehindItsAddress) {
    using R = Nac_IpsecAuthenReqMsg;
    EXPECT_EQ(sizeof(R), 104U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4)}),
              (Offsets{0, 4, 8, 12, 16}));
    EXPECT_EQ((Offsets{offsetof(R, f5_count), offsetof(R, f5), offsetof(R, f6_count), offsetof(R, f6)}),
              (Offsets{20, 24, 32, 40}));
    EXPECT_EQ((Offsets{offsetof(R, f7), offsetof(R, f8_count), offsetof(R, f8), offsetof(R, f9)}),
              (Offsets{48, 52, 56, 64}));
    EXPECT_EQ((Offsets{offsetof(R, f10), offsetof(R, f11), offsetof(R, f12), offsetof(R, f13),
                       offsetof(R, f14), offsetof(R, f15_count), offsetof(R, f15)}),
              (Offsets{72, 76, 80, 84, 88, 92, 96}));
}

TEST_F(IpsecAccess, RequestWithAllFieldsPacksTo141Bytes) {
    EXPECT_BYTES(packed(full_request()), kRequest);
    EXPECT_EQ(packed(full_request()).size(), 141U);
}

TEST_F(IpsecAccess, RequestOfZeroesStillCarriesItsAddressIn58Bytes) {
    const Bytes zeroes = packed(Nac_IpsecAuthenReqMsg{});
    EXPECT_BYTES(zeroes,
                 "28 00 00 00"                          // root reference
                 "24 00 12 00"                          // vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00"        // f0 to f4 absent
                 "00 00 00 00 00 00 00 00"              // f5 to f8 absent
                 "04 00"                                // place of f9
                 "00 00 00 00 00 00 00 00 00 00 00 00"  // f10 to f15 absent
                 "24 00 00 00"                          // soffset
                 "04 00 00 00"                          // f9: vector right behind
                 "06 00 00 00"                          // f9: count
                 "00 00 00 00 00 00");                  // f9
    EXPECT_TRUE(Unpacked<Nac_IpsecAuthenReqMsg>(zeroes, 0xAA).all(0));
    EXPECT_EQ(cache_allocations(), std::vector<Tag>{});
}

TEST_F(IpsecAccess, RequestLeavesOutFieldsThatAreZeroOrEmpty) {
    Nac_IpsecAuthenReqMsg request = {};
    request.f1 = word(0x81);
    request.f6_count = 2;
    request.f6 = string;
    request.f9[5] = 0xf9;
    request.f12 = word(0x8c);
    EXPECT_BYTES(packed(request),
                 "28 00 00 00"                          // root reference
                 "24 00 24 00"                          // vtable length, table length 20 + 6 + 10
                 "00 00 04 00 00 00 00 00 00 00"        // f0 to f4: only f1
                 "00 00 08 00"                          // f5 absent, f6
                 "00 00 00 00"                          // f7, f8 absent
                 "0c 00"                                // place of f9
                 "00 00 00 00 10 00 00 00 00 00 00 00"  // f10 to f15: only f12
                 "24 00 00 00"                          // soffset
                 "81 22 33 44"                          // f1
                 "0c 00 00 00"                          // f6: vector 12 on
                 "0e 00 00 00"                          // f9: vector 14 on
                 "8c 22 33 44"                          // f12
                 "02 00 00 00"                          // f6: count
                 "b0 b1"                                // f6
                 "06 00 00 00"                          // f9: count
                 "00 00 00 00 00 f9");                  // f9
}

TEST_F(IpsecAccess, RequestGrowsByItsScalarsAndByteStrings) {
    using R = Nac_IpsecAuthenReqMsg;
    EXPECT_EQ(packed_size(R{}), 58U);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f3, &R::f4);
    expect_each_costs(4, R{}, &R::f10, &R::f11, &R::f12, &R::f13, &R::f14);
    expect_each_costs(1, R{}, &R::f7);
    R request = {};
    request.f9[0] = 0xff;
    EXPECT_EQ(packed_size(request), 58U);
    request.f5_count = 3;
    request.f5 = long_string;
    EXPECT_EQ(packed_size(request), 58U + 11);
    request.f6_count = 2;
    request.f6 = string;
    EXPECT_EQ(packed_size(request), 58U + 11 + 10);
    request.f8_count = 1;
    request.f8 = short_string;
    EXPECT_EQ(packed_size(request), 58U + 11 + 10 + 9);
    request.f15_count = 4;
    request.f15 = longest_string;
    EXPECT_EQ(packed_size(request), 58U + 11 + 10 + 9 + 12);
    expect_each_costs(4, request, &R::f0, &R::f14);
    EXPECT_EQ(packed_size(full_request()), 58U + 40 + 1 + 42);
}

TEST_F(IpsecAccess, RequestUnpacksToItsByteStrings) {
    expect_unpacks_to(hex(kRequest), full_request());
    const Unpacked<Nac_IpsecAuthenReqMsg> request(hex(kRequest), 0xAA);
    ASSERT_EQ(request->f5_count, 3U);
    EXPECT_EQ(std::memcmp(request->f5, long_string, 3), 0);
    ASSERT_EQ(request->f15_count, 4U);
    EXPECT_EQ(std::memcmp(request->f15, longest_string, 4), 0);
    EXPECT_EQ(request->f9[5], 0xf9U);
    EXPECT_EQ(request->f14, word(0x8e));
}

TEST_F(IpsecAccess, RequestTravelsCompactly) {
    expect_sends_compact("Nac_IpsecAuthenReqMsg", 1423602749, full_request(), kRequest);
}

// What a failure at f9 leaves of the full request: the scalars in front of it.
Nac_IpsecAuthenReqMsg request_up_to_f9() {
    Nac_IpsecAuthenReqMsg request = {};
    request.f0 = word(0x80);
    request.f1 = word(0x81);
    request.f2 = word(0x82);
    request.f3 = word(0x83);
    request.f4 = word(0x84);
    request.f7 = 0x87;
    return request;
}

TEST_F(IpsecAccess, RequestWithAnAddressOf5Or7BytesReleasesItsByteStrings) {
    for (const std::uint32_t count : {5U, 7U, 0U, 0xFFFFFFFFU}) {
        Bytes bytes = hex(kRequest);
        put32(bytes, 123, count);  // of f9
        services.reset();
        const Unpacked<Nac_IpsecAuthenReqMsg> request(bytes);
        EXPECT_EQ(logged(), Lines{});
        EXPECT_EQ(release_callers(), Lines(3, "Nac_IpsecAuthenReqMsg_free_unpacked"));
        EXPECT_EQ(request->f5, nullptr);
        EXPECT_EQ(request->f6, nullptr);
        EXPECT_EQ(request->f8, nullptr);
        EXPECT_EQ(request->f15, nullptr);
        EXPECT_EQ(request->f5_count, 3U);
        EXPECT_EQ(request->f6_count, 2U);
        EXPECT_EQ(request->f8_count, 1U);
        EXPECT_EQ(request->f15_count, 0U);
        EXPECT_TRUE(same_bytes(packed(*request), packed(request_up_to_f9())));
    }
}

TEST_F(IpsecAccess, RequestWithoutAnAddressHasAZeroOne) {
    Bytes bytes = hex(kRequest);
    put16(bytes, 26, 0);  // f9's slot
    const Unpacked<Nac_IpsecAuthenReqMsg> request(bytes, 0xAA);
    Nac_IpsecAuthenReqMsg expected = full_request();
    std::fill_n(expected.f9, 6, std::uint8_t{0});
    EXPECT_TRUE(same_bytes(packed(*request), packed(expected)));
}

// ---- Nac_IpsecAuthenAckMsg ----

TEST_F(IpsecAccess, AnswerRecordIsFourteenWordsAndThreeByteStrings) {
    using R = Nac_IpsecAuthenAckMsg;
    EXPECT_EQ(sizeof(R), 104U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4),
                       offsetof(R, f5), offsetof(R, f6)}),
              (Offsets{0, 4, 8, 12, 16, 20, 24}));
    EXPECT_EQ((Offsets{offsetof(R, f7), offsetof(R, f8), offsetof(R, f9), offsetof(R, f10), offsetof(R, f11),
                       offsetof(R, f12), offsetof(R, f13)}),
              (Offsets{28, 32, 36, 40, 44, 48, 52}));
    EXPECT_EQ((Offsets{offsetof(R, f14_count), offsetof(R, f14), offsetof(R, f15_count), offsetof(R, f15),
                       offsetof(R, f16_count), offsetof(R, f16)}),
              (Offsets{56, 64, 72, 80, 88, 96}));
}

TEST_F(IpsecAccess, AnswerWithAllFieldsPacksTo132Bytes) {
    EXPECT_BYTES(packed(full_answer()), kAnswer);
    EXPECT_EQ(packed(full_answer()).size(), 132U);
}

TEST_F(IpsecAccess, AnswerOfZeroesPacksTo46Bytes) {
    const Bytes zeroes = packed(Nac_IpsecAuthenAckMsg{});
    EXPECT_BYTES(zeroes,
                 "2a 00 00 00"                                // root reference
                 "26 00 04 00"                                // vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f0 to f6 absent
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f7 to f13 absent
                 "00 00 00 00 00 00"                          // f14 to f16 absent
                 "26 00 00 00");                              // soffset
    EXPECT_TRUE(Unpacked<Nac_IpsecAuthenAckMsg>(zeroes, 0xAA).all(0));
    EXPECT_EQ(cache_allocations(), std::vector<Tag>{});
}

TEST_F(IpsecAccess, AnswerLeavesOutFieldsThatAreZeroOrEmpty) {
    Nac_IpsecAuthenAckMsg answer = {};
    answer.f13 = word(0x8d);
    answer.f16_count = 1;
    answer.f16 = short_string;
    EXPECT_BYTES(packed(answer),
                 "2a 00 00 00"                                // root reference
                 "26 00 11 00"                                // vtable length, table length 12 + 5
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f0 to f6 absent
                 "00 00 00 00 00 00 00 00 00 00 00 00 04 00"  // f7 to f13: only f13
                 "00 00 00 00 08 00"                          // f14 to f16: only f16
                 "26 00 00 00"                                // soffset
                 "8d 22 33 44"                                // f13
                 "04 00 00 00"                                // f16: vector right behind
                 "01 00 00 00"                                // f16: count
                 "c0");                                       // f16
}

TEST_F(IpsecAccess, AnswerGrowsByItsScalarsAndByteStrings) {
    using R = Nac_IpsecAuthenAckMsg;
    EXPECT_EQ(packed_size(R{}), 46U);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f3, &R::f4, &R::f5, &R::f6);
    expect_each_costs(4, R{}, &R::f7, &R::f8, &R::f9, &R::f10, &R::f11, &R::f12, &R::f13);
    R answer = {};
    answer.f14_count = 3;
    answer.f14 = long_string;
    EXPECT_EQ(packed_size(answer), 46U + 11);
    answer.f15_count = 2;
    answer.f15 = string;
    EXPECT_EQ(packed_size(answer), 46U + 11 + 10);
    answer.f16_count = 1;
    answer.f16 = short_string;
    EXPECT_EQ(packed_size(answer), 46U + 11 + 10 + 9);
    EXPECT_EQ(packed_size(full_answer()), 46U + 56 + 11 + 10 + 9);
}

TEST_F(IpsecAccess, AnswerUnpacksToItsByteStrings) {
    expect_unpacks_to(hex(kAnswer), full_answer());
    const Unpacked<Nac_IpsecAuthenAckMsg> answer(hex(kAnswer), 0xAA);
    EXPECT_EQ(answer->f13, word(0x8d));
    ASSERT_EQ(answer->f16_count, 1U);
    EXPECT_EQ(answer->f16[0], 0xc0U);
}

TEST_F(IpsecAccess, AnswerTravelsCompactly) {
    expect_sends_compact("Nac_IpsecAuthenAckMsg", 1888098722, full_answer(), kAnswer);
}

// ---- both authentication messages ----

// A byte string of a record, and where the packed full record holds its count.
template <class Record>
struct ByteString {
    std::uint32_t Record::*count;
    std::uint8_t* Record::*bytes;
    std::size_t count_at;
};
constexpr ByteString<Nac_IpsecAuthenReqMsg> kRequestStrings[] = {
    {&Nac_IpsecAuthenReqMsg::f5_count, &Nac_IpsecAuthenReqMsg::f5, 105},
    {&Nac_IpsecAuthenReqMsg::f6_count, &Nac_IpsecAuthenReqMsg::f6, 112},
    {&Nac_IpsecAuthenReqMsg::f8_count, &Nac_IpsecAuthenReqMsg::f8, 118},
    {&Nac_IpsecAuthenReqMsg::f15_count, &Nac_IpsecAuthenReqMsg::f15, 133},
};
constexpr ByteString<Nac_IpsecAuthenAckMsg> kAnswerStrings[] = {
    {&Nac_IpsecAuthenAckMsg::f14_count, &Nac_IpsecAuthenAckMsg::f14, 114},
    {&Nac_IpsecAuthenAckMsg::f15_count, &Nac_IpsecAuthenAckMsg::f15, 121},
    {&Nac_IpsecAuthenAckMsg::f16_count, &Nac_IpsecAuthenAckMsg::f16, 127},
};

// The size goes by the pointer, the writer by the count: the last 8 bytes stay as they were in the
// caller's buffer, and are zero on the bus.
template <class Record, std::size_t strings>
void expect_empty_string_with_pointer_costs_8(const ByteString<Record> (&fields)[strings]) {
    for (const auto& field : fields) {
        Record record = {};
        record.f0 = 1;
        Bytes expected = packed(record);
        record.*field.bytes = short_string;
        expected.insert(expected.end(), 8, 0xEE);
        EXPECT_TRUE(same_bytes(packed(record), expected));
        std::fill_n(expected.end() - 8, 8, std::uint8_t{0});
        EXPECT_TRUE(same_bytes(sent(record), expected));
    }
}

TEST_F(IpsecAccess, EmptyByteStringWithAPointerCostsEightBytesThatAreNotWritten) {
    expect_empty_string_with_pointer_costs_8(kRequestStrings);
    expect_empty_string_with_pointer_costs_8(kAnswerStrings);
}

template <class Record, std::size_t strings>
void expect_null_string_is_absent(const ByteString<Record> (&fields)[strings]) {
    for (const auto& field : fields) {
        Record record = {};
        record.*field.count = 3;
        EXPECT_TRUE(same_bytes(packed(record), packed(Record{})));
    }
}

TEST_F(IpsecAccess, CountWithoutAByteStringIsAbsent) {
    expect_null_string_is_absent(kRequestStrings);
    expect_null_string_is_absent(kAnswerStrings);
}

template <class Record, std::size_t strings>
void expect_size_limit(const ByteString<Record> (&fields)[strings], std::uint32_t frame) {
    for (const auto& field : fields) {
        Record record = {};
        record.*field.bytes = short_string;  // never read: there is no buffer to copy to
        record.*field.count = 0xFFFFFFFFU - frame - 8;
        EXPECT_EQ(packed_size(record), 0xFFFFFFFFU);
        record.*field.count += 1;
        host::Services::instance().reset();
        std::uint32_t length = 0xFFFFFFFF;
        EXPECT_EQ(nac::Functions<Record>::pack(&record, nullptr, &length), kRefused);
        EXPECT_EQ(nac::Functions<Record>::send(1, &record, 1), kRefused);
        EXPECT_TRUE(host::Services::instance().allocations().empty());
        EXPECT_EQ(logged(), Lines{});
    }
}

TEST_F(IpsecAccess, SizeAbove32BitsIsRefused) {
    expect_size_limit(kRequestStrings, 58);
    expect_size_limit(kAnswerStrings, 46);
    EXPECT_TRUE(bus.sends().empty());
}

template <class Record, std::size_t strings>
void expect_string_memory(const ByteString<Record> (&fields)[strings], const Bytes& bytes,
                          const std::string& message) {
    auto& services = host::Services::instance();
    services.reset();
    Unpacked<Record> unpacked(bytes);
    std::vector<Tag> expected;
    std::vector<std::uint32_t> counts;
    for (const auto& field : fields) {
        counts.push_back((*unpacked).*field.count);
        expected.push_back({counts.back(), 12, message + "_unpack_non_root"});
    }
    EXPECT_EQ(cache_allocations(), expected);
    const auto blocks = services.allocations();
    nac::Functions<Record>::free(&unpacked.record());
    nac::Functions<Record>::free(&unpacked.record());
    nac::Functions<Record>::free(nullptr);
    EXPECT_EQ(release_callers(), Lines(strings, message + "_free_unpacked"));
    for (std::size_t i = 0; i < strings; ++i) {
        EXPECT_EQ(services.releases()[i].block, blocks[i].block);
        EXPECT_EQ((*unpacked).*fields[i].bytes, nullptr);
        EXPECT_EQ((*unpacked).*fields[i].count, counts[i]);
    }
}

TEST_F(IpsecAccess, ByteStringsAreAllocatedAndReleasedUnderTheirNames) {
    expect_string_memory(kRequestStrings, hex(kRequest), "Nac_IpsecAuthenReqMsg");
    expect_string_memory(kAnswerStrings, hex(kAnswer), "Nac_IpsecAuthenAckMsg");
}

template <class Record, std::size_t strings>
void expect_failed_allocations(const ByteString<Record> (&fields)[strings], const Bytes& bytes,
                               const std::string& message) {
    auto& services = host::Services::instance();
    for (std::size_t failing = 0; failing < strings; ++failing) {
        services.reset();
        services.fail_allocation(failing);
        const Unpacked<Record> unpacked(bytes, 0xAA);
        EXPECT_EQ(unpacked->f0, word(0x80));
        EXPECT_EQ(release_callers(), Lines(failing, message + "_free_unpacked"));
        EXPECT_EQ(
            logged(),
            Lines{message + "_unpack_non_root: [KAPLO]:Malloc unpack data unsuccess,                size(" +
                  std::to_string(get32(bytes, fields[failing].count_at)) + ")"});
        EXPECT_EQ(logged_categories(), std::vector<std::uint32_t>{12});
        for (std::size_t i = 0; i < strings; ++i) {
            EXPECT_EQ((*unpacked).*fields[i].bytes, nullptr);
            EXPECT_EQ((*unpacked).*fields[i].count, i <= failing ? get32(bytes, fields[i].count_at) : 0U);
        }
    }
}

TEST_F(IpsecAccess, FailedAllocationIsLoggedWithSixteenBlanksAndReleasesTheOthers) {
    expect_failed_allocations(kRequestStrings, hex(kRequest), "Nac_IpsecAuthenReqMsg");
    expect_failed_allocations(kAnswerStrings, hex(kAnswer), "Nac_IpsecAuthenAckMsg");
}

template <class Record, std::size_t strings>
void expect_string_outside_releases_the_others(const ByteString<Record> (&fields)[strings], const Bytes& good,
                                               const std::string& message) {
    for (std::size_t n = 0; n < strings; ++n) {
        const auto one_too_many = static_cast<std::uint32_t>(good.size() - fields[n].count_at - 4 + 1);
        for (const std::uint32_t count : {one_too_many, 0x80000000U, 0xFFFFFFFFU}) {
            Bytes bytes = good;
            put32(bytes, fields[n].count_at, count);
            host::Services::instance().reset();
            const Unpacked<Record> unpacked(bytes);
            EXPECT_EQ(logged(), Lines{});
            EXPECT_EQ(unpacked->f0, word(0x80));
            EXPECT_EQ(release_callers(), Lines(n, message + "_free_unpacked"));
            for (std::size_t i = 0; i < strings; ++i) {
                EXPECT_EQ((*unpacked).*fields[i].bytes, nullptr);
                EXPECT_EQ((*unpacked).*fields[i].count, i < n ? get32(good, fields[i].count_at) : 0U);
            }
        }
    }
}

TEST_F(IpsecAccess, ByteStringOutsideTheBufferReleasesTheOthersSilently) {
    expect_string_outside_releases_the_others(kRequestStrings, hex(kRequest), "Nac_IpsecAuthenReqMsg");
    expect_string_outside_releases_the_others(kAnswerStrings, hex(kAnswer), "Nac_IpsecAuthenAckMsg");
}

template <class Record, std::size_t strings>
void expect_count_0_allocates_nothing(const ByteString<Record> (&fields)[strings], const Bytes& good) {
    for (const auto& field : fields) {
        Bytes bytes = good;
        put32(bytes, field.count_at, 0);
        host::Services::instance().reset();
        const Unpacked<Record> unpacked(bytes);
        EXPECT_EQ((*unpacked).*field.count, 0U);
        EXPECT_EQ((*unpacked).*field.bytes, nullptr);
        EXPECT_EQ(cache_allocations().size(), strings - 1);
        EXPECT_EQ(logged(), Lines{});
    }
}

TEST_F(IpsecAccess, ByteStringOfCount0LeavesItsPointerNull) {
    expect_count_0_allocates_nothing(kRequestStrings, hex(kRequest));
    expect_count_0_allocates_nothing(kAnswerStrings, hex(kAnswer));
}

TEST_F(IpsecAccess, AuthenticationMessagesReportBadArguments) {
    expect_argument_faults<Nac_IpsecAuthenReqMsg>("Nac_IpsecAuthenReqMsg");
    expect_argument_faults<Nac_IpsecAuthenAckMsg>("Nac_IpsecAuthenAckMsg");
}

TEST_F(IpsecAccess, AuthenticationMessagesAreClearedAfterAHeaderFault) {
    expect_header_faults<Nac_IpsecAuthenReqMsg>(cleared, "Nac_IpsecAuthenReqMsg_unpack_non_root");
    expect_header_faults<Nac_IpsecAuthenAckMsg>(cleared, "Nac_IpsecAuthenAckMsg_unpack_non_root");
}

TEST_F(IpsecAccess, AuthenticationMessagesPackRefusals) {
    expect_pack_refusals("Nac_IpsecAuthenReqMsg", full_request(), 141);
    expect_pack_refusals("Nac_IpsecAuthenAckMsg", full_answer(), 132);
}

// ---- Nac_IpsecDownReqMsg, Nac_IpsecDownAckMsg ----

struct DownReq {
    using Record = Nac_IpsecDownReqMsg;
    static constexpr const char* name = "Nac_IpsecDownReqMsg";
    static constexpr std::uint32_t id = 3966946584;
};
struct DownAck {
    using Record = Nac_IpsecDownAckMsg;
    static constexpr const char* name = "Nac_IpsecDownAckMsg";
    static constexpr std::uint32_t id = 722165955;
};

// Two message types of the same layout.
template <class Type>
class IpsecDown : public MessageTest {
  protected:
    static constexpr
        typename Type::Record kDown = {word(0x80), word(0x81), word(0x82), word(0x83), word(0x84)};
};
using DownTypes = testing::Types<DownReq, DownAck>;
struct DownNames {
    template <class Type>
    static std::string GetName(int /*index*/) {
        return Type::name;
    }
};
TYPED_TEST_SUITE(IpsecDown, DownTypes, DownNames);

TYPED_TEST(IpsecDown, RecordIsFiveWords) {
    using R = typename TypeParam::Record;
    EXPECT_EQ(sizeof(R), 20U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4)}),
              (Offsets{0, 4, 8, 12, 16}));
}

TYPED_TEST(IpsecDown, AllFieldsPackTo42Bytes) {
    EXPECT_BYTES(packed(this->kDown),
                 "12 00 00 00"                    // root reference
                 "0e 00 18 00"                    // vtable length, table length
                 "04 00 08 00 0c 00 10 00 14 00"  // places of f0 to f4
                 "0e 00 00 00"                    // soffset
                 "80 22 33 44"                    // f0
                 "81 22 33 44"                    // f1
                 "82 22 33 44"                    // f2
                 "83 22 33 44"                    // f3
                 "84 22 33 44");                  // f4
}

TYPED_TEST(IpsecDown, ZeroesPackToTheFrameOf22Bytes) {
    using R = typename TypeParam::Record;
    EXPECT_BYTES(packed(R{}),
                 "12 00 00 00"                    // root reference
                 "0e 00 04 00"                    // vtable length, table length
                 "00 00 00 00 00 00 00 00 00 00"  // no field
                 "0e 00 00 00");                  // soffset
}

TYPED_TEST(IpsecDown, LeavesOutFieldsThatAreZero) {
    using R = typename TypeParam::Record;
    EXPECT_BYTES(packed(R{0, word(0x81), 0, 0, word(0x84)}),
                 "12 00 00 00"                    // root reference
                 "0e 00 0c 00"                    // vtable length, table length
                 "00 00 04 00 00 00 00 00 08 00"  // f1 at 4, f4 at 8
                 "0e 00 00 00"                    // soffset
                 "81 22 33 44"                    // f1
                 "84 22 33 44");                  // f4
}

TYPED_TEST(IpsecDown, GrowsBy4BytesAField) {
    using R = typename TypeParam::Record;
    EXPECT_EQ(packed_size(R{}), 22U);
    expect_each_costs(4, R{}, &R::f0, &R::f1, &R::f2, &R::f3, &R::f4);
}

TYPED_TEST(IpsecDown, TravelsAsItsImageOf48Bytes) {
    expect_sends_image(TypeParam::name, TypeParam::id, this->kDown,
                       "04 00 00 00"          // root reference
                       "e8 ff ff ff"          // soffset -24: vtable at 28
                       "80 22 33 44"          // f0
                       "81 22 33 44"          // f1
                       "82 22 33 44"          // f2
                       "83 22 33 44"          // f3
                       "84 22 33 44"          // f4
                       "0e 00"                // vtable length
                       "18 00"                // table length
                       "04 00"                // place of f0
                       "08 00"                // place of f1
                       "0c 00"                // place of f2
                       "10 00"                // place of f3
                       "14 00"                // place of f4
                       "00 00 00 00 00 00");  // padding
}

TYPED_TEST(IpsecDown, UnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(this->kDown);
    expect_both_layouts_unpack_to(typename TypeParam::Record{});
}

TYPED_TEST(IpsecDown, ReadsWholeFieldsOnly) {
    expect_reads_whole_fields_only<typename TypeParam::Record>(packed(this->kDown), {4, 4, 4, 4, 4});
}

TYPED_TEST(IpsecDown, FieldOutsideTheBufferLeavesItAndTheFollowingZero) {
    Bytes bytes = packed(this->kDown);
    put16(bytes, 12, 21);  // f2 would end one byte behind the end
    this->services.reset();
    const Unpacked<typename TypeParam::Record> down(bytes, 0xAA);
    EXPECT_EQ(logged(), Lines{});
    EXPECT_EQ(down->f0, word(0x80));
    EXPECT_EQ(down->f1, word(0x81));
    EXPECT_EQ(down->f2, 0U);
    EXPECT_EQ(down->f3, 0U);
    EXPECT_EQ(down->f4, 0U);
}

TYPED_TEST(IpsecDown, ReportsBadArguments) {
    expect_argument_faults<typename TypeParam::Record>(TypeParam::name);
}

TYPED_TEST(IpsecDown, IsUntouchedAfterAHeaderFault) {
    expect_header_faults<typename TypeParam::Record>(untouched, std::string(TypeParam::name) + "_unpack");
}

TYPED_TEST(IpsecDown, PackRefusals) { expect_pack_refusals(TypeParam::name, this->kDown, 42); }

TYPED_TEST(IpsecDown, FreeDoesNothing) { expect_free_does_nothing<typename TypeParam::Record>(); }

// ---- the module ----

TEST_F(IpsecAccess, ModuleRegistersItsFourTypesInOrder) {
    expect_registers<Nac_IpsecAuthenReqMsg, Nac_IpsecAuthenAckMsg, Nac_IpsecDownReqMsg, Nac_IpsecDownAckMsg>(
        nac_ipsec_access_recv_init, {1423602749, 1888098722, 3966946584, 722165955});
    expect_stops_at_refusal(nac_ipsec_access_recv_init, 4);
}

TEST_F(IpsecAccess, ModuleRegistersAResourceCleanThatDoesNothing) {
    expect_registers_clean(nac_ipsec_access_send_init, nac_ipsec_access__send_resource_clean);
}

}  // namespace
