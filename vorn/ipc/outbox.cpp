// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/outbox.h"

#include <algorithm>
#include <utility>

namespace vorn {

std::uint8_t* Outbox::reserve(std::uint32_t bytes) { return writer_.reserve(bytes); }

void Outbox::receiver_ended() {
    if (writer_.header() == nullptr) return;
    static_cast<void>(writer_.note_handled());  // a claim that cannot be is no claim
    if (writer_.next_is_begun()) begun_ = writer_.handled() + 1;
}

Outbox::Moved Outbox::move_to(RingMemory memory, std::uint32_t most_batches, std::uint32_t most_bytes) {
    Moved moved;
    moved.first = writer_.handled() + 1;
    moved.batches = std::max(most_batches, writer_.waiting());
    RingWriter next(memory, moved.first, moved.batches);
    for (std::uint64_t number = moved.first; number <= writer_.published(); ++number) {
        const auto bytes = writer_.record(number);
        std::uint8_t* const to =
            bytes.size() <= most_bytes ? next.reserve(static_cast<std::uint32_t>(bytes.size())) : nullptr;
        if (to == nullptr) {
            ++moved.dropped;
            continue;
        }
        std::copy(bytes.begin(), bytes.end(), to);
        next.publish();
        if (number == moved.first) moved.first_is_repeated = begun_ == number;
    }
    if (!moved.first_is_repeated) begun_ = 0;
    writer_ = std::move(next);
    return moved;
}

}  // namespace vorn
