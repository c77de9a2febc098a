// SPDX-License-Identifier: Apache-2.0
// The promises of ipc, held by simulation: senders write, receivers take, handle, end at any step and come
// again, and after each step a checker compares what handlers were given with what was accepted.
//
// SEED and STEPS of the environment replay one run.
#include "vorn/ipc/outbox.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace vorn;

constexpr std::uint32_t kQueueBytes = 512;
constexpr std::uint32_t kLargest = 200;
constexpr int kSenders = 3;

// Mistakes that a transport could make, for the checker to find.
enum class Mistake {
    none,
    forgets_what_was_begun,    // the next receiver is not told that a batch may be repeated
    handles_what_it_takes,     // a receiver reports batches as handled when it takes them
    does_not_look_again,       // a sender moves on without looking at what was handled last
    begins_after_the_handler,  // a receiver says that it begins a batch when it is done
    reads_on_after_its_end     // a receiver that was left still reports what it handles
};

struct Memory {
    Memory() : storage(ring_bytes_for(kQueueBytes, kLargest) / 64 + 1) {}
    RingMemory ring() { return RingMemory::at(storage.data(), ring_bytes_for(kQueueBytes, kLargest)); }
    struct alignas(64) Line {
        std::uint8_t bytes[64] = {};
    };
    std::vector<Line> storage;
};

struct Taken {
    std::uint64_t number;  // in the ring
    std::uint64_t value;   // that the sender gave it
    bool is_repeated;
};

// One end of a link in a receiver's process, until that is killed.
struct Reading {
    RingReader reader;
    std::deque<Taken> taken;
    bool in_handler = false;
    bool first_is_repeated = false;
};

struct Sender {
    Outbox outbox;
    std::shared_ptr<Memory> memory;
    std::optional<Reading> reading;
    std::optional<Reading> left;  // a receiver that has ended; with a mistake it goes on
    std::shared_ptr<Memory> left_memory;

    // What the checker knows.
    std::uint64_t accepted = 0;      // values 1 to this were accepted
    std::vector<bool> is_dropped;    // by value: too large for the receiver, and counted
    std::uint64_t last_handled = 0;  // value that a handler got last
    std::uint64_t ended_within = 0;  // value whose handler a kill has ended
};

class Simulation {
  public:
    Simulation(std::uint64_t seed, Mistake mistake) : random_(seed), mistake_(mistake) {}

    // Empty, or the promise that was broken.
    std::string run(int steps) {
        for (int step = 0; step < steps && broken_.empty(); ++step) {
            Sender& sender = senders_[random_() % kSenders];
            switch (random_() % 16) {
                case 0:
                    kill_receivers();
                    break;
                case 1:
                case 2:
                    connect(sender);
                    break;
                default:
                    random_() % 2 == 0 ? send(sender) : receive(sender);
            }
            for (const Sender& one : senders_) check_account(one);
        }
        for (Sender& sender : senders_) finish(sender);
        return broken_;
    }

  private:
    void send(Sender& sender) {
        if (!sender.reading) return;
        const auto bytes = static_cast<std::uint32_t>(8 + random_() % (kLargest - 7));
        std::uint8_t* to = sender.outbox.reserve(bytes);
        if (to == nullptr && sender.outbox.note_handled()) to = sender.outbox.reserve(bytes);
        if (to == nullptr) return;
        const std::uint64_t value = ++sender.accepted;
        std::memcpy(to, &value, sizeof value);
        sender.outbox.publish();
        sender.is_dropped.resize(value + 1);
    }

    void receive(Sender& sender) {
        if (mistake_ == Mistake::reads_on_after_its_end && sender.left && random_() % 2 == 0) {
            return advance(sender, *sender.left);
        }
        if (sender.reading) advance(sender, *sender.reading);
    }

    // One step of what a receiver does: takes, begins, ends a handler.
    void advance(Sender& sender, Reading& reading) {
        if (reading.taken.empty()) {
            for (std::uint64_t most = 1 + random_() % 4; most != 0; --most) take(reading);
            return;
        }
        const Taken now = reading.taken.front();
        if (!reading.in_handler) {
            if (mistake_ != Mistake::begins_after_the_handler) reading.reader.begin(now.number);
            reading.in_handler = true;
            return handle(sender, now);
        }
        if (mistake_ == Mistake::begins_after_the_handler) reading.reader.begin(now.number);
        reading.reader.handle(now.number);
        reading.in_handler = false;
        reading.taken.pop_front();
    }

