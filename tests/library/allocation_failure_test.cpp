// SPDX-License-Identifier: Apache-2.0
// Every allocation of every message type made to fail: what is logged, what is left, and that nothing leaks.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "tests/support/message.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;

constexpr std::uint64_t kRecords = 12;  // of every type and operation
constexpr std::uint32_t kBatch = 3;

class AllocationFailure : public MessageTest, public testing::WithParamInterface<MessageType> {
  protected:
    std::string complaint(std::uint32_t size) const {
        return std::string(type.root_decoder) + ": [KAPLO]:Malloc unpack data unsuccess," +
               std::string(type.complaint_blanks, ' ') + "size(" + std::to_string(size) + ")";
    }

    std::uint32_t unpack(const Bytes& message, void* record) const {
        return type.unpack(message.data(), static_cast<std::uint32_t>(message.size()), record);
    }

    void fail_allocation(std::size_t nth) {
        services.fail_allocation(nth);
        ++failed;
    }

    static void TearDownTestSuite() { std::cout << "count: " << failed << " allocations made to fail\n"; }

    const MessageType& type = GetParam();
    static inline int failed = 0;
};
NAC_FOR_ALL_MESSAGES(AllocationFailure);

TEST_P(AllocationFailure, UnpackAsksForOneArrayForEachVectorThatIsNotEmpty) {
    for (std::uint64_t seed = 0; seed < kRecords; ++seed) {
        SCOPED_TRACE(seed);
        const AnyRecords sent = type.random(seed);
        const std::vector<std::uint32_t> sizes = type.array_bytes(*sent);
        for (const Bytes& message : type.in_all_layouts(*sent)) {
            services.reset();
            AnyRecord record(type);
            unpack(message, record.data());
            const auto allocations = services.allocations();
            ASSERT_EQ(allocations.size(), sizes.size());
            for (std::size_t i = 0; i < sizes.size(); ++i) {
                EXPECT_EQ(allocations[i].size, sizes[i]);
                EXPECT_EQ(allocations[i].caller, type.root_decoder);
                EXPECT_EQ(allocations[i].allocator, Allocator::cache);
                EXPECT_EQ(allocations[i].owner_code, 12U);
            }
        }
    }
}

TEST_P(AllocationFailure, InUnpackIsLoggedAndLeavesCountsWithoutArrays) {
    for (std::uint64_t seed = 0; seed < kRecords; ++seed) {
        SCOPED_TRACE(seed);
        const AnyRecords sent = type.random(seed);
        const Bytes message = type.packed(*sent);
        const std::vector<std::uint32_t> sizes = type.array_bytes(*sent);
        for (std::size_t failing = 0; failing < sizes.size(); ++failing) {
            SCOPED_TRACE(failing);
            services.reset();
            fail_allocation(failing);
            AnyRecord record(type);
            EXPECT_EQ(unpack(message, record.data()), type.record_bytes);
            EXPECT_EQ(logged(), Lines{complaint(sizes[failing])});
            EXPECT_EQ(services.log_lines().at(0).category, 12U);
            EXPECT_EQ(services.allocations().size(), failing + 1) << "went on after the failure";
            EXPECT_TRUE(type.stopped_record(record.data(), *sent));
            const std::vector<std::uint32_t> kept = type.array_bytes(record.data());
            EXPECT_EQ(kept,
                      std::vector(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(failing) + 1))
                << "counts of the arrays that were asked for";
        }
    }
}

TEST_P(AllocationFailure, InUnpackLeavesARecordThatCanBePackedAndFreedTwice) {
    const AnyRecords sent = type.random(6, Filling::rich);
    const Bytes message = type.packed(*sent);
    const std::size_t arrays = type.array_bytes(*sent).size();
    for (std::size_t failing = 0; failing < std::max<std::size_t>(arrays, 1); ++failing) {
        SCOPED_TRACE(failing);
        services.reset();
        fail_allocation(failing);
        AnyRecord record(type);
        unpack(message, record.data());

        const Bytes rest = type.packed(record.data());
        AnyRecord again(type);
        unpack(rest, again.data());
        EXPECT_EQ(type.array_bytes(again.data()).size(), 0U) << "a count without an array was written";
        EXPECT_TRUE(same_bytes(type.packed(again.data()), rest));
        type.free(record.data());
        type.free(record.data());
        EXPECT_EQ(services.foreign_releases(), 0U);
    }
}

TEST_P(AllocationFailure, InASingleSendIsRefusedSilently) {
    const AnyRecords record = type.random(6, Filling::rich);
    fail_allocation(0);
    const std::uint32_t result = type.send_to(1, *record, 1, 0);
    EXPECT_EQ(result, type.owns_memory ? kRefused : 0U);
    EXPECT_EQ(bus.sends().size(), type.owns_memory ? 0U : 1U);
    EXPECT_EQ(services.allocations().size(), type.owns_memory ? 1U : 0U) << "images are sent from the stack";
    EXPECT_EQ(logged(), Lines{});
    EXPECT_TRUE(services.releases().empty());
}

TEST_P(AllocationFailure, InABatchIsRefusedSilently) {
    const AnyRecords records = type.random(6, Filling::rich, kBatch);
    fail_allocation(0);
    EXPECT_EQ(type.send_to(1, *records, kBatch, 0), kRefused);
    EXPECT_TRUE(bus.sends().empty());
    EXPECT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(logged(), Lines{});
    EXPECT_TRUE(services.releases().empty());
}

// So no send has an allocation that was not made to fail above.
TEST_P(AllocationFailure, CannotHappenTwiceInASend) {
    const AnyRecords records = type.random(6, Filling::rich, kBatch);
    fail_allocation(1);
    EXPECT_EQ(type.send_to(1, *records, kBatch, 0), 0U);
    EXPECT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.releases().size(), 1U);

    services.reset();
    fail_allocation(1);
    EXPECT_EQ(type.send_to(1, *records, 1, 0), 0U);
    EXPECT_EQ(services.releases().size(), type.owns_memory ? 1U : 0U);
}

}  // namespace
