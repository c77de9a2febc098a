// SPDX-License-Identifier: Apache-2.0
// The lines of a file, in memory that is bounded whatever the file holds.
#ifndef TOOL_LINE_READER_H
#define TOOL_LINE_READER_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "tool/commands.h"

namespace tool {

// Bytes of a line. A message that is longer as text goes through --format raw, prefixed or tagged.
inline constexpr std::size_t kLongestLine = 16U << 20;

class LineReader {
  public:
    // "-" is standard input. Throws CommandError, here and later.
    explicit LineReader(const std::string& file);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // The next line, without its end; false after the last.
    bool next(std::string& line);

    // "file:line" of the last line.
    std::string origin() const;
    // What is wrong with the data of the last line.
    CommandError bad(const std::string& what) const { return {kBadData, origin() + ": " + what}; }

  private:
    bool fill();

    std::string name_;
    std::FILE* file_;
    std::size_t number_ = 0;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;  // of what is in the buffer and was not returned
    std::size_t end_ = 0;
};

}  // namespace tool

#endif