    void take(Reading& reading) {
        std::uint32_t bytes = 0;
        const RingReader::Found found = reading.reader.find(bytes);
        if (found == RingReader::Found::broken) broken_ = "an honest ring is never broken";
        if (found != RingReader::Found::record) return;
        std::vector<std::uint8_t> record(bytes);
        reading.reader.copy(record.data(), bytes);
        Taken taken = {reading.reader.taken(), 0, std::exchange(reading.first_is_repeated, false)};
        std::memcpy(&taken.value, record.data(), sizeof taken.value);
        reading.taken.push_back(taken);
        if (mistake_ == Mistake::handles_what_it_takes) reading.reader.handle(taken.number);
    }

    // A handler is called. Values come in order, each once; one whose handler a kill has ended once more, and
    // flagged.
    void handle(Sender& sender, const Taken& taken) {
        std::uint64_t expected = sender.last_handled + 1;
        while (expected < sender.is_dropped.size() && sender.is_dropped[expected]) ++expected;
        const bool comes_again = taken.value == sender.last_handled && sender.ended_within == taken.value;
        if (comes_again && !taken.is_repeated) broken_ = "what comes twice is flagged";
        if (!comes_again && taken.value != expected) {
            broken_ = "value " + std::to_string(taken.value) + " came, and " + std::to_string(expected) +
                      " was next";
        }
        if (!comes_again && taken.is_repeated && sender.ended_within != taken.value) {
            broken_ = "what is flagged was begun before";
        }
        sender.last_handled = taken.value;
    }

    void kill_receivers() {
        for (Sender& sender : senders_) {
            if (!sender.reading) continue;
            Reading& reading = *sender.reading;
            if (reading.in_handler) sender.ended_within = reading.taken.front().value;
            sender.left = std::move(reading);
            sender.left_memory = sender.memory;
            sender.reading.reset();
            if (mistake_ != Mistake::does_not_look_again) sender.outbox.receiver_ended();
        }
    }

    void connect(Sender& sender) {
        if (sender.reading) return;
        auto memory = std::make_shared<Memory>();
        const std::uint32_t most_bytes = random_() % 20 == 0 ? kLargest / 2 : kLargest;
        std::vector<bool> dropped = too_large(sender, most_bytes);
        const Outbox::Moved moved = sender.outbox.move_to(memory->ring(), 1 + random_() % 8, most_bytes);
        if (moved.dropped != std::count(dropped.begin(), dropped.end(), true)) {
            broken_ = "what is dropped is counted";
        }
        for (std::size_t value = 0; value < dropped.size(); ++value) {
            if (dropped[value]) sender.is_dropped[value] = true;
        }
        sender.memory = memory;
        sender.reading.emplace();
        sender.reading->reader = RingReader(memory->ring(), moved.first, moved.batches, kLargest);
        sender.reading->first_is_repeated =
            moved.first_is_repeated && mistake_ != Mistake::forgets_what_was_begun;
    }

    // By value, of those that wait: whether a receiver of a number of bytes does not take it.
    std::vector<bool> too_large(Sender& sender, std::uint32_t most_bytes) {
        std::vector<bool> dropped(sender.is_dropped.size());
        const RingWriter& writer = sender.outbox.writer();
        for (std::uint64_t number = writer.handled() + 1; number <= writer.published(); ++number) {
            std::uint64_t value = 0;
            std::memcpy(&value, writer.record(number).data(), sizeof value);
            if (writer.record(number).size() > most_bytes) dropped[value] = true;
        }
        return dropped;
    }

    void check_account(const Sender& sender) {
        if (sender.outbox.waiting() > sender.accepted) broken_ = "no more waits than was accepted";
    }

