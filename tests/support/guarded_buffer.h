// SPDX-License-Identifier: Apache-2.0
// Bytes that end where an unmapped page begins: whoever reads or writes one too many is killed.
#ifndef TESTS_SUPPORT_GUARDED_BUFFER_H
#define TESTS_SUPPORT_GUARDED_BUFFER_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tests/support/bytes.h"
#include "tests/support/give_up.h"

namespace tests {

class GuardedBuffer {
  public:
    explicit GuardedBuffer(std::size_t bytes) : size_(bytes) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t readable = (bytes + page - 1) / page * page;
        mapped_ = readable + page;
        void* const start =
            mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (start == MAP_FAILED) give_up("no memory");
        start_ = static_cast<std::uint8_t*>(start);
        mprotect(start_ + readable, page, PROT_NONE);
        end_ = start_ + readable;
    }
    explicit GuardedBuffer(const Bytes& content) : GuardedBuffer(content.size()) {
        if (!content.empty()) std::memcpy(data(), content.data(), content.size());
    }
    ~GuardedBuffer() { munmap(start_, mapped_); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    std::uint8_t* data() { return end_ - size_; }
    std::uint32_t size() const { return static_cast<std::uint32_t>(size_); }

    // The last `bytes` bytes before the unmapped page: another, shorter buffer that ends there too.
    std::uint8_t* last(std::size_t bytes) { return end_ - bytes; }

  private:
    std::size_t size_;
    std::size_t mapped_ = 0;
    std::uint8_t* start_ = nullptr;
    std::uint8_t* end_ = nullptr;
};

}  // namespace tests

#endif
