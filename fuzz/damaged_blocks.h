// SPDX-License-Identifier: Apache-2.0
// Damaged messages in endless supply, by number: every block of damages has a message of its own, of one
// type, layout and byte order, from the block's number; the message ends where an unmapped page begins.
#ifndef FUZZ_DAMAGED_BLOCKS_H
#define FUZZ_DAMAGED_BLOCKS_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <vector>

#include "fuzz/damaged.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random_record.h"

namespace fuzz {

inline constexpr std::uint64_t kBlockMessages = 10'000;
inline constexpr std::uint32_t kMostBlockBytes = 1 << 16;  // of a message

// The numbers at which readers go wrong: near nothing, near the message's end, near the wrap.
inline std::uint32_t damage(tests::Random& random, std::uint32_t size, std::uint32_t at) {
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

// Calls use.operator()<Record>(bytes, length, order) for each message of a block. The buffer holds
// kMostBlockBytes.
template <class Use>
void each_damaged(std::uint64_t block, tests::GuardedBuffer& guarded, Use&& use) {
    with_message_type(static_cast<std::uint32_t>(block % kMessageTypes), [&]<class Record> {
        tests::Random random(block);
        const std::endian order = random.one_in(4) ? std::endian::big : std::endian::little;
        CheckedUnit unit(order);
        account.clear();
        const tests::RandomRecords<Record> record(random.next(), tests::filling_of(random.next()), 1, 2);
        const std::vector<std::uint8_t> message = packed(unit, *record, random.one_in(2));
        const auto size = static_cast<std::uint32_t>(message.size());
        for (std::uint64_t i = 0; i < kBlockMessages; ++i) {
            const std::uint32_t length = random.one_in(8) ? random.below(size + 1) : size;
            std::uint8_t* const bytes = guarded.last(length);
            std::copy_n(message.begin(), length, bytes);
            for (std::uint32_t left = 1 + random.below(3); left > 0 && length > 0; --left) {
                const std::uint32_t at = random.below(length);
                constexpr std::uint32_t widths[] = {1, 2, 4};
                put(bytes + at, damage(random, length, at), std::min(widths[random.below(3)], length - at));
            }
            use.template operator()<Record>(bytes, length, order);
        }
    });
}

}  // namespace fuzz

#endif
