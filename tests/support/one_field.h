// SPDX-License-Identifier: Apache-2.0
// Messages with a single field, for tests that look at what one field may hold.
#ifndef TESTS_SUPPORT_ONE_FIELD_H
#define TESTS_SUPPORT_ONE_FIELD_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tests/support/bytes.h"

namespace tests {

// Where the only field of a message stands: after root reference, vtable up to its slot, and soffset.
constexpr std::uint32_t only_field_at(std::uint32_t id) { return 4 + (4 + 2 * (id + 1)) + 4; }

// A compact message whose vtable ends with the slot of field `id`, the only one present. `content` is the
// field's offset in the table and all that follows.
inline Bytes only_field(std::uint32_t id, std::string_view content) {
    const std::uint32_t vtable_length = 4 + 2 * (id + 1);
    const std::uint32_t table = 4 + vtable_length;
    Bytes bytes(only_field_at(id));
    put32(bytes, 0, table);                                      // root reference
    put16(bytes, 4, static_cast<std::uint16_t>(vtable_length));  // vtable length
    put16(bytes, 6, 8);                                          // table length, which nobody reads
    put16(bytes, 4 + vtable_length - 2, 4);                      // offset of the field
    put32(bytes, table, vtable_length);                          // soffset
    const Bytes tail = hex(content);
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    return bytes;
}

}  // namespace tests

#endif
