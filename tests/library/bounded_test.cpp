// SPDX-License-Identifier: Apache-2.0
// The bounds-checked memory functions: what they do, and what they refuse to do.
#include "runtime/bounded.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

namespace {

using Eight = std::array<std::uint8_t, 8>;

constexpr Eight kBefore = {9, 9, 9, 9, 9, 9, 9, 9};
constexpr Eight kSource = {1, 2, 3, 4, 5, 6, 7, 8};

TEST(MemcpyS, CopiesAsManyBytesAsTheDestinationHolds) {
    Eight to = kBefore;
    EXPECT_EQ(kaplo::memcpy_s(to.data(), to.size(), kSource.data(), to.size()), 0);
    EXPECT_EQ(to, kSource);
}

TEST(MemcpyS, LeavesTheRestOfALargerDestination) {
    Eight to = kBefore;
    EXPECT_EQ(kaplo::memcpy_s(to.data(), to.size(), kSource.data(), 3), 0);
    EXPECT_EQ(to, (Eight{1, 2, 3, 9, 9, 9, 9, 9}));
}

TEST(MemcpyS, RefusesOneByteTooManyAndWritesNothing) {
    Eight to = kBefore;
    EXPECT_NE(kaplo::memcpy_s(to.data(), 7, kSource.data(), 8), 0);
    EXPECT_EQ(to, kBefore);
}

TEST(MemcpyS, RefusesAnyCountForADestinationOfNoBytes) {
    Eight to = kBefore;
    EXPECT_NE(kaplo::memcpy_s(to.data(), 0, kSource.data(), 1), 0);
    EXPECT_EQ(to, kBefore);
}

TEST(MemcpyS, RefusesTheLargestCount) {
    Eight to = kBefore;
    EXPECT_NE(kaplo::memcpy_s(to.data(), to.size(), kSource.data(), SIZE_MAX), 0);
    EXPECT_EQ(to, kBefore);
}

TEST(MemcpyS, CopiesNoBytesBetweenNullPointers) { EXPECT_EQ(kaplo::memcpy_s(nullptr, 0, nullptr, 0), 0); }

TEST(MemcpyS, CopiesNoBytesFromANullPointerAndLeavesTheDestination) {
    Eight to = kBefore;
    EXPECT_EQ(kaplo::memcpy_s(to.data(), to.size(), nullptr, 0), 0);
    EXPECT_EQ(to, kBefore);
}

TEST(MemsetS, FillsAsManyBytesAsTheDestinationHolds) {
    Eight to = kBefore;
    EXPECT_EQ(kaplo::memset_s(to.data(), to.size(), 0, to.size()), 0);
    EXPECT_EQ(to, Eight{});
}

TEST(MemsetS, LeavesTheRestOfALargerDestination) {
    Eight to = kBefore;
    EXPECT_EQ(kaplo::memset_s(to.data(), to.size(), 7, 2), 0);
    EXPECT_EQ(to, (Eight{7, 7, 9, 9, 9, 9, 9, 9}));
}

TEST(MemsetS, RefusesOneByteTooManyAndWritesNothing) {
    Eight to = kBefore;
    EXPECT_NE(kaplo::memset_s(to.data(), 7, 0, 8), 0);
    EXPECT_EQ(to, kBefore);
}

TEST(MemsetS, RefusesTheLargestCount) {
    Eight to = kBefore;
    EXPECT_NE(kaplo::memset_s(to.data(), to.size(), 0, SIZE_MAX), 0);
    EXPECT_EQ(to, kBefore);
}

TEST(MemsetS, FillsNoBytesAtANullPointer) { EXPECT_EQ(kaplo::memset_s(nullptr, 0, 0, 0), 0); }

}  // namespace
