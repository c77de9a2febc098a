// SPDX-License-Identifier: Apache-2.0
// JSON text from outside, with an end to its levels.
#ifndef INSPECT_JSON_TEXT_H
#define INSPECT_JSON_TEXT_H

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace inspect {

using Json = nlohmann::ordered_json;  // fields keep their order

// Deeper than any record, and shallow enough for what follows the levels one by one.
inline constexpr std::size_t kMostLevels = 32;

// ASCII, with what is no UTF-8 replaced, so that no text of others reaches a terminal.
std::string json_text(const Json& json);

// Throws std::invalid_argument with what is wrong and at which character.
Json json_from_text(std::string_view text);

}  // namespace inspect

#endif
