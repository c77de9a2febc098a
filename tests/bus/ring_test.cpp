// SPDX-License-Identifier: Apache-2.0
// The ring of ipc: records come out as they went in, whatever their sizes; neither end is harmed by what the
// other writes into the shared memory.
#include "vorn/ipc/ring.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <random>
#include <thread>
#include <vector>

namespace {

using namespace vorn;
using Record = std::vector<std::uint8_t>;

// Memory as two processes share it, and both ends.
struct Ring {
    explicit Ring(std::uint32_t queue_bytes, std::uint32_t record_bytes = 0,
                  std::uint32_t most_records = 1024, std::uint64_t next = 1)
        : storage(ring_bytes_for(queue_bytes, record_bytes) / 64 + 2),
          memory(RingMemory::at(storage.data(), ring_bytes_for(queue_bytes, record_bytes))),
          writer(memory, next, most_records),
          reader(memory, next, most_records, record_bytes == 0 ? queue_bytes : record_bytes) {}

    bool write(const Record& record) {
        std::uint8_t* to = writer.reserve(static_cast<std::uint32_t>(record.size()));
        if (to == nullptr && writer.note_handled())
            to = writer.reserve(static_cast<std::uint32_t>(record.size()));
        if (to == nullptr) return false;
        std::copy(record.begin(), record.end(), to);
        rings = writer.publish();
        return true;
    }
    // Empty: there is none, or the ring is broken.
    Record read() {
        std::uint32_t bytes = 0;
        found = reader.find(bytes);
        if (found != RingReader::Found::record) return {};
        Record record(bytes);
        reader.copy(record.data(), bytes);
        reader.begin(reader.taken());
        wakes = reader.handle(reader.taken());
        return record;
    }
    std::uint32_t* head_of_first() { return reinterpret_cast<std::uint32_t*>(memory.records.data()); }

