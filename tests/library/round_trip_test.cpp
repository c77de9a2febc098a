// SPDX-License-Identifier: Apache-2.0
// What holds for any record of every message type: what goes in comes out, and sizes are exact.
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "tests/support/message.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;

constexpr std::uint64_t kRecords = 2000;  // of every type and property
constexpr std::uint64_t kBatches = 300;
constexpr std::size_t kCapacity = 16384;  // for the largest random record

class RoundTrip : public MessageTest, public testing::WithParamInterface<MessageType> {
  protected:
    RoundTrip() { services.record(false); }

    void for_random_records(const std::function<void(const void*)>& check) {
        for (std::uint64_t seed = 0; seed < kRecords && !HasFailure(); ++seed) {
            SCOPED_TRACE(seed);
            check(*type.random(seed));
        }
    }

    // Packs with exactly the capacity that is needed, in front of an unmapped page.
    Bytes pack(const void* record, std::uint32_t size) {
        std::uint32_t length = size;
        EXPECT_EQ(type.pack(record, guarded.last(size), &length), 0U);
        EXPECT_EQ(length, size);
        return {guarded.last(size), guarded.last(size) + size};
    }

    void register_all() {
#define NAC_REGISTER(module, prefix, messages) EXPECT_EQ(prefix##_recv_init(), 0);
        NAC_ALL_MODULES(NAC_REGISTER)
#undef NAC_REGISTER
    }

    // One send, whose messages unpack to the records from `expected` on.
    void expect_sent(const void* expected, std::uint32_t count) {
        const std::vector<Sent> sends = bus.take_sends();
        ASSERT_EQ(sends.size(), 1U);
        const auto* next = static_cast<const std::uint8_t*>(expected);
        std::uint32_t arrivals = 0;
        bus.deliver(sends[0], [&](const void* record, std::uint32_t record_bytes) {
            EXPECT_EQ(sends[0].descriptors[arrivals].message_id, type.message_id);
            EXPECT_EQ(record_bytes, type.record_bytes);
            EXPECT_TRUE(type.same_record(record, next));
            next += type.record_bytes;
            ++arrivals;
        });
        EXPECT_EQ(arrivals, count);
    }

    const MessageType& type = GetParam();
    GuardedBuffer guarded{kCapacity};
};
NAC_FOR_ALL_MESSAGES(RoundTrip);

TEST_P(RoundTrip, CompactMessageUnpacksToTheSameRecordAndPacksAgainToTheSameBytes) {
    for_random_records([this](const void* record) {
        const Bytes bytes = pack(record, type.packed_size(record));
        const auto size = static_cast<std::uint32_t>(bytes.size());
        AnyRecord received(type);
        EXPECT_EQ(type.unpack(guarded.last(size), size, received.data()), type.record_bytes);
        EXPECT_TRUE(type.same_record(received.data(), record));
        EXPECT_TRUE(same_bytes(pack(received.data(), type.packed_size(received.data())), bytes));
    });
}

// A byte that pack leaves alone differs between two buffers that differed before.
TEST_P(RoundTrip, PackWritesExactlyTheBytesThatItReports) {
    constexpr std::size_t extra = 16;
    for_random_records([this](const void* record) {
        const std::uint32_t size = type.packed_size(record);
        Bytes first(size + extra, 0x5A);
        Bytes second(size + extra, 0xA5);
        for (Bytes* const buffer : {&first, &second}) {
            auto length = static_cast<std::uint32_t>(buffer->size());
            EXPECT_EQ(type.pack(record, buffer->data(), &length), 0U);
            EXPECT_EQ(length, size);
        }
        EXPECT_EQ(std::memcmp(first.data(), second.data(), size), 0) << "a byte was left out";
        EXPECT_TRUE(same_bytes({first.begin() + size, first.end()}, Bytes(extra, 0x5A)));
        EXPECT_TRUE(same_bytes({second.begin() + size, second.end()}, Bytes(extra, 0xA5)));
    });
}

TEST_P(RoundTrip, CapacityOfTheSizeIsEnoughAndOneLessIsRefusedWithNothingWritten) {
    for_random_records([this](const void* record) {
        const std::uint32_t size = type.packed_size(record);
        std::uint8_t* const buffer = guarded.last(size);
        std::memset(buffer, 0xEE, size);

        std::uint32_t length = size - 1;
        EXPECT_EQ(type.pack(record, buffer, &length), kRefused);
        EXPECT_EQ(length, size - 1);
        EXPECT_TRUE(same_bytes({buffer, buffer + size}, Bytes(size, 0xEE)));

        pack(record, size);
    });
}

// Types without vectors travel as their fixed image, the others in the compact layout.
TEST_P(RoundTrip, SentRecordArrivesEqual) {
    register_all();
    for_random_records([this](const void* record) {
        EXPECT_EQ(type.send_single(7, record, 0), 0U);
        expect_sent(record, 1);
    });
}

TEST_P(RoundTrip, EveryRecordOfABatchArrivesEqualAndInOrder) {
    register_all();
    for (std::uint64_t seed = 0; seed < kBatches && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const AnyRecords records = type.random(seed, filling_of(seed), 2 + seed % 7);
        EXPECT_EQ(type.send_batch(7, *records, records.size(), 0), 0U);
        expect_sent(*records, records.size());
    }
}

}  // namespace
