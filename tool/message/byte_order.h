// SPDX-License-Identifier: Apache-2.0
// Messages of hosts whose wire has the other byte order.
#ifndef TOOL_BYTE_ORDER_H
#define TOOL_BYTE_ORDER_H

#include <cstdint>
#include <span>
#include <vector>

#include "tool/message/message_type.h"

namespace tool {

enum class WireOrder { little, big };

// The message with its numbers in the order that the library reads, each at the same offset. What is not
// reached from the root, as after damage, stays as it is.
std::vector<std::uint8_t> reordered(const MessageType& type, std::span<const std::uint8_t> message);

// Whether messages of that order have to be.
bool is_foreign(WireOrder order);

}  // namespace tool

#endif
