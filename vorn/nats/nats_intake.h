// SPDX-License-Identifier: Apache-2.0
// The receiving end: which batches of a stream are taken, and which were taken before. Pure: no socket,
// thread or clock.
#ifndef VORN_NATS_INTAKE_H
#define VORN_NATS_INTAKE_H

#include <cstdint>
#include <unordered_map>

#include "vorn/nats/nats_journal.h"
#include "vorn/nats/nats_packet.h"

namespace vorn {

class NatsIntake {
  public:
    // Goes on after what the journal has as handled. `first` is the stream's first message.
    NatsIntake(const Journal& journal, std::uint64_t first);

    // The stream's number of the message that is taken next; those before it are known.
    std::uint64_t next() const { return next_; }
    // The stream does not have those before `next` any more. What is missing of which session, nobody knows.
    void pass_over_to(std::uint64_t next);

    // What to do with message next(), which holds these batches; they count as taken from here on.
    struct Verdict {
        bool is_taken = false;
        bool is_early = false;       // batches before it are missing: its sender stores it again after them
        std::uint32_t skip = 0;      // batches at its beginning that are known
        bool repeats_first = false;  // the first that is not known may have been handled before
        bool repeats_all = false;    // the same for each
        bool is_in_doubt = false;    // the journal shall not know the session yet
        bool forgets = false;        // when its turn has come, the journal shall forget all sessions
    };
    Verdict take(const NatsPacket& packet);
    void take_damaged() { ++next_; }

  private:
    struct Taken {
        std::uint64_t last = 0;      // number of the last batch that was taken
        std::uint64_t position = 0;  // its message's number in the stream
        // In doubt while `open_end` is not 0: batches from `open` up to it may have come before this receiver
        // knew of the session, or may come still. They are taken, as repeated, and so are those that are
        // published again.
        std::uint64_t open = 0;
        std::uint64_t open_end = 0;
    };

    Verdict judge(const NatsPacket& packet);
    Verdict take_of_unknown(const NatsPacket& packet);
    static Verdict take_next(const NatsPacket& packet, Taken& taken);
    static Verdict take_open(const NatsPacket& packet, const Taken& taken);
    void forget_the_silent();

    const std::uint64_t delivered_before_;
    std::uint64_t next_;
    std::uint64_t interrupted_position_ = 0;  // of a batch whose handler was called and did not return
    std::uint64_t interrupted_ = 0;           // its number
    std::unordered_map<std::uint64_t, Taken> taken_;  // by session
    bool forgot_;                                     // sessions that were taken
    bool forgets_ = false;
};

}  // namespace vorn

#endif
