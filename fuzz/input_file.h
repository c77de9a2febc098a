// SPDX-License-Identifier: Apache-2.0
// An input as a file, for readers that take a path: in memory, and so on no disk.
#ifndef FUZZ_INPUT_FILE_H
#define FUZZ_INPUT_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "fuzz/supply.h"

namespace fuzz {

class InputFile {
  public:
    explicit InputFile(std::span<const std::uint8_t> bytes)
        : descriptor_(memfd_create("input", MFD_CLOEXEC)) {
        promise(descriptor_ >= 0, "the system has memory for the input");
        while (!bytes.empty()) {
            const ssize_t written = write(descriptor_, bytes.data(), bytes.size());
            promise(written > 0, "the system has memory for the input");
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        }
    }
    ~InputFile() { close(descriptor_); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

  private:
    int descriptor_;
};

}  // namespace fuzz

#endif
