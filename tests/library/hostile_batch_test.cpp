// SPDX-License-Identifier: Apache-2.0
// Batches whose size does not fit 32 bits: the wrapped size is asked for, and nothing is written or sent.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/message.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;

constexpr std::uint64_t kWrap = std::uint64_t{1} << 32;
constexpr std::uint64_t kDescriptorBytes = 16;
constexpr std::uint64_t kAreaInDescriptors = 4096;  // the packed area of 65536 bytes

class HostileBatch : public MessageTest, public testing::WithParamInterface<MessageType> {
  protected:
    HostileBatch() {
        only_record = guarded.last(type.record_bytes);
        std::memcpy(only_record, *record, type.record_bytes);
        if (!type.owns_memory) image_bytes = static_cast<std::uint32_t>(type.sent(*record).size());
        bus.reset();
        services.reset();
    }

    std::uint64_t needed(std::uint32_t count) const {
        return type.owns_memory ? (count + kAreaInDescriptors) * kDescriptorBytes
                                : count * (image_bytes + kDescriptorBytes);
    }

    std::vector<std::uint32_t> wrapping_counts() const {
        if (type.owns_memory) {
            constexpr std::uint32_t first = (1U << 28) - 4096;
            return {first,              // asks for nothing
                    first + 1,          // one descriptor
                    first + 4096,       // the area without a descriptor
                    first + 4097,       // the area and one descriptor
                    0x80000000 - 4095,  // and the product of half of all counts
                    0xFFFFFFFF};        // the sum wraps before the product
        }
        const auto first = static_cast<std::uint32_t>(kWrap / (image_bytes + kDescriptorBytes) + 1);
        return {first,                   // asks for less than one record takes, or for just one
                0x20000000, 0x20000001,  // nothing, as sizes are multiples of 8, and one record
                0x80000000, 0x80000002};
    }

    // The only record lies right before an unmapped page: reading a second one would be fatal.
    void expect_refused(std::uint32_t count, std::uint32_t result, const char* how) const {
        SCOPED_TRACE(std::string(how) + " of " + std::to_string(count));
        EXPECT_EQ(result, kRefused);
        EXPECT_TRUE(bus.sends().empty());
        EXPECT_EQ(logged(), Lines{});
        const auto allocations = services.allocations();
        ASSERT_EQ(allocations.size(), 1U);
        EXPECT_EQ(allocations[0].size, static_cast<std::uint32_t>(needed(count)));
        EXPECT_EQ(allocations[0].caller, type.name + "__sendbatch");
        EXPECT_EQ(allocations[0].allocator, Allocator::general);
        EXPECT_EQ(allocations[0].owner_code, 0x6200U);
        const auto releases = services.releases();
        ASSERT_EQ(releases.size(), allocations[0].block == nullptr ? 0U : 1U);
        for (const auto& release : releases) {
            EXPECT_EQ(release.block, allocations[0].block);
            EXPECT_EQ(release.caller, type.name + "__sendbatch");
            EXPECT_EQ(release.owner_code, 0x6200U);
        }
    }

    const MessageType& type = GetParam();
    AnyRecords record = type.random(2, Filling::rich);  // owns the arrays of the only record
    GuardedBuffer guarded{RecordingBus::kRecordCapacity};
    std::uint8_t* only_record = nullptr;
    std::uint64_t image_bytes = 0;
};
NAC_FOR_ALL_MESSAGES(HostileBatch);

TEST_P(HostileBatch, WhoseSizeWrapsIsRefusedBeforeAByteIsWritten) {
    for (const std::uint32_t count : wrapping_counts()) {
        ASSERT_GE(needed(count), kWrap) << count;
        services.reset();
        expect_refused(count, type.send_batch(1, only_record, count, 0), "batch");
        services.reset();
        expect_refused(count, type.send_to(1, only_record, count, 9), "send");
    }
}

TEST_P(HostileBatch, OfTheLargestCountThatFitsAsksForAllOfIt) {
    const auto most =
        static_cast<std::uint32_t>(type.owns_memory ? kWrap / kDescriptorBytes - kAreaInDescriptors - 1
                                                    : (kWrap - 1) / (image_bytes + kDescriptorBytes));
    ASSERT_LT(needed(most), kWrap);
    ASSERT_GE(needed(most + 1), kWrap);
    services.fail_allocation(0);  // four gigabytes
    expect_refused(most, type.send_batch(1, only_record, most, 0), "batch");
}

}  // namespace