    // Nobody is killed any more: all that was accepted and not dropped is handled.
    void finish(Sender& sender) {
        connect(sender);
        for (int step = 0; step < 200 && broken_.empty(); ++step) advance(sender, *sender.reading);
        std::uint64_t last = sender.accepted;
        while (last != 0 && sender.is_dropped[last]) --last;
        if (broken_.empty() && sender.last_handled < last) broken_ = "nothing accepted is lost";
        if (broken_.empty() && (!sender.outbox.note_handled() || sender.outbox.waiting() != 0)) {
            broken_ = "in the end nothing waits";
        }
    }

    std::mt19937_64 random_;
    const Mistake mistake_;
    Sender senders_[kSenders];
    std::string broken_;
};

std::uint64_t from_environment(const char* name, std::uint64_t instead) {
    const char* const text = std::getenv(name);
    return text == nullptr ? instead : std::strtoull(text, nullptr, 10);
}

TEST(Simulation, NothingIsLostDoubledUnflaggedOrOutOfOrderWheneverReceiversEnd) {
    const std::uint64_t first = from_environment("SEED", 1);
    const std::uint64_t seeds = std::getenv("SEED") != nullptr ? 1 : 10'000;
    const int steps = static_cast<int>(from_environment("STEPS", 300));
    for (std::uint64_t seed = first; seed < first + seeds; ++seed) {
        const std::string broken = Simulation(seed, Mistake::none).run(steps);
        ASSERT_EQ(broken, "") << "SEED=" << seed << " STEPS=" << steps;
    }
    std::printf("count: %llu simulations of %d steps, 0 promises broken\n",
                static_cast<unsigned long long>(seeds), steps);
}

TEST(Simulation, FindsEachMistake) {
    for (const Mistake mistake :
         {Mistake::forgets_what_was_begun, Mistake::handles_what_it_takes, Mistake::does_not_look_again,
          Mistake::begins_after_the_handler, Mistake::reads_on_after_its_end}) {
        std::uint64_t seed = 1;
        while (seed < 10'000 && Simulation(seed, mistake).run(300).empty()) ++seed;
        EXPECT_LT(seed, 10'000U) << "mistake " << static_cast<int>(mistake);
    }
}

TEST(Outbox, WhatANextReceiverDoesNotTakeIsDroppedAndCounted) {
    Memory first;
    Memory second;
    Outbox outbox;
    outbox.move_to(first.ring(), 8, kLargest);
    for (const std::uint32_t bytes : {10U, 200U, 20U}) {
        ASSERT_NE(outbox.reserve(bytes), nullptr);
        outbox.publish();
    }
    outbox.receiver_ended();
    const Outbox::Moved moved = outbox.move_to(second.ring(), 8, 100);
    EXPECT_EQ(moved.dropped, 1U);
    EXPECT_EQ(moved.first, 1U);
    EXPECT_EQ(outbox.waiting(), 2U);
    EXPECT_EQ(outbox.writer().record(2).size(), 20U);
}

TEST(Outbox, ABegunBatchThatIsDroppedLeavesNoFlagBehind) {
    Memory first;
    Memory second;
    Outbox outbox;
    outbox.move_to(first.ring(), 8, kLargest);
    for (const std::uint32_t bytes : {200U, 20U}) {
        ASSERT_NE(outbox.reserve(bytes), nullptr);
        outbox.publish();
    }
    first.ring().header->begun = 1;
    outbox.receiver_ended();
    EXPECT_FALSE(outbox.move_to(second.ring(), 8, 100).first_is_repeated);
}

TEST(Outbox, MoreThanTheNextReceiverHasSpaceForIsHandedOverAtOnce) {
    Memory first;
    Memory second;
    Outbox outbox;
    outbox.move_to(first.ring(), 8, kLargest);
    for (int i = 0; i < 5; ++i) {
        ASSERT_NE(outbox.reserve(10), nullptr);
        outbox.publish();
    }
    outbox.receiver_ended();
    const Outbox::Moved moved = outbox.move_to(second.ring(), 2, kLargest);
    EXPECT_EQ(moved.batches, 5U);
    EXPECT_EQ(outbox.waiting(), 5U);
    EXPECT_EQ(outbox.reserve(10), nullptr);
}

}  // namespace
