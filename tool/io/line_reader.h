// SPDX-License-Identifier: Apache-2.0
// The lines of a file, in memory that is bounded whatever the file holds.
#ifndef TOOL_LINE_READER_H
#define TOOL_LINE_READER_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "tool/commands.h"
#include "tool/io/input.h"

namespace tool {

// Bytes of a line. A message that is longer as text goes through --format raw, prefixed or tagged.
inline constexpr std::size_t kLongestLine = 16U << 20;

class LineReader {
  public:
    // "-" is standard input. Throws CommandError, here and later.
    explicit LineReader(const std::string& file) : own_(std::make_unique<Input>(file)), input_(*own_) {}
    // Lines of what follows in the input.
    explicit LineReader(Input& input) : input_(input) {}

    // The next line, without its end; false after the last.
    bool next(std::string& line);

    // "file:line" of the last line.
    std::string origin() const;
    // What is wrong with the data of the last line.
    CommandError bad(const std::string& what) const { return {kBadData, origin() + ": " + what}; }

  private:
    std::unique_ptr<Input> own_;
    Input& input_;
    std::size_t number_ = 0;
    std::string_view rest_;  // of what has come and was not returned
};

}  // namespace tool

#endif
