// SPDX-License-Identifier: Apache-2.0
// The sending end of one session: which packets are published when, and when they are stored for sure. Pure:
// no socket, thread or clock; times are handed in.
//
// Batches are numbered; those that wait are packed together. Packets are published in order, a few ahead of
// the stream's answers. When one may be missing, all from the first that is not stored for sure are published
// again, with their numbers: the receiver takes only the next number of a session, and leaves out all others.
#ifndef VORN_NATS_OUTBOX_H
#define VORN_NATS_OUTBOX_H

#include <cstdint>
#include <deque>
#include <vector>

#include "vorn/core/support.h"
#include "vorn/nats/nats_packet.h"

namespace vorn {

class NatsOutbox {
  public:
    static constexpr std::size_t kMostPublished = 32;             // packets ahead of the stream's answers
    static constexpr std::uint32_t kMostBatches = 256;            // in a packet
    static constexpr std::uint32_t kMostBytes = 32768;            // of a packet with more than one batch
    static constexpr auto kAnswerTime = std::chrono::seconds(1);  // after which an answer counts as lost

    explicit NatsOutbox(std::uint64_t session) : session_(session) {}

    // Where to write the next batch; it shares a packet with others while that stays below `most_bytes`.
    // Throws bad_alloc, and then nothing has changed.
    std::uint8_t* add(std::uint32_t bytes, std::uint32_t most_bytes = kMostBytes);

    struct Packet {
        NatsPacket head;
        std::vector<std::uint8_t> bytes;  // head included
        Deadline published = {};          // for the last time
        std::uint64_t position = 0;       // in the stream, of its last copy that is known; 0: none
    };

    // The packet to publish now; null: none before wake_at(), or before another event. Until the next call.
    const Packet* publish(Deadline now);
    Deadline wake_at() const;

    // What becomes of a packet that was published. A bad_alloc is as an answer that is lost.
    void stored(std::uint64_t first, std::uint32_t attempt, std::uint64_t position, Deadline now);
    void not_stored(std::uint64_t first, std::uint32_t attempt, Deadline now);
    // The server never takes it: its batches are lost, their number is returned, and a void goes in its
    // stead.
    std::uint32_t too_large(std::uint64_t first);
    // Answers may be lost: all that is not stored for sure is published again.
    void interrupted(Deadline now) { go_back(now); }

    // What the stream holds from `position` on is not handled yet; all before it is.
    void handled_before(std::uint64_t position);

    std::uint64_t pending_batches() const { return pending_batches_; }  // not stored for sure
    std::uint64_t pending_bytes() const { return pending_bytes_; }
    std::uint64_t batches() const { return pending_batches_ + stored_batches_; }  // not handled
    std::uint64_t stored_packets() const { return stored_.size(); }               // and not handled

  private:
    struct Stored {
        std::uint64_t position;
        std::uint32_t batches;
    };

    // Of a packet that was published at some time; packets_.size(): no such packet.
    std::size_t find(std::uint64_t first) const;
    bool is_of_this_round(std::size_t at, std::uint32_t attempt) const {
        return at < published_ && packets_[at].head.attempt == attempt;
    }
    void take_off_the_stored();
    void go_back(Deadline resume);

    const std::uint64_t session_;
    std::uint64_t next_ = 1;           // number of the next batch
    std::deque<Packet> packets_;       // not stored for sure
    std::size_t published_ = 0;        // how many of them, in this round
    bool is_last_open_ = false;        // the last was never published, and takes more batches
    std::deque<Stored> stored_;        // for sure, and not handled
    std::uint64_t last_position_ = 0;  // of the last that is stored for sure
    Deadline resume_ = {};             // nothing is published before
    std::uint32_t failures_ = 0;       // since one was stored
    std::uint64_t pending_batches_ = 0;
    std::uint64_t pending_bytes_ = 0;
    std::uint64_t stored_batches_ = 0;
};

}  // namespace vorn

#endif