    struct alignas(64) Line {
        std::uint8_t bytes[64] = {};
    };
    std::vector<Line> storage;
    RingMemory memory;
    RingWriter writer;
    RingReader reader;
    bool rings = false;
    bool wakes = false;
    RingReader::Found found = RingReader::Found::nothing;
};

Record numbered(std::uint64_t number, std::size_t bytes) {
    Record record(bytes);
    for (std::size_t i = 0; i < bytes; ++i) record[i] = static_cast<std::uint8_t>(number * 31 + i);
    return record;
}

TEST(Ring, ARecordComesOutAsItWentIn) {
    Ring ring(1024);
    ASSERT_TRUE(ring.write({1, 2, 3}));
    EXPECT_EQ(ring.read(), (Record{1, 2, 3}));
    EXPECT_TRUE(ring.read().empty());
    EXPECT_EQ(ring.found, RingReader::Found::nothing);
}

TEST(Ring, RecordsOfAllSizesKeepTheirOrderThroughEveryPlaceInTheRing) {
    std::mt19937 random(1);
    for (const std::uint32_t queue_bytes : {64U, 200U, 1000U, 2000U, 300'000U}) {
        const std::uint32_t most = queue_bytes == 1000 ? 40 : queue_bytes / 2;
        Ring ring(queue_bytes, most, 40);
        std::deque<Record> written;
        std::uint64_t number = 0;
        for (int step = 0; step < 20000; ++step) {
            if (random() % 2 == 0) {
                Record record = numbered(++number, 1 + random() % most);
                if (ring.write(record)) written.push_back(std::move(record));
            } else if (!written.empty()) {
                ASSERT_EQ(ring.read(), written.front());
                written.pop_front();
            } else {
                ASSERT_TRUE(ring.read().empty());
            }
            ASSERT_LE(written.size(), 40U);
        }
    }
}

TEST(Ring, OneOfTheLargestRecordsAlwaysFitsIntoAnEmptyRing) {
    for (std::uint32_t largest = 1; largest < 300; ++largest) {
        Ring ring(64, largest);
        for (std::uint32_t i = 0; i < 50; ++i) {
            const Record record = numbered(i, i % 2 == 0 ? largest : 1 + i % largest);
            ASSERT_TRUE(ring.write(record)) << largest << ' ' << i;
            ASSERT_EQ(ring.read(), record);
        }
        EXPECT_EQ(ring.writer.reserve(largest + 64 + 64), nullptr);
    }
}

TEST(Ring, AShortQueueStaysAtTheStart) {
    Ring ring(16U << 20);
    for (std::uint32_t i = 0; i < 100'000; ++i) {
        ASSERT_TRUE(ring.write(numbered(i, 1000)));
        ASSERT_EQ(ring.read().size(), 1000U);
    }
    const auto used = std::span(ring.memory.records).subspan(256U << 10);
    EXPECT_TRUE(std::all_of(used.begin(), used.end(), [](std::uint8_t byte) { return byte == 0; }));
}

// Also where it has gone back to the start: a reader that is not scheduled has all of its queue.
TEST(Ring, TheWholeQueueIsThereWhenTheReaderStops) {
    for (std::uint32_t before = 0; before < 3000; before += 7) {
        Ring ring(1U << 20, 0, UINT32_MAX);
        for (std::uint32_t i = 0; i < before; ++i) {
            ASSERT_TRUE(ring.write(numbered(i, 100)));
            ASSERT_EQ(ring.read().size(), 100U);
        }
        std::uint32_t waiting = 0;
        while (ring.write(numbered(waiting, 100))) ++waiting;
        EXPECT_GE(waiting * 112U, (1U << 20) - (160U << 10)) << before;
        while (waiting-- != 0) ASSERT_EQ(ring.read().size(), 100U);
    }
}

TEST(Ring, RecordsWaitUpToTheirNumber) {
    Ring ring(4096, 0, 3);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(ring.write({1}));
    EXPECT_FALSE(ring.write({1}));
    EXPECT_EQ(ring.writer.waiting(), 3U);
    ring.read();
    EXPECT_TRUE(ring.write({1}));
}

TEST(Ring, TheReaderIsRungForOnceWhenItSleeps) {
    Ring ring(4096);
    ASSERT_TRUE(ring.write({1}));
    EXPECT_TRUE(ring.rings);  // a new reader sleeps
    ASSERT_TRUE(ring.write({2}));
    EXPECT_FALSE(ring.rings);
    EXPECT_FALSE(ring.reader.sleep());  // there is something
    ring.read();
    ring.read();
    EXPECT_TRUE(ring.reader.sleep());
    ASSERT_TRUE(ring.write({3}));
    EXPECT_TRUE(ring.rings);
}

TEST(Ring, AWriterThatWaitsIsWokenAtItsNumber) {
    Ring ring(4096);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(ring.write({1}));
    const std::uint32_t before = ring.writer.wants_to_be_woken_at(2);
    ring.read();
    EXPECT_FALSE(ring.wakes);
    ring.read();
    EXPECT_TRUE(ring.wakes);
    EXPECT_NE(ring.writer.header()->wakes.load(), before);
    ring.read();
    EXPECT_FALSE(ring.wakes);
}

TEST(Ring, WhatWasBegunAndNotHandledIsKnownAfterTheReadersEnd) {
    Ring ring(4096, 0, 8, 100);
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(ring.write({1}));
    EXPECT_FALSE(ring.writer.next_is_begun());
    ring.reader.begin(100);
    EXPECT_TRUE(ring.writer.next_is_begun());
    ring.reader.handle(100);
    ASSERT_TRUE(ring.writer.note_handled());
    EXPECT_EQ(ring.writer.handled(), 100U);
    EXPECT_FALSE(ring.writer.next_is_begun());
}

TEST(Ring, AReaderThatClaimsWhatCannotBeIsFound) {
    Ring ring(4096, 0, 8, 100);
    ASSERT_TRUE(ring.write({1}));
    for (const std::uint64_t lie : {std::uint64_t{98}, std::uint64_t{101}, std::uint64_t{0}, UINT64_MAX}) {
        ring.memory.header->handled = lie;
        EXPECT_FALSE(ring.writer.note_handled()) << lie;
        EXPECT_EQ(ring.writer.handled(), 99U);
    }
}

// The reader neither reads beyond the ring nor more than a record may have, whatever the writer has written.
TEST(Ring, AWriterThatClaimsWhatCannotBeIsFound) {
    const auto found_after = [](auto&& damage) {
        Ring ring(256, 0, 8);
        ring.write({1, 2, 3});
        damage(ring);
        ring.read();
        return ring.found;
    };
    using Found = RingReader::Found;
    EXPECT_EQ(found_after([](Ring&) {}), Found::record);
    EXPECT_EQ(found_after([](Ring& ring) { ring.memory.header->published = 9; }), Found::broken);
    EXPECT_EQ(found_after([](Ring& ring) { ring.memory.header->published = UINT64_MAX; }), Found::broken);
    EXPECT_EQ(found_after([](Ring& ring) { ring.head_of_first()[0] = 257; }), Found::broken);
    EXPECT_EQ(found_after([](Ring& ring) { ring.head_of_first()[0] = UINT32_MAX; }), Found::broken);
    EXPECT_EQ(found_after([](Ring& ring) { ring.head_of_first()[1] = 7; }), Found::broken);
    EXPECT_EQ(found_after([](Ring& ring) { ring.head_of_first()[1] = 2; }), Found::broken);  // to itself
}

TEST(Ring, RandomBytesInTheMemoryHarmNobody) {
    std::mt19937 random(2);
    for (int round = 0; round < 3000; ++round) {
        Ring ring(512, 0, 16);
        for (int step = 0; step < 40; ++step) {
            switch (random() % 4) {
                case 0:
                    ring.write(numbered(random(), 1 + random() % 200));
                    break;
                case 1:
                    ring.memory.records[random() % ring.memory.records.size()] =
                        static_cast<std::uint8_t>(random() % 4 == 0 ? random() : random() % 3);
                    break;
                case 2:
                    if (random() % 4 == 0) ring.memory.header->handled = random() % 20;
                    if (random() % 4 == 0) ring.memory.header->published = random() % 20;
                    break;
                default:
                    ASSERT_LE(ring.read().size(), 512U);
                    if (ring.found == RingReader::Found::broken) step = 40;
            }
        }
    }
}

TEST(Ring, OneThreadWritesWhileAnotherReads) {
    constexpr std::uint64_t kRecords = 300'000;
    Ring ring(2048, 0, 64);
    std::thread reading([&ring] {
        std::uint64_t number = 0;
        while (number < kRecords) {
            std::uint32_t bytes = 0;
            if (ring.reader.find(bytes) != RingReader::Found::record) {
                std::this_thread::yield();
                continue;
            }
            Record record(bytes);
            ring.reader.copy(record.data(), bytes);
            ++number;
            if (record != numbered(number, 1 + number % 90)) {
                ADD_FAILURE() << number;
                return;
            }
            ring.reader.handle(ring.reader.taken());
        }
    });
    for (std::uint64_t number = 1; number <= kRecords; ++number) {
        while (!ring.write(numbered(number, 1 + number % 90)) && !HasFailure()) std::this_thread::yield();
    }
    reading.join();
    ASSERT_TRUE(ring.writer.note_handled());
    EXPECT_EQ(ring.writer.waiting(), 0U);
}

}  // namespace
