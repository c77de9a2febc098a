// SPDX-License-Identifier: Apache-2.0
#include "inspect/walker.h"

#include <algorithm>
#include <span>

namespace inspect {

std::uint64_t number_at(const std::uint8_t* bytes, std::uint32_t width) {
    switch (width) {
        case 1:
            return *bytes;
        case 2:
            return kaplo::load<kWireOrder, std::uint16_t>(bytes);
        case 4:
            return kaplo::load<kWireOrder, std::uint32_t>(bytes);
        default:
            return kaplo::load<kWireOrder, std::uint64_t>(bytes);
    }
}

void Walker::show(const vorn_range& range) {
    if (listeners_.on_range == nullptr) return;
    vorn_range shown = range;
    shown.path = path_.c_str();
    listeners_.on_range(&shown, listeners_.context);
}

void Walker::show_field(const Here& here, const vorn_field& field, vorn_part part, std::uint32_t at,
                        std::uint32_t bytes, std::uint64_t number, std::uint32_t target,
                        std::uint32_t index) {
    show({.at = at,
          .bytes = bytes,
          .part = part,
          .depth = here.depth + 1,
          .table = &here.type,
          .field = &field,
          .index = index,
          .id = field.id,
          .number = number,
          .target = target,
          .path = nullptr});
}

// The first fault decides how unpack ends.
template <class... Parts>
void Walker::fault(std::uint32_t at, std::uint32_t bytes, const vorn_type& table, const vorn_field* field,
                   const Parts&... what) {
    if (verdict_ == VORN_VERDICT_VALID) verdict_ = in_root_header_ ? VORN_VERDICT_HEADER : VORN_VERDICT_FIELD;
    if (listeners_.on_fault != nullptr) {
        std::array<char, 160> text = {};
        BoundedText(text.data(), text.size()).add(what...);
        const vorn_fault found = {at, bytes, &table, field, path_.c_str(), text.data()};
        if (listeners_.on_fault(&found, listeners_.context) != 0) listeners_.on_fault = nullptr;
    }
    is_over_ = listeners_.on_fault == nullptr && listeners_.on_range == nullptr;
}

vorn_verdict Walker::run(const vorn_type& type) {
    const std::uint32_t table = region_.root_reference();
    show({.at = 0,
          .bytes = kaplo::kReferenceBytes,
          .part = VORN_PART_ROOT_REFERENCE,
          .depth = 0,
          .table = &type,
          .field = nullptr,
          .index = VORN_NO_OFFSET,
          .id = 0,
          .number = table,
          .target = table,
          .path = nullptr});
    walk_table(type, table, 0, 0);
    return verdict_;
}

// Walks through the table at `at`, to which the reference at `reference` leads.
void Walker::walk_table(const vorn_type& type, std::uint32_t at, std::uint32_t depth,
                        std::uint32_t reference) {
    if (is_over_) return;
    Here here = {type, at, 0, depth};
    Table table;
    bool is_image = false;
    in_root_header_ = depth == 0;
    const bool opened = walk_header(here, table, reference, is_image);
    in_root_header_ = false;
    if (!opened) return;
    for (const vorn_field* const field : std::span(type.fields, type.field_count)) {
        std::uint32_t position = 0;
        if (!table.locate(field->id, position)) continue;
        const PathText::Step step(path_, path_.separator(), field->name);
        walk_field(here, *field, position);
    }
    if (is_image) show_padding(here);
}

bool Walker::walk_header(Here& here, Table& table, std::uint32_t reference, bool& is_image) {
    const vorn_type& type = here.type;
    const std::uint32_t at = here.at;
    const std::uint32_t last_offset = region_.size() - kaplo::kReferenceBytes;
    const bool opened = table.open(silent_unit, region_, at, "");
    std::uint32_t soffset = 0;
    if (at < kaplo::kRootTableAt || !region_.read(at, soffset)) {
        fault(reference, kaplo::kReferenceBytes, type, nullptr, "the table would be at ", at,
              ", outside of 4 to ", last_offset);
        return false;
    }
    const std::uint32_t vtable = here.vtable = at - soffset;
    vorn_range range = {.at = at,
                        .bytes = kaplo::kReferenceBytes,
                        .part = VORN_PART_SOFFSET,
                        .depth = here.depth,
                        .table = &type,
                        .field = nullptr,
                        .index = VORN_NO_OFFSET,
                        .id = 0,
                        .number = soffset,
                        .target = vtable,
                        .path = nullptr};
    show(range);
    std::uint16_t length = 0;
    std::uint16_t table_length = 0;
    const bool inside = vtable >= kaplo::kRootTableAt && region_.read(vtable, length) &&
                        region_.read(vtable + kaplo::kSlotBytes, table_length);
    if (!inside) {
        fault(at, kaplo::kReferenceBytes, type, nullptr, "the vtable would be at ", vtable,
              ", outside of 4 to ", last_offset);
        return false;
    }
    range.bytes = kaplo::kSlotBytes;
    range.target = 0;
    for (const vorn_part part : {VORN_PART_VTABLE_LENGTH, VORN_PART_TABLE_LENGTH}) {
        const bool is_length = part == VORN_PART_VTABLE_LENGTH;
        range.at = is_length ? vtable : vtable + kaplo::kSlotBytes;
        range.part = part;
        range.number = is_length ? length : table_length;
        show(range);
    }
    if (!opened) {
        fault(vtable, kaplo::kSlotBytes, type, nullptr, "the vtable would have ", length, " bytes, and ",
              region_.size() - vtable, " are left");
        return false;
    }
    is_image = type.image_bytes != 0 && vtable - at == type.image_vtable_offset &&
               table_length == type.image_table_length && length == type.vtable_bytes;
    if (here.depth == 0 && at == kaplo::kRootTableAt && is_image) layout_ = VORN_LAYOUT_IMAGE;
    if (here.depth == 0 && vtable + length == at && vtable == kaplo::kReferenceBytes) {
        layout_ = VORN_LAYOUT_COMPACT;
    }
    walk_slots(here, length);
    return true;
}

void Walker::walk_slots(const Here& here, std::uint32_t length) {
    if (listeners_.on_range == nullptr) return;
    for (std::uint32_t id = 0; kaplo::slot_in_vtable(id) + kaplo::kSlotBytes <= length; ++id) {
        const std::uint32_t at = here.vtable + kaplo::slot_in_vtable(id);
        std::uint16_t slot = 0;
        if (!region_.read(at, slot)) return;
        const vorn_field* const field = id < here.type.field_count ? here.type.fields[id] : nullptr;
        const bool is_named = field != nullptr;
        const PathText::Step step(path_, is_named ? path_.separator() : "", is_named ? field->name : "");
        show({.at = at,
              .bytes = kaplo::kSlotBytes,
              .part = VORN_PART_SLOT,
              .depth = here.depth,
              .table = &here.type,
              .field = field,
              .index = VORN_NO_OFFSET,
              .id = id,
              .number = slot,
              .target = here.at + slot,
              .path = nullptr});
    }
}

void Walker::show_padding(const Here& here) {
    const vorn_type& type = here.type;
    const auto pad = [&](std::uint32_t first, std::uint32_t last) {
        const std::uint32_t end = std::min(last, region_.size());
        if (first >= end) return;
        show({.at = first,
              .bytes = end - first,
              .part = VORN_PART_PADDING,
              .depth = here.depth,
              .table = &type,
              .field = nullptr,
              .index = VORN_NO_OFFSET,
              .id = 0,
              .number = 0,
              .target = 0,
              .path = nullptr});
    };
    pad(here.at + type.image_table_length, here.vtable);
    pad(here.vtable + type.vtable_bytes, here.at - kaplo::kReferenceBytes + type.image_bytes);
}

void Walker::walk_field(const Here& here, const vorn_field& field, std::uint32_t at) {
    const std::uint32_t slot = here.vtable + field.slot;
    if (field.kind == VORN_KIND_SCALAR) {
        if (!holds(at, field.element_bytes)) return outside(here, field, at, field.element_bytes, slot);
        return show_field(here, field, VORN_PART_SCALAR, at, field.element_bytes,
                          number_at(region_.bytes() + at, field.element_bytes));
    }
    std::uint32_t target = 0;
    if (!follow(here, field, at, slot, VORN_NO_OFFSET, target)) return;
    if (field.kind == VORN_KIND_NESTED_TABLE) {
        walk_table(*field.table, target, here.depth + 1, at);
    } else {
        walk_vector(here, field, at, target);
    }
}

void Walker::outside(const Here& here, const vorn_field& field, std::uint32_t at, std::uint32_t width,
                     std::uint32_t reference) {
    fault(reference, kaplo::kSlotBytes, here.type, &field, width, " bytes at ", at,
          " do not end inside the message of ", region_.size());
}

// Follows the reference at `at`, of a field or of an element of it, to where something must start.
// `referred_at` is what leads to the reference.
bool Walker::follow(const Here& here, const vorn_field& field, std::uint32_t at, std::uint32_t referred_at,
                    std::uint32_t index, std::uint32_t& target) {
    std::uint32_t distance = 0;
    if (!region_.read(at, distance)) {
        outside(here, field, at, kaplo::kReferenceBytes, referred_at);
        return false;
    }
    const bool ahead = region_.follow(at, target);
    show_field(here, field, VORN_PART_REFERENCE, at, kaplo::kReferenceBytes, distance, target, index);
    if (!ahead) {
        fault(at, kaplo::kReferenceBytes, here.type, &field, "the reference ", distance,
              " leads beyond 32 bits");
    }
    return ahead;
}

void Walker::walk_vector(const Here& here, const vorn_field& field, std::uint32_t reference,
                         std::uint32_t vector) {
    std::uint32_t count = 0;
    if (!region_.read(vector, count)) {
        return fault(reference, kaplo::kReferenceBytes, here.type, &field, "the vector would be at ", vector,
                     ", outside of the message of ", region_.size());
    }
    show_field(here, field, VORN_PART_COUNT, vector, kaplo::kCountBytes, count);
    const auto wrong = [&](const auto&... what) {
        fault(vector, kaplo::kCountBytes, here.type, &field, what...);
    };
    kaplo::Elements elements = {};
    if (!region_.follow_vector(reference, field.element_bytes, elements)) {
        return wrong(count, " elements of ", field.element_bytes, " bytes, and ",
                     region_.size() - vector - kaplo::kCountBytes, " bytes are left");
    }
    if (field.kind == VORN_KIND_FIXED_ARRAY && count != field.count) {
        wrong(count, " elements, where the array has ", field.count);
    }
    if (count == 0) return;
    if (field.kind != VORN_KIND_TABLE_VECTOR) {
        show_field(here, field, VORN_PART_ELEMENTS, elements.at, count * field.element_bytes, count);
    }
    if (field.kind == VORN_KIND_FIXED_ARRAY) return;
    const std::uint32_t width =
        field.kind == VORN_KIND_TABLE_VECTOR ? field.table->record_bytes : field.element_bytes;
    // More than the hooks' 32 bits can ask for.
    if (std::uint64_t{count} * width > UINT32_MAX) {
        wrong("an array of ", count, " elements of ", width, " bytes is more than 32 bits can ask for");
    }
    if (field.kind == VORN_KIND_TABLE_VECTOR) walk_tables(here, field, elements.at, count);
}

void Walker::walk_tables(const Here& here, const vorn_field& field, std::uint32_t at, std::uint32_t count) {
    for (std::uint32_t k = 0; k < count && !is_over_; ++k, at += kaplo::kReferenceBytes) {
        const PathText::Step step(path_, "[", k, "]");
        std::uint32_t target = 0;
        if (follow(here, field, at, at, k, target)) walk_table(*field.table, target, here.depth + 1, at);
    }
}

}  // namespace inspect

vorn_verdict vorn_inspect_walk(const vorn_type* type, const std::uint8_t* bytes, std::size_t length,
                               vorn_range_handler on_range, vorn_fault_handler on_fault, void* context,
                               vorn_layout* layout) {
    if (layout != nullptr) *layout = VORN_LAYOUT_OTHER;
    if (type == nullptr || type->operations == nullptr) return VORN_VERDICT_ARGUMENT;
    if (!inspect::is_message_size(bytes, length)) {
        if (on_fault != nullptr) {
            std::array<char, 80> text = {};
            inspect::BoundedText what(text.data(), text.size());
            if (bytes == nullptr) what.add("no bytes at all; ");
            what.add(length, " bytes are no message, which has ", kaplo::kShortestBuffer, " to ",
                     kaplo::kLongestBuffer);
            const vorn_fault found = {0, 0, type, nullptr, "", text.data()};
            on_fault(&found, context);
        }
        return VORN_VERDICT_ARGUMENT;
    }
    inspect::Walker walker(inspect::Region(bytes, static_cast<std::uint32_t>(length)),
                           {on_range, on_fault, context});
    const vorn_verdict verdict = walker.run(*type);
    if (layout != nullptr) *layout = walker.layout();
    return verdict;
}
