// SPDX-License-Identifier: Apache-2.0
// What a range means, in words.
#include <algorithm>
#include <cstdint>
#include <span>

#include "inspect/bounded_text.h"
#include "inspect/walker.h"

namespace {

using inspect::BoundedText;

void add_value(BoundedText& text, const vorn_range& range, const std::uint8_t* bytes,
               std::size_t most_elements) {
    if (range.part == VORN_PART_SCALAR) text.add(range.number);
    if (range.part != VORN_PART_ELEMENTS) return;
    const std::uint32_t width = range.field->element_bytes;
    const std::size_t count = range.bytes / width;
    const std::size_t shown = std::min(count, most_elements);
    const std::uint8_t* const first = bytes + range.at;
    if (width == 1) {
        const std::span elements(first, shown);
        const bool is_address = range.field->kind == VORN_KIND_FIXED_ARRAY && shown == count;
        is_address ? text.add_address(elements) : text.add_hex(elements);
        if (shown < count) text.add("...");
        return;
    }
    text.add("[");
    for (std::size_t k = 0; k < shown; ++k) {
        text.add(k == 0 ? "" : ", ", inspect::number_at(first + k * width, width));
    }
    text.add(shown < count ? ", ...]" : "]");
}

void add_meaning(BoundedText& text, const vorn_range& range, const std::uint8_t* bytes,
                 std::size_t most_elements) {
    const char* const gap = *range.path == '\0' ? "" : " ";
    switch (range.part) {
        case VORN_PART_ROOT_REFERENCE:
            text.add("root reference: table at ", range.target);
            return;
        case VORN_PART_VTABLE_LENGTH:
            text.add(range.path, gap, "vtable of ", range.table->name, ": ", range.number, " bytes");
            return;
        case VORN_PART_TABLE_LENGTH:
            text.add("table length ", range.number);
            return;
        case VORN_PART_SLOT:
            text.add("slot of f", range.id);
            if (range.field == nullptr) {
                text.add(", which the type does not have: ", range.number);
            } else if (range.number == 0) {
                text.add(": absent");
            } else {
                text.add(": ", range.number, ", at ", range.target);
            }
            return;
        case VORN_PART_SOFFSET:
            text.add(range.path, gap, "table ", range.table->name, ": vtable at ", range.target);
            return;
        case VORN_PART_SCALAR:
        case VORN_PART_ELEMENTS:
            text.add(range.path, " ", range.field->type_name, " = ");
            add_value(text, range, bytes, most_elements);
            return;
        case VORN_PART_REFERENCE: {
            const bool is_element = range.index != VORN_NO_OFFSET;
            text.add(range.path, " ", is_element ? range.field->table->name : range.field->type_name, ": at ",
                     range.target);
            return;
        }
        case VORN_PART_COUNT:
            text.add(range.path, " count ", range.number);
            return;
        case VORN_PART_PADDING:
            text.add(range.path, gap, "padding");
            return;
        default:
            text.add("unread");
    }
}

}  // namespace

std::size_t vorn_inspect_value_text(const vorn_range* range, const std::uint8_t* bytes,
                                    std::size_t most_elements, char* text, std::size_t capacity) {
    BoundedText value(text, capacity);
    add_value(value, *range, bytes, most_elements);
    return value.length();
}

std::size_t vorn_inspect_range_text(const vorn_range* range, const std::uint8_t* bytes,
                                    std::size_t most_elements, char* text, std::size_t capacity) {
    BoundedText meaning(text, capacity);
    add_meaning(meaning, *range, bytes, most_elements);
    return meaning.length();
}
