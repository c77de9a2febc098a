// SPDX-License-Identifier: Apache-2.0
// Memory that two processes share: a file without a name, whose size nobody can change any more.
#ifndef VORN_SHARED_MEMORY_H
#define VORN_SHARED_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "vorn/ipc/descriptor.h"
#include "vorn/ipc/ring.h"

namespace vorn {

class SharedMemory {
  public:
    SharedMemory() = default;
    ~SharedMemory() { reset(); }
    SharedMemory(SharedMemory&& other) noexcept
        : start_(std::exchange(other.start_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}
    SharedMemory& operator=(SharedMemory&& other) noexcept {
        std::swap(start_, other.start_);
        std::swap(bytes_, other.bytes_);
        return *this;
    }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    // Makes and maps some; `file` is for the other process. False: the system refused, by errno.
    bool make(std::size_t bytes, Descriptor& file);

    // Maps what another process has made. No ring: it is not of that size, or could be changed, so that
    // reading it might end this process.
    enum class Mapped : std::uint8_t { yes, no_ring, refused_by_system };
    Mapped map(const Descriptor& file, std::size_t bytes);

    explicit operator bool() const { return start_ != nullptr; }
    RingMemory ring() const { return RingMemory::at(start_, bytes_); }
    std::size_t bytes() const { return bytes_; }

  private:
    bool map_file(int file, std::size_t bytes);
    void reset();

    void* start_ = nullptr;
    std::size_t bytes_ = 0;
};

}  // namespace vorn

#endif
