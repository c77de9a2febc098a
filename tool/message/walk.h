// SPDX-License-Identifier: Apache-2.0
// A walk through the bytes of a message that finds what each of them means, by the rules of unpack.
//
// It goes where unpack goes, and on after a fault, to the end of a damaged message. Every table and vector
// that it visits is referred to by a field, so it ends as unpack does.
#ifndef TOOL_WALK_H
#define TOOL_WALK_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "runtime/unpack.h"
#include "tool/message/shape.h"

namespace tool {

// The wire is little-endian, on whatever machine the tool runs.
inline constexpr auto kWireOrder =
    std::endian::native == std::endian::little ? kaplo::ByteOrder::host : kaplo::ByteOrder::reversed;

enum class Part {
    root_reference,
    vtable_length,
    table_length,
    slot,
    soffset,
    scalar,
    reference,
    count,
    elements,
    padding,  // of a fixed image
    unread,   // nothing leads here
};
const char* text_of(Part part);

// The path to a value in its record: the fields and elements that lead to it.
struct FieldPath {
    const FieldPath* parent = nullptr;  // null: the message itself
    const FieldShape* field = nullptr;
    std::optional<std::uint32_t> index;  // of an element

    std::string text() const;  // "f6.f4[3].f0"; empty: the message itself
};

// Bytes of one meaning. All of them lie in the message.
struct Range {
    std::uint32_t at;
    std::uint32_t bytes;
    Part part;
    std::uint32_t depth = 0;                  // of nesting; 0: the message's own table
    const Shape* table = nullptr;             // to which they belong; null: none
    const FieldShape* field = nullptr;        // likewise
    std::optional<std::uint32_t> index = {};  // of an element's reference
    std::uint32_t id = 0;                     // of a slot
    std::uint64_t number = 0;                 // of what is one number
    std::uint32_t target = 0;                 // where a reference, soffset or slot leads
    std::string path = {};                    // of the field, or of the table
    bool faulty = false;                      // a fault was found in them
};

// What unpack stops at, or would if it came there.
struct Fault {
    std::uint32_t at;     // of the bytes that are wrong, or after which something is missing
    std::uint32_t bytes;  // 0: they are not there
    const Shape* table;
    const FieldShape* field;  // null: the table's header
    std::string path;
    std::string what;
};

enum class Layout { compact, image, other };
const char* text_of(Layout layout);

// What a walk found.
struct Walk {
    kaplo::Outcome outcome = kaplo::Outcome::whole;  // as unpack ends
    Layout layout = Layout::other;                   // how the root table and its vtable lie
    std::vector<Fault> faults;                       // in the order of reading; unpack stops at the first
    std::size_t more_faults = 0;                     // beyond the kMostFaults that are kept
};
inline constexpr std::size_t kMostFaults = 100;

// Walks through a message of kShortestBuffer to kLongestBuffer bytes and calls `see`, if there is one, for
// each meaning of any bytes, in the order of reading: the same bytes may come more than once, or never.
Walk walk(const Shape& shape, std::span<const std::uint8_t> message,
          const std::function<void(Range&&)>& see = nullptr);

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

Annotated annotate(const Shape& shape, std::span<const std::uint8_t> message);

// What a range means, in words: "f0 = 7", "soffset: vtable at 16". Long values are cut unless `whole`.
std::string meaning(const Range& range, std::span<const std::uint8_t> message, bool whole = false);

// The value of a scalar's, array's or vector's range, as people read it.
std::string value_text(const Range& range, std::span<const std::uint8_t> message, bool whole = false);

}  // namespace tool

#endif
