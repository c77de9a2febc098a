// SPDX-License-Identifier: Apache-2.0
// What somebody meant who has mistyped a word.
#ifndef TOOL_NEAREST_H
#define TOOL_NEAREST_H

#include <string>
#include <string_view>
#include <vector>

namespace tool {

// "; did you mean types?", or nothing where no known word is near: one that differs by its case, by its end,
// by two letters, or by one in three of a long word.
std::string did_you_mean(std::string_view word, const std::vector<std::string>& known);

}  // namespace tool

#endif
