// SPDX-License-Identifier: Apache-2.0
#include "tool/show/brief.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <vector>

#include "inspect/byte_text.h"

namespace tool {
namespace {

using inspect::shortened;

bool is_zero(const Json& value) {
    if (value.is_number()) return value == 0;
    if (value.is_string()) {
        return value.get_ref<const std::string&>().find_first_not_of("0:") == std::string::npos;
    }
    return std::all_of(value.begin(), value.end(), is_zero);
}

// A value without its fields that are zero: "{f0=18 f1={f2=7}}", "[100 200]".
std::string brief(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_primitive()) return value.dump();
    std::vector<std::string> parts;
    for (const auto& [field, member] : value.items()) {
        if (value.is_array()) {
            parts.push_back(brief(member));
        } else if (!is_zero(member)) {
            parts.push_back(fmt::format("{}={}", field, brief(member)));
        }
    }
    return value.is_array() ? fmt::format("[{}]", fmt::join(parts, " "))
                            : fmt::format("{{{}}}", fmt::join(parts, " "));
}

}  // namespace

std::string summary(const MessageType& type, const void* record, Octets octets) {
    constexpr std::size_t kWidth = 64;
    const std::string text = brief(readable_json(type, record, octets, kSummaryElements));
    return text.size() <= kWidth ? text : shortened(text, kWidth - 3);
}

}  // namespace tool
