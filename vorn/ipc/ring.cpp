// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/ring.h"

#include <algorithm>
#include <cstring>

namespace vorn {
namespace {

// Before each record; its bytes are rounded up to the next eight.
struct RecordHead {
    std::uint32_t bytes;
    std::uint32_t kind;
};
constexpr std::uint32_t kHeadBytes = sizeof(RecordHead);
constexpr std::uint32_t kRecord = 1;
constexpr std::uint32_t kGoToStart = 2;  // there is always space for one of these

// A writer that finds its ring empty goes back to the start after this: a queue that is mostly short stays in
// few pages, and in the processor's cache.
constexpr std::uint32_t kGoBackAfter = 128U << 10;

constexpr std::uint32_t rounded(std::uint32_t bytes) { return (bytes + 7U) & ~7U; }

}  // namespace

std::size_t ring_bytes_for(std::uint32_t queue_bytes, std::uint32_t record_bytes) {
    // The largest record with its head, and a way back to the start.
    const std::size_t most = std::size_t{std::max(queue_bytes, record_bytes)} + 2 * std::size_t{kHeadBytes};
    return sizeof(RingHeader) + (most + 7) / 8 * 8;
}

RingWriter::RingWriter(RingMemory memory, std::uint64_t next, std::uint32_t most_records)
    : memory_(memory), extents_(64), most_(most_records), published_(next - 1), handled_(next - 1) {
    RingHeader& header = *memory_.header;
    header.published.store(next - 1, std::memory_order_relaxed);
    header.begun.store(next - 1, std::memory_order_relaxed);
    header.handled.store(next - 1, std::memory_order_relaxed);
    header.wake_at.store(kNobodyWaits, std::memory_order_relaxed);
    header.restarts_at.store(next, std::memory_order_relaxed);
    header.reader_sleeps.store(1, std::memory_order_seq_cst);
}

std::uint8_t* RingWriter::write_at(std::uint32_t offset, std::uint32_t bytes) {
    const RecordHead head = {bytes, kRecord};
    std::uint8_t* const at = memory_.records.data() + offset;
    std::memcpy(at, &head, kHeadBytes);
    reserved_ = {tail_, offset, bytes};
    return at + kHeadBytes;
}

std::uint8_t* RingWriter::reserve(std::uint32_t bytes) {
    const auto size = static_cast<std::uint32_t>(memory_.records.size());
    if (tail_ >= kGoBackAfter) static_cast<void>(note_handled());  // it may be empty
    if (bytes > size - 2 * kHeadBytes || waiting() >= most_) return nullptr;
    if (waiting() == extents_.size()) grow();
    const std::uint32_t needed = kHeadBytes + rounded(bytes);
    const bool fits_here = needed <= size - kHeadBytes - tail_;
    if (waiting() == 0) {
        if (fits_here && tail_ < kGoBackAfter) return write_at(tail_, bytes);
        // The reader has taken all: it is told where to go on, and nothing of the ring is occupied.
        tail_ = 0;
        memory_.header->restarts_at.store(published_ + 1, std::memory_order_relaxed);
        return write_at(0, bytes);
    }
    const std::uint32_t head = extent(handled_ + 1).from;
    if (tail_ <= head) {  // the writer has gone back to the start, the reader has not
        return needed < head - tail_ ? write_at(tail_, bytes) : nullptr;
    }
    if (fits_here) return write_at(tail_, bytes);
    if (needed >= head) return nullptr;
    const RecordHead back = {0, kGoToStart};
    std::memcpy(memory_.records.data() + tail_, &back, kHeadBytes);
    return write_at(0, bytes);
}

bool RingWriter::publish() {
    tail_ = reserved_.offset + kHeadBytes + rounded(reserved_.bytes);
    ++published_;
    ++offered_;
    extent(published_) = reserved_;
    RingHeader& header = *memory_.header;
    // Before looking whether the reader sleeps, as the reader says that before it looks for the last time.
    header.published.store(published_, std::memory_order_seq_cst);
    header.offered.store(offered_,
                         std::memory_order_release);  // after it: what is not published counts as lost
    return header.reader_sleeps.load(std::memory_order_seq_cst) != 0 &&
           header.reader_sleeps.exchange(0, std::memory_order_seq_cst) != 0;
}

void RingWriter::leave_out() { memory_.header->offered.store(++offered_, std::memory_order_release); }

bool RingWriter::note_handled() {
    const std::uint64_t handled = memory_.header->handled.load(std::memory_order_seq_cst);
    if (handled - handled_ > published_ - handled_) return false;
    handled_ = handled;
    return true;
}

bool RingWriter::next_is_begun() const {
    return waiting() != 0 && memory_.header->begun.load(std::memory_order_acquire) == handled_ + 1;
}

std::uint32_t RingWriter::wants_to_be_woken_at(std::uint64_t number) const {
    RingHeader& header = *memory_.header;
    const std::uint32_t wakes = header.wakes.load(std::memory_order_acquire);
    header.wake_at.store(std::min(number, header.wake_at.load(std::memory_order_relaxed)),
                         std::memory_order_seq_cst);
    return wakes;
}

std::span<const std::uint8_t> RingWriter::record(std::uint64_t number) const {
    const Extent& at = extent(number);
    return memory_.records.subspan(at.offset + kHeadBytes, at.bytes);
}

void RingWriter::grow() {
    std::vector<Extent> more(extents_.size() * 2);
    for (std::uint64_t number = handled_ + 1; number <= published_; ++number) {
        more[number & (more.size() - 1)] = extent(number);
    }
    extents_.swap(more);
}

RingReader::RingReader(RingMemory memory, std::uint64_t next, std::uint32_t most_records,
                       std::uint32_t most_bytes)
    : header_(memory.header),
      records_(memory.records),
      taken_(next - 1),
      known_(next - 1),
      most_records_(most_records),
      most_bytes_(most_bytes) {}

// Looks at the record that is next. What it reads may change at any time, so each number is read once.
RingReader::Found RingReader::find(std::uint32_t& bytes) {
    if (known_ == taken_) {
        known_ = header_->published.load(std::memory_order_acquire);
        if (known_ == taken_) return Found::nothing;
        if (known_ - taken_ > most_records_) return Found::broken;
    }
    const auto size = static_cast<std::uint32_t>(records_.size());
    if (header_->restarts_at.load(std::memory_order_relaxed) == taken_ + 1) offset_ = 0;
    for (bool went_back = false;; went_back = true) {
        if (size - offset_ < kHeadBytes) return Found::broken;
        RecordHead head;
        std::memcpy(&head, records_.data() + offset_, kHeadBytes);
        if (head.kind == kGoToStart && !went_back) {
            offset_ = 0;
            continue;
        }
        if (head.kind != kRecord || head.bytes > most_bytes_ || head.bytes > size - offset_ - kHeadBytes) {
            return Found::broken;
        }
        bytes = head.bytes;
        return Found::record;
    }
}

void RingReader::peek(std::uint8_t* to, std::uint32_t bytes) const {
    std::memcpy(to, records_.data() + offset_ + kHeadBytes, bytes);
}

void RingReader::copy(std::uint8_t* to, std::uint32_t bytes, std::uint32_t without) {
    if (bytes != without) std::memcpy(to, records_.data() + offset_ + kHeadBytes + without, bytes - without);
    offset_ += std::min(kHeadBytes + rounded(bytes), static_cast<std::uint32_t>(records_.size()) - offset_);
    ++taken_;
}

bool RingReader::sleep() {
    header_->reader_sleeps.store(1, std::memory_order_seq_cst);
    return published() == taken_;
}

bool RingReader::handle(std::uint64_t number) {
    header_->handled.store(number, std::memory_order_seq_cst);
    if (number < header_->wake_at.load(std::memory_order_seq_cst)) return false;
    header_->wake_at.store(kNobodyWaits, std::memory_order_relaxed);
    header_->wakes.fetch_add(1, std::memory_order_release);
    return true;
}

}  // namespace vorn
