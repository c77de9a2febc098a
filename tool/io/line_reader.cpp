// SPDX-License-Identifier: Apache-2.0
#include "tool/io/line_reader.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace tool {
namespace {

constexpr std::size_t kBufferBytes = 1U << 16;

CommandError refused(const std::string& name) {
    return {kTrouble, fmt::format("{}: {}", name, std::generic_category().message(errno))};
}

}  // namespace

LineReader::LineReader(const std::string& file)
    : name_(file == "-" ? "standard input" : file),
      file_(file == "-" ? stdin : std::fopen(file.c_str(), "rbe")),
      buffer_(kBufferBytes) {
    if (file_ == nullptr) throw refused(name_);
}

LineReader::~LineReader() {
    if (file_ != stdin) static_cast<void>(std::fclose(file_));
}

std::string LineReader::origin() const { return fmt::format("{}:{}", name_, number_); }

bool LineReader::fill() {
    begin_ = 0;
    end_ = std::fread(buffer_.data(), 1, buffer_.size(), file_);
    if (end_ == 0 && std::ferror(file_) != 0) throw refused(name_);
    return end_ != 0;
}

bool LineReader::next(std::string& line) {
    line.clear();
    ++number_;
    while (begin_ != end_ || fill()) {
        const char* const first = buffer_.data() + begin_;
        const auto* const found = static_cast<const char*>(std::memchr(first, '\n', end_ - begin_));
        const std::size_t bytes = found != nullptr ? static_cast<std::size_t>(found - first) : end_ - begin_;
        if (bytes > kLongestLine - line.size()) {
            throw bad(
                fmt::format("the line has more than {} bytes; messages that are longer as text go "
                            "through --format raw, prefixed or tagged",
                            kLongestLine));
        }
        line.append(first, bytes);
        begin_ += bytes + (found != nullptr ? 1 : 0);
        if (found != nullptr) return true;
    }
    return !line.empty();
}

}  // namespace tool
