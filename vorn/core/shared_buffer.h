// SPDX-License-Identifier: Apache-2.0
// Bytes that a packet shares with the socket that sends it.
#ifndef VORN_SHARED_BUFFER_H
#define VORN_SHARED_BUFFER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace vorn {

// Owned by this object and by whoever it is lent to, in whatever thread. What is in it is not initialised.
class SharedBuffer {
  public:
    SharedBuffer() = default;
    explicit SharedBuffer(std::size_t bytes) : block_(new (::operator new(sizeof(Block) + bytes)) Block) {}
    SharedBuffer(SharedBuffer&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    SharedBuffer& operator=(SharedBuffer&& other) noexcept {
        std::swap(block_, other.block_);
        return *this;
    }
    SharedBuffer(const SharedBuffer&) = delete;
    SharedBuffer& operator=(const SharedBuffer&) = delete;
    ~SharedBuffer() { give_back(nullptr, block_); }

    bool is_empty() const { return block_ == nullptr; }
    std::uint8_t* data() const { return reinterpret_cast<std::uint8_t*>(block_ + 1); }

    // False: nobody else reads it, or ever will, so that it may be written.
    bool is_lent() const { return block_->owners.load(std::memory_order_acquire) != 1; }

    // What the borrower hands to give_back when it is done, in the form that zmq_msg_init_data wants.
    void* lend() const {
        block_->owners.fetch_add(1, std::memory_order_relaxed);
        return block_;
    }
    static void give_back(void* /*data*/, void* lent) {
        auto* const block = static_cast<Block*>(lent);
        if (block == nullptr || block->owners.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        block->~Block();
        ::operator delete(block);
    }

  private:
    struct Block {
        std::atomic<std::size_t> owners = 1;
    };
    Block* block_ = nullptr;
};

}  // namespace vorn

#endif
