// SPDX-License-Identifier: Apache-2.0
// What each byte of a message means, and what is wrong with it.
#ifndef TOOL_WALK_H
#define TOOL_WALK_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tool/message/message_type.h"
#include "tool/message/octets.h"

namespace tool {

// With a path that lasts.
struct Range : vorn_range {
    std::string path;
    bool faulty = false;  // a fault was found in just these bytes
};
struct Fault : vorn_fault {
    std::string path;
    std::string what;
};

// What a walk found.
struct Walk {
    vorn_verdict verdict = VORN_VERDICT_VALID;  // as unpack ends
    vorn_layout layout = VORN_LAYOUT_OTHER;     // how the root table and its vtable lie
    std::vector<Fault> faults;                  // in the order of reading; unpack stops at the first
    std::size_t more_faults = 0;                // beyond the kMostFaults that are kept
};
inline constexpr std::size_t kMostFaults = 100;

// Walks through a message and calls `see`, if there is one, for each meaning of any bytes, in the order of
// reading: the same bytes may come more than once, or never.
Walk walk(const MessageType& type, std::span<const std::uint8_t> message,
          const std::function<void(const vorn_range&)>& see = nullptr);

// A message's bytes front to back: each piece with its meanings.
struct Piece {
    std::uint32_t at;
    std::uint32_t bytes;
    std::vector<std::size_t> meanings;  // indices of ranges: that of just these bytes first, if there is one
};

// All ranges of a message, and its pieces, which follow each other without a gap.
struct Annotated {
    Walk walk;
    std::vector<Range> ranges;  // by position
    std::vector<Piece> pieces;
    bool cut = false;  // there were more than kMostRanges, and the rest is shown as unread
};
inline constexpr std::size_t kMostRanges = 200'000;

Annotated annotate(const MessageType& type, std::span<const std::uint8_t> message);

// What a range means, in words: "f0 = 7", "soffset: vtable at 16". Long values are cut unless `whole`.
std::string meaning(const Range& range, std::span<const std::uint8_t> message,
                    Octets octets = Octets::automatic, bool whole = false);

}  // namespace tool

#endif
