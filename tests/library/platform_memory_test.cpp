// SPDX-License-Identifier: Apache-2.0
// Built to take memcpy_s and memset_s from the platform: which calls the codec makes, and with what sizes.
#define KAPLO_PLATFORM_MEM_S

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "nac/ipsec_access.h"
#include "nac/port.h"
#include "runtime/pack.h"
#include "runtime/unpack.h"

namespace {

struct Call {
    char function;  // 'c' for memcpy_s, 's' for memset_s
    std::size_t destination_size;
    std::size_t count;

    bool operator==(const Call&) const = default;
};

std::vector<Call> calls;

class PlatformMemory : public testing::Test {
  protected:
    PlatformMemory() { calls.clear(); }

    kaplo::Unit unit;
};

}  // namespace

extern "C" int memcpy_s(void* destination, std::size_t destination_size, const void* source,
                        std::size_t count) {
    calls.push_back({'c', destination_size, count});
    std::memcpy(destination, source, count);
    return 0;
}

extern "C" int memset_s(void* destination, std::size_t destination_size, int value, std::size_t count) {
    calls.push_back({'s', destination_size, count});
    std::memset(destination, value, count);
    return 0;
}

namespace {

TEST_F(PlatformMemory, PackClearsTheSlotsAndCopiesByteVectors) {
    std::array<std::uint8_t, 3> text = {1, 2, 3};
    Nac_IpsecAuthenReqMsg record = {};
    record.f5_count = 3;
    record.f5 = text.data();
    std::array<std::uint8_t, 128> buffer = {};
    std::uint32_t length = buffer.size();
    ASSERT_EQ(kaplo::pack(unit, &record, buffer.data(), &length), 0U);
    EXPECT_EQ(calls, (std::vector<Call>{{'s', 32, 32},   // 16 slots
                                        {'c', 3, 3},     // f5
                                        {'c', 6, 6}}));  // f9, the fixed array
}

TEST_F(PlatformMemory, UnpackClearsTheRecordAndCopiesByteVectors) {
    std::array<std::uint8_t, 3> text = {1, 2, 3};
    Nac_IpsecAuthenReqMsg record = {};
    record.f5_count = 3;
    record.f5 = text.data();
    std::array<std::uint8_t, 128> buffer = {};
    std::uint32_t length = buffer.size();
    ASSERT_EQ(kaplo::pack(unit, &record, buffer.data(), &length), 0U);
    calls.clear();
    Nac_IpsecAuthenReqMsg unpacked = {};
    ASSERT_EQ(kaplo::unpack(unit, buffer.data(), length, &unpacked), sizeof unpacked);
    EXPECT_EQ(calls, (std::vector<Call>{{'s', sizeof unpacked, sizeof unpacked}, {'c', 3, 3}, {'c', 6, 6}}));
    EXPECT_TRUE(std::equal(text.begin(), text.end(), unpacked.f5));
    kaplo::free_unpacked(unit, &unpacked);
}

TEST_F(PlatformMemory, ARecordOfScalarsNeedsOneClearingOfItsSlots) {
    const Nac_SetPortMsg record = {1, 2};
    std::array<std::uint8_t, 24> buffer = {};
    std::uint32_t length = buffer.size();
    ASSERT_EQ(kaplo::pack(unit, &record, buffer.data(), &length), 0U);
    EXPECT_EQ(calls, (std::vector<Call>{{'s', 4, 4}}));
}

TEST_F(PlatformMemory, AnImageStartsAsACopyOfTheBlankOne) {
    const Nac_SetPortMsg record = {1, 2};
    std::array<std::uint8_t, 24> image = {};
    kaplo::write_image(unit, record, image.data());
    EXPECT_EQ(calls, (std::vector<Call>{{'c', 24, 24}}));
    const std::array<std::uint8_t, 24> expected = {4,    0,    0,    0,     // root reference
                                                   0xF4, 0xFF, 0xFF, 0xFF,  // soffset
                                                   1,    0,    0,    0,     // f0
                                                   2,    0,    0,    0,     // f1
                                                   8,    0,    12,   0,     // lengths of vtable and table
                                                   4,    0,    8,    0};    // offsets of f0 and f1
    EXPECT_EQ(image, expected);
}

}  // namespace
