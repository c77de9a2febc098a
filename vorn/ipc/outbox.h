// SPDX-License-Identifier: Apache-2.0
// What a sender has on its way to one address: a ring that its receiver reads, and after that one's end the
// next receiver's, with what is not handled.
#ifndef VORN_OUTBOX_H
#define VORN_OUTBOX_H

#include <cstdint>

#include "vorn/ipc/ring.h"

namespace vorn {

// Without sockets, threads and clocks: memory comes in, and what is to be told comes out.
class Outbox {
  public:
    // Where to write a batch of that size; null: there is no space now. Throws bad_alloc.
    std::uint8_t* reserve(std::uint32_t bytes);
    // Hands it over. True: the receiver sleeps.
    bool publish() { return writer_.publish(); }

    // Looks at what is handled. False: the receiver claims what cannot be.
    bool note_handled() { return writer_.header() == nullptr || writer_.note_handled(); }
    std::uint64_t published() const { return writer_.published(); }
    std::uint64_t handled() const { return writer_.handled(); }
    std::uint32_t waiting() const { return writer_.waiting(); }

    // The receiver reads no more, and never will again.
    void receiver_ended();

    struct Moved {
        std::uint64_t first = 1;         // number of the first batch in the new ring
        std::uint32_t batches = 0;       // that are there at most
        bool first_is_repeated = false;  // its handler was called, and has not returned
        std::uint32_t dropped = 0;       // batches that the new receiver does not take
    };
    // A new ring, for the next receiver, with what waits. Throws bad_alloc, and is as before then.
    Moved move_to(RingMemory memory, std::uint32_t most_batches, std::uint32_t most_bytes);

    RingWriter& writer() { return writer_; }

  private:
    RingWriter writer_;
    std::uint64_t begun_ = 0;  // number of a batch whose handler was called by a receiver that has ended
};

}  // namespace vorn

#endif
