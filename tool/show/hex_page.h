// SPDX-License-Identifier: Apache-2.0
// A page for browsers: bytes on one side, meanings on the other, each selecting the other. It loads nothing.
#ifndef TOOL_HEX_PAGE_H
#define TOOL_HEX_PAGE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "tool/message/finding.h"
#include "tool/message/message_type.h"

namespace tool {

std::string hex_page_start();

// One message; `number` counts them in the page, from 1. The bytes are as the library reads them, `wire` has
// them as they are shown.
std::string hex_page_section(std::size_t number, const std::string& origin, const MessageType& type,
                             std::span<const std::uint8_t> bytes, std::span<const std::uint8_t> wire,
                             const Finding& finding, Octets octets);
std::string hex_page_end();

}  // namespace tool

#endif
