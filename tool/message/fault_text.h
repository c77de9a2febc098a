// SPDX-License-Identifier: Apache-2.0
// What is wrong with a message, in sentences.
#ifndef TOOL_FAULT_TEXT_H
#define TOOL_FAULT_TEXT_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tool {

// "at 180, f15 of Nac_SetUserTableMsg: ...", in the order of reading; the first is where unpack stops. At
// most a hundred. None: the message is valid, or of an unknown id.
std::vector<std::string> fault_texts(std::uint32_t message_id, std::span<const std::uint8_t> bytes);

}  // namespace tool

#endif
