// SPDX-License-Identifier: Apache-2.0
// Zeroed memory of any size that costs nothing until it is touched.
#ifndef TESTS_SUPPORT_LAZY_MEMORY_H
#define TESTS_SUPPORT_LAZY_MEMORY_H

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tests/support/bytes.h"
#include "tests/support/give_up.h"

namespace tests {

class LazyMemory {
  public:
    explicit LazyMemory(std::size_t bytes) : size_(bytes) {
        void* const start =
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (start == MAP_FAILED) give_up("no memory");
        start_ = static_cast<std::uint8_t*>(start);
    }
    // The rest after `head` is zero.
    LazyMemory(std::size_t bytes, const Bytes& head) : LazyMemory(bytes) {
        std::memcpy(start_, head.data(), head.size());
    }
    ~LazyMemory() { munmap(start_, size_); }
    LazyMemory(const LazyMemory&) = delete;
    LazyMemory& operator=(const LazyMemory&) = delete;

    std::uint8_t* data() { return start_; }
    std::uint32_t size() const { return static_cast<std::uint32_t>(size_); }

  private:
    std::size_t size_;
    std::uint8_t* start_ = nullptr;
};

}  // namespace tests

#endif
