// SPDX-License-Identifier: Apache-2.0
// What is found wrong with a message, by a walk through it and by the library itself.
#ifndef TOOL_FINDING_H
#define TOOL_FINDING_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tool/message/record_json.h"
#include "tool/message/walk.h"

namespace tool {

struct Finding {
    Walk walk;
    std::vector<std::string> logged;  // by the library, "function: text"

    // False: of no size that a message can have, and nothing was walked.
    bool is_buffer() const { return walk.verdict != VORN_VERDICT_ARGUMENT; }
    bool is_whole() const { return walk.verdict == VORN_VERDICT_VALID; }
    const char* verdict() const { return vorn_inspect_verdict_text(walk.verdict); }
};

Finding find_faults(const MessageType& type, std::span<const std::uint8_t> bytes);

// "image, ok", "compact, damaged in a field".
std::string summary_of(const Finding& finding);

// "at 20, f6.f4 of Nac_SrvCar: ...".
std::string fault_text(const Fault& fault);

// The faults of a message so; the first is where unpack stops. None: it is valid.
std::vector<std::string> fault_texts(const MessageType& type, std::span<const std::uint8_t> bytes);

// Type, id, bytes, layout, verdict, faults and log.
Json finding_to_json(const Finding& finding, const MessageType& type, std::span<const std::uint8_t> bytes);

}  // namespace tool

#endif
