// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vorn {
namespace {

constexpr int kSizeStays = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

}  // namespace

bool SharedMemory::make(std::size_t bytes, Descriptor& file) {
    Descriptor made(memfd_create("vorn", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!made || ftruncate(made.get(), static_cast<off_t>(bytes)) != 0) return false;
    if (fcntl(made.get(), F_ADD_SEALS, kSizeStays) != 0 || !map_file(made.get(), bytes)) return false;
    file = std::move(made);
    return true;
}

SharedMemory::Mapped SharedMemory::map(const Descriptor& file, std::size_t bytes) {
    constexpr int kNeeded = F_SEAL_SHRINK | F_SEAL_GROW;
    struct stat status = {};
    const int seals = fcntl(file.get(), F_GET_SEALS);
    if (seals < 0 || (seals & kNeeded) != kNeeded) return Mapped::no_ring;
    if (fstat(file.get(), &status) != 0 || status.st_size != static_cast<off_t>(bytes))
        return Mapped::no_ring;
    return map_file(file.get(), bytes) ? Mapped::yes : Mapped::refused_by_system;
}

bool SharedMemory::map_file(int file, std::size_t bytes) {
    void* const start = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (start == MAP_FAILED) return false;
    reset();
    start_ = start;
    bytes_ = bytes;
    static_cast<void>(madvise(start, bytes, MADV_DONTFORK));
    return true;
}

void SharedMemory::reset() {
    if (start_ != nullptr) munmap(start_, bytes_);
    start_ = nullptr;
}

}  // namespace vorn
