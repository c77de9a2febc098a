// SPDX-License-Identifier: Apache-2.0
// A queue of records in memory that two processes share: one writes, the other reads.
//
// Neither trusts the other. What is shared are counts: how many records there are, and how many of them are
// handled. Where records lie each keeps to itself: the writer looks only at counts, which it checks, and the
// reader copies a record out before anything looks into it. The reader's process may end at any instruction:
// the counts tell which records are handled, and whether the next one was begun.
#ifndef VORN_RING_H
#define VORN_RING_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vorn {

// The beginning of the shared memory. Records are numbered from 1 on, through all rings of a link.
struct RingHeader {
    // By the writer. `reader_sleeps` is set by the reader, and cleared by the writer, which then wakes it.
    alignas(64) std::atomic<std::uint64_t> published;  // number of the last record
    std::atomic<std::uint64_t> offered;                // records that there were, written or left out
    std::atomic<std::uint64_t> restarts_at;            // number of the last record that was put at the start
    std::atomic<std::uint32_t> reader_sleeps;
    // By the reader. `wake_at` is set by a writer that waits, and cleared by the reader, which then wakes it.
    alignas(64) std::atomic<std::uint64_t> begun;  // number of the last record that was given to a handler
    std::atomic<std::uint64_t> handled;            // number of the last record whose handlers have returned
    std::atomic<std::uint64_t> wake_at;            // the number to be handled; all-ones: nobody waits
    std::atomic<std::uint32_t> wakes;              // a futex: changes when the writer is woken
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free && sizeof(RingHeader) == 128);

inline constexpr std::uint64_t kNobodyWaits = UINT64_MAX;

// Where a ring lies: its header and its records, in shared memory of some bytes.
struct RingMemory {
    RingHeader* header = nullptr;
    std::span<std::uint8_t> records;

    // `bytes` includes the header; a multiple of 8.
    static RingMemory at(void* start, std::size_t bytes) {
        return {static_cast<RingHeader*>(start),
                {static_cast<std::uint8_t*>(start) + sizeof(RingHeader), bytes - sizeof(RingHeader)}};
    }
};

// The bytes of a ring in which a record of a number of bytes fits wherever it begins, while others wait.
std::size_t ring_bytes_for(std::uint32_t queue_bytes, std::uint32_t record_bytes);

// No ring is smaller.
inline constexpr std::uint32_t kLeastRingBytes = sizeof(RingHeader) + 64;

// The writer's end. Not for several threads at once.
class RingWriter {
  public:
    RingWriter() = default;
    // The ring is empty; `next` is the number of its first record. at most that number of records wait in it.
    RingWriter(RingMemory memory, std::uint64_t next, std::uint32_t most_records);

    // Where a record of a number of bytes is to be written; null: there is no space. Throws bad_alloc.
    std::uint8_t* reserve(std::uint32_t bytes);

    // Hands over the record that was reserved last. True: the reader sleeps, and is to be woken.
    bool publish();

    // A record that there would have been.
    void leave_out();

    // Looks at what the reader has handled, and takes back its space. False: it claims what cannot be.
    bool note_handled();

    std::uint64_t published() const { return published_; }
    std::uint64_t offered() const { return offered_; }
    std::uint64_t handled() const { return handled_; }  // as last noted
    std::uint32_t waiting() const { return static_cast<std::uint32_t>(published_ - handled_); }

    // Whether the record after the last that is handled was given to a handler, which has not returned.
    bool next_is_begun() const;

    // Asks to be woken once that number of records are handled; `wakes` is the value to wait on.
    std::uint32_t wants_to_be_woken_at(std::uint64_t number) const;

    // The bytes of a record that waits: of a ring that nobody reads any more.
    std::span<const std::uint8_t> record(std::uint64_t number) const;

    RingHeader* header() const { return memory_.header; }

  private:
    struct Extent {
        std::uint32_t from;  // its space: where the record before it ends, also if it is at the start itself
        std::uint32_t offset;
        std::uint32_t bytes;
    };
    Extent& extent(std::uint64_t number) { return extents_[number & (extents_.size() - 1)]; }
    const Extent& extent(std::uint64_t number) const { return extents_[number & (extents_.size() - 1)]; }
    void grow();
    std::uint8_t* write_at(std::uint32_t offset, std::uint32_t bytes);

    RingMemory memory_;
    std::vector<Extent> extents_;  // of the records that wait, by number; a power of two
    std::uint32_t most_ = 0;
    std::uint32_t tail_ = 0;  // where the next record goes
    Extent reserved_ = {};
    std::uint64_t published_ = 0;
    std::uint64_t handled_ = 0;
    std::uint64_t offered_ = 0;
};

// The reader's end. What finds and copies is for one thread; the rest is for any.
class RingReader {
  public:
    enum class Found : std::uint8_t { record, nothing, broken };

    RingReader() = default;
    // As the writer's. Records have at most that number of bytes.
    RingReader(RingMemory memory, std::uint64_t next, std::uint32_t most_records, std::uint32_t most_bytes);

    // Whether there is a next record, and its size. Broken: the writer has claimed what cannot be, and
    // nothing more is to be read.
    Found find(std::uint32_t& bytes);
    // Copies its first bytes.
    void peek(std::uint8_t* to, std::uint32_t bytes) const;
    // Copies out the record that was found, without this number of bytes in front.
    void copy(std::uint8_t* to, std::uint32_t bytes, std::uint32_t without = 0);
    std::uint64_t taken() const { return taken_; }  // number of the last record that was copied

    bool has_some() const { return published() != taken_; }
    // From now on the writer wakes the reader for the next record. False: there is one already.
    bool sleep();

    // Of a record, once it is given to a handler, and once its handlers have returned. True: the writer waits
    // for this, and is to be woken.
    void begin(std::uint64_t number) { header_->begun.store(number, std::memory_order_release); }
    bool handle(std::uint64_t number);

    std::uint64_t published() const { return header_->published.load(std::memory_order_seq_cst); }
    std::uint64_t handled() const { return header_->handled.load(std::memory_order_relaxed); }
    std::uint64_t offered() const { return header_->offered.load(std::memory_order_acquire); }
    std::uint32_t most() const { return most_records_; }
    RingHeader* header() const { return header_; }

  private:
    RingHeader* header_ = nullptr;
    std::span<const std::uint8_t> records_;
    std::uint64_t taken_ = 0;
    std::uint64_t known_ = 0;  // published, as last seen
    std::uint32_t offset_ = 0;
    std::uint32_t most_records_ = 0;
    std::uint32_t most_bytes_ = 0;
};

}  // namespace vorn

#endif
