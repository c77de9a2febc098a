// SPDX-License-Identifier: Apache-2.0
// Promise: a small message with random damage is read as the plain reader reads it.
//
// Reads N million of them on all processors, a process each, and prints how many a second: damage_sweep N
// [SEED]. Every block of damages has a message of its own, of one type, layout and byte order, from the seed
// and the block's number; the message ends where an unmapped page begins. A process that fails prints its
// block.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstdlib>
#include <vector>

#include "fuzz/damaged.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random_record.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kBlock = 10'000;  // damages of one message
constexpr std::uint32_t kMostBytes = 1 << 16;

// The numbers at which readers go wrong: near nothing, near the message's end, near the wrap.
std::uint32_t damage(tests::Random& random, std::uint32_t size, std::uint32_t at) {
    const std::uint32_t near = random.below(9) - 4;
    switch (random.below(5)) {
        case 0:
            return near;
        case 1:
            return size + near;
        case 2:
            return size - at + near;
        case 3:
            return 0x80000000U + near;
        default:
            return static_cast<std::uint32_t>(random.next());
    }
}

template <class Record>
void run_message(const Bytes& message, std::endian order, tests::Random& random,
                 tests::GuardedBuffer& guarded) {
    const auto size = static_cast<std::uint32_t>(message.size());
    for (std::uint64_t i = 0; i < kBlock; ++i) {
        const std::uint32_t length = random.one_in(8) ? random.below(size + 1) : size;
        std::uint8_t* const bytes = guarded.last(length);
        std::copy_n(message.begin(), length, bytes);
        for (std::uint32_t left = 1 + random.below(3); left > 0 && length > 0; --left) {
            const std::uint32_t at = random.below(length);
            constexpr std::uint32_t widths[] = {1, 2, 4};
            fuzz::put(bytes + at, damage(random, length, at), std::min(widths[random.below(3)], length - at));
        }
        fuzz::unpack_and_compare<Record>(bytes, length, order);
    }
}

template <class Record>
void run_block(std::uint64_t seed, tests::GuardedBuffer& guarded) {
    tests::Random random(seed);
    const std::endian order = random.one_in(4) ? std::endian::big : std::endian::little;
    fuzz::CheckedUnit unit(order);
    fuzz::account.clear();
    const tests::RandomRecords<Record> record(random.next(), tests::filling_of(random.next()), 1, 2);
    const Bytes message = fuzz::packed(unit, *record, random.one_in(2));
    run_message<Record>(message, order, random, guarded);
}

// Every block whose number is `first` modulo `step`.
void run_blocks(std::uint64_t blocks, std::uint64_t seed, std::uint64_t first, std::uint64_t step) {
    tests::GuardedBuffer guarded(kMostBytes);
    for (std::uint64_t block = first; block < blocks; block += step) {
        const std::uint64_t number = seed + block;
        fuzz::doing = "block " + std::to_string(number);
        fuzz::with_message_type(static_cast<std::uint32_t>(number % fuzz::kMessageTypes),
                                [&]<class Record> { run_block<Record>(number, guarded); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::uint64_t millions = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
    const std::uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 0;
    const std::uint64_t blocks = millions * 1'000'000 / kBlock;
    const auto processes = static_cast<std::uint64_t>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
    const auto begin = std::chrono::steady_clock::now();
    for (std::uint64_t i = 0; i < processes; ++i) {
        const pid_t child = fork();
        if (child < 0) {
            std::perror("fork");
            return 2;
        }
        if (child == 0) {
            run_blocks(blocks, seed, i, processes);
            _exit(0);
        }
    }
    bool kept = true;
    for (std::uint64_t i = 0; i < processes; ++i) {
        int status = 0;
        if (wait(&status) < 0 || status != 0) kept = false;
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    if (!kept) return 1;
    std::printf("count: %llu randomly damaged messages read as the plain reader reads them, %.0f a second\n",
                static_cast<unsigned long long>(blocks * kBlock),
                static_cast<double>(blocks * kBlock) / seconds.count());
    return 0;
}
