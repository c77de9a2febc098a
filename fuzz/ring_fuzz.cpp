// SPDX-License-Identifier: Apache-2.0
// Promise: whatever a peer writes into the memory that it shares, the other end stays within it and within
// its own limits; where nobody does, records come out as they went in, each once, through any number of
// readers.
//
// Input: the ring's size, then steps: write, read, move on to a next reader, or change some of the memory.
#include "vorn/ipc/ring.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <memory>
#include <new>
#include <vector>

#include "fuzz/supply.h"
#include "vorn/ipc/outbox.h"

namespace {

using namespace vorn;

constexpr std::uint32_t kMostRecords = 16;

// Of just its size, so that a sanitizer sees each byte that is touched after it.
class Memory {
  public:
    explicit Memory(std::size_t bytes)
        : bytes_(bytes), start_(::operator new(bytes, std::align_val_t(alignof(RingHeader)))) {
        std::fill_n(static_cast<std::uint8_t*>(start_), bytes, std::uint8_t{0});
    }
    ~Memory() { ::operator delete(start_, std::align_val_t(alignof(RingHeader))); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    RingMemory ring() { return RingMemory::at(start_, bytes_); }
    std::uint8_t* bytes() { return static_cast<std::uint8_t*>(start_); }
    std::size_t size() const { return bytes_; }

  private:
    std::size_t bytes_;
    void* start_;
};

class Link {
  public:
    explicit Link(std::uint32_t largest) : largest_(largest) { move_on(largest); }

    void write(std::uint32_t bytes, std::uint8_t filling) {
        bytes = 1 + bytes % (largest_ + 8);  // too large ones too
        std::uint8_t* to = outbox_.reserve(bytes);
        if (to == nullptr && outbox_.note_handled()) to = outbox_.reserve(bytes);
        if (to == nullptr) return;
        fuzz::promise(bytes <= memory_->size(), "a record fits into its ring");
        std::fill_n(to, bytes, filling);
        outbox_.publish();
        if (bytes <= largest_) {
            written_.emplace_back(bytes, filling);
        } else {
            is_changed_ = true;  // the reader takes no such record
        }
    }

    void read() {
        std::uint32_t bytes = 0;
        const RingReader::Found found = reader_.find(bytes);
        if (!is_changed_) {
            fuzz::promise(
                found == (written_.empty() ? RingReader::Found::nothing : RingReader::Found::record),
                "what was written is found");
        }
        if (found != RingReader::Found::record) return;
        fuzz::promise(bytes <= largest_, "a record has no more bytes than the reader takes");
        std::vector<std::uint8_t> record(bytes);
        reader_.copy(record.data(), bytes);
        if (!is_changed_) {
            fuzz::promise(record == written_.front(), "a record comes out as it went in");
            written_.pop_front();
        }
        reader_.begin(reader_.taken());
        reader_.handle(reader_.taken());
    }

    void move_on(std::uint32_t most_bytes) {
        outbox_.receiver_ended();
        auto memory = std::make_unique<Memory>(ring_bytes_for(4 * largest_, largest_ + 8));
        const Outbox::Moved moved = outbox_.move_to(memory->ring(), kMostRecords, most_bytes);
        fuzz::promise(outbox_.waiting() <= moved.batches, "no more records wait than there may");
        if (!is_changed_) {
            const auto dropped = std::erase_if(
                written_, [most_bytes](const auto& record) { return record.size() > most_bytes; });
            fuzz::promise(dropped == moved.dropped, "what is dropped is counted");
        }
        memory_ = std::move(memory);
        reader_ = RingReader(memory_->ring(), moved.first, moved.batches, largest_);
    }

    void change(std::size_t at, std::uint8_t value) {
        memory_->bytes()[at % memory_->size()] = value;
        is_changed_ = true;
    }

  private:
    std::uint32_t largest_;
    Outbox outbox_;
    std::unique_ptr<Memory> memory_;
    RingReader reader_;
    std::deque<std::vector<std::uint8_t>> written_;
    bool is_changed_ = false;  // by a peer that does not keep to the protocol
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    Link link(1U + supply.take<std::uint8_t>());
    for (int step = 0; step < 400 && !supply.is_empty(); ++step) {
        const auto what = supply.take<std::uint8_t>();
        if (what < 110) {
            link.write(supply.take<std::uint16_t>(), what);
        } else if (what < 230) {
            link.read();
        } else if (what < 240) {
            link.move_on(1U + supply.take<std::uint8_t>());
        } else {
            const auto at = supply.take<std::uint16_t>();
            link.change(what < 250 ? at % 160U : at, supply.take<std::uint8_t>());
        }
    }
    return 0;
}
