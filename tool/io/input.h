// SPDX-License-Identifier: Apache-2.0
// Where a verb's data comes from: a file or standard input, unpacked as it is read where it is gzip.
#ifndef TOOL_INPUT_H
#define TOOL_INPUT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tool/commands.h"

namespace tool {

// What a gzip file may unpack to, so that a small one does not keep a verb busy for days.
inline constexpr std::uint64_t kMostUnpackedBytes = 64ULL << 30;

// Memory does not grow with the file. Every function throws CommandError where the system refuses, or where
// gzip is damaged.
class Input {
  public:
    // "-" is standard input.
    explicit Input(const std::string& file);
    ~Input();
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    // Fewer than `count` bytes only at the end.
    std::size_t read(std::uint8_t* to, std::size_t count);
    // The bytes that are there, as they come; none at the end. Valid until the next call.
    std::span<const std::uint8_t> some();
    // How the input goes on, up to `most` bytes or a line's end; read() returns them again.
    std::span<const std::uint8_t> beginning(std::size_t most);

    // For words: the file's, or "standard input".
    const std::string& name() const { return name_; }

  private:
    struct Unpacker;

    // Adds bytes to those that were not returned yet; false at the end.
    bool fill();
    std::size_t read_file(std::span<std::uint8_t> to) const;
    std::size_t unpack(std::span<std::uint8_t> to);
    CommandError bad(const char* what) const;

    std::string name_;
    int file_;
    std::unique_ptr<Unpacker> unpacker_;  // null: not gzip
    bool begun_ = false;
    std::vector<std::uint8_t> buffer_;
    std::size_t begin_ = 0;  // of what is in the buffer and was not returned
    std::size_t end_ = 0;
};

}  // namespace tool

#endif
