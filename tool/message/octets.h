// SPDX-License-Identifier: Apache-2.0
// Byte strings of records, which may be text.
#ifndef TOOL_OCTETS_H
#define TOOL_OCTETS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "tool/message/message_type.h"
#include "tool/message/record_json.h"

namespace tool {

enum class Octets {
    automatic,  // as text where all of it is printable
    text,       // as text, with escapes for what is not printable
    hex,
};

// Whether a field is one: a vector of bytes.
inline bool is_octets(const Field& field) {
    return field.kind == VORN_KIND_SCALAR_VECTOR && field.element_bytes == 1;
}

// The text as which bytes are shown; none: digits are.
std::optional<std::string> octets_text(std::span<const std::uint8_t> bytes, Octets octets);

// Calls `use` with the path and text of each byte string of a record that is shown as text, within
// its first `most_elements` elements.
void for_each_text(const MessageType& type, const void* record, Octets octets, std::size_t most_elements,
                   const std::function<void(const std::string& path, const std::string& text)>& use);

// These as a member of an object, if there are any: "texts":{"f31":"alice@example.org"}. Whole, or piece by
// piece, with a comma before it.
void add_texts(Json& object, const MessageType& type, const void* record, Octets octets,
               std::size_t most_elements = SIZE_MAX);
void write_texts(const MessageType& type, const void* record, Octets octets,
                 const std::function<void(std::string_view)>& put);

// The record as JSON for people: with its texts in quotes in the stead of digits.
Json readable_json(const MessageType& type, const void* record, Octets octets,
                   std::size_t most_elements = SIZE_MAX);

}  // namespace tool

#endif
