// SPDX-License-Identifier: Apache-2.0
#include "tool/io/line_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <span>

namespace tool {

std::string LineReader::origin() const { return fmt::format("{}:{}", input_.name(), number_); }

bool LineReader::next(std::string& line) {
    line.clear();
    ++number_;
    while (true) {
        if (rest_.empty()) {
            const std::span<const std::uint8_t> more = input_.some();
            if (more.empty()) return !line.empty();
            rest_ = {reinterpret_cast<const char*>(more.data()), more.size()};
        }
        const std::size_t end = rest_.find('\n');
        const std::string_view part = rest_.substr(0, end);
        if (part.size() > kLongestLine - line.size()) {
            throw bad(
                fmt::format("the line has more than {} bytes; messages that are longer as text go "
                            "through --format raw, prefixed or tagged",
                            kLongestLine));
        }
        line.append(part);
        rest_.remove_prefix(std::min(part.size() + 1, rest_.size()));
        if (end != std::string_view::npos) return true;
    }
}

}  // namespace tool
