// SPDX-License-Identifier: Apache-2.0
#include "tool/message/walk.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "tool/message/record_text.h"

namespace tool {
namespace {

using kaplo::Kind;
using Region = kaplo::Region<kWireOrder>;
using Table = kaplo::Table<kWireOrder>;

// The walk's own unit: it logs nothing, since the lines of a message are those of unpack itself.
kaplo::Unit& silent_unit() {
    static kaplo::Unit unit;
    unit.state.memory_ready = 1;
    unit.state.log_ready = 1;
    return unit;
}

class Walker {
  public:
    Walker(const Shape& shape, std::span<const std::uint8_t> message, const std::function<void(Range&&)>& see)
        : root_(shape), region_(message.data(), static_cast<std::uint32_t>(message.size())), see_(see) {}

    Walk run() {
        const std::uint32_t table = region_.root_reference();
        const FieldPath message;
        show({.at = 0,
              .bytes = kaplo::kReferenceBytes,
              .part = Part::root_reference,
              .table = &root_,
              .number = table,
              .target = table});
        walk_table(root_, table, message, 0, 0);
        return std::move(found_);
    }

  private:
    // Makes a range known; where there is nobody to see it, nothing is put together.
    void show(Range&& range, const FieldPath* path = nullptr) {
        if (!see_) return;
        if (path != nullptr) range.path = path->text();
        see_(std::move(range));
    }

    // The first fault decides how unpack ends.
    void fault(std::uint32_t at, std::uint32_t bytes, const Shape& table, const FieldShape* field,
               const FieldPath& path, std::string what) {
        if (found_.faults.empty()) {
            found_.outcome = in_root_header_ ? kaplo::Outcome::bad_header : kaplo::Outcome::bad_field;
        }
        if (found_.faults.size() == kMostFaults) {
            ++found_.more_faults;
            return;
        }
        found_.faults.push_back({at, bytes, &table, field, path.text(), std::move(what)});
    }

    std::uint32_t last_offset() const { return region_.size() - kaplo::kReferenceBytes; }

    // Walks through the table at `at`, to which the reference at `reference` leads.
    void walk_table(const Shape& shape, std::uint32_t at, const FieldPath& path, std::uint32_t depth,
                    std::uint32_t reference) {
        in_root_header_ = depth == 0;
        Table table;
        const bool opened = table.open(silent_unit(), region_, at, "");
        std::uint32_t soffset = 0;
        if (at < kaplo::kRootTableAt || !region_.read(at, soffset)) {
            fault(reference, kaplo::kReferenceBytes, shape, nullptr, path,
                  fmt::format("the table would be at {}, outside of 4 to {}", at, last_offset()));
            in_root_header_ = false;
            return;
        }
        const std::uint32_t vtable = at - soffset;
        show({.at = at,
              .bytes = kaplo::kReferenceBytes,
              .part = Part::soffset,
              .depth = depth,
              .table = &shape,
              .number = soffset,
              .target = vtable},
             &path);
        std::uint16_t length = 0;
        std::uint16_t table_length = 0;
        const bool inside = vtable >= kaplo::kRootTableAt && region_.read(vtable, length) &&
                            region_.read(vtable + kaplo::kSlotBytes, table_length);
        if (inside) {
            show({.at = vtable,
                  .bytes = kaplo::kSlotBytes,
                  .part = Part::vtable_length,
                  .depth = depth,
                  .table = &shape,
                  .number = length},
                 &path);
            show({.at = vtable + kaplo::kSlotBytes,
                  .bytes = kaplo::kSlotBytes,
                  .part = Part::table_length,
                  .depth = depth,
                  .table = &shape,
                  .number = table_length},
                 &path);
        }
        if (!opened) {
            if (inside) {
                fault(vtable, kaplo::kSlotBytes, shape, nullptr, path,
                      fmt::format("the vtable would have {} bytes, and {} are left", length,
                                  region_.size() - vtable));
            } else {
                fault(at, kaplo::kReferenceBytes, shape, nullptr, path,
                      fmt::format("the vtable would be at {}, outside of 4 to {}", vtable, last_offset()));
            }
            in_root_header_ = false;
            return;
        }
        in_root_header_ = false;
        const bool is_image = shape.image && vtable - at == shape.image->vtable &&
                              table_length == shape.image->table_length && length == shape.vtable_bytes;
        if (depth == 0 && at == kaplo::kRootTableAt && is_image) found_.layout = Layout::image;
        if (depth == 0 && vtable + length == at && vtable == kaplo::kReferenceBytes) {
            found_.layout = Layout::compact;
        }
        walk_slots(shape, at, vtable, length, path, depth);
        for (const FieldShape& field : shape.fields) {
            std::uint32_t position = 0;
            if (table.locate(field.id, position)) {
                walk_field(shape, field, position, vtable + field.slot, {&path, &field, {}}, depth);
            }
        }
        if (is_image) show_padding(*shape.image, shape, at, path, depth);
    }

    void walk_slots(const Shape& shape, std::uint32_t at, std::uint32_t vtable, std::uint32_t length,
                    const FieldPath& path, std::uint32_t depth) {
        if (!see_) return;
        for (std::uint32_t id = 0; kaplo::slot_in_vtable(id) + kaplo::kSlotBytes <= length; ++id) {
            std::uint16_t slot = 0;
            if (!region_.read(vtable + kaplo::slot_in_vtable(id), slot)) return;
            const FieldShape* const field = id < shape.fields.size() ? &shape.fields[id] : nullptr;
            const FieldPath here = {&path, field, {}};
            show({.at = vtable + kaplo::slot_in_vtable(id),
                  .bytes = kaplo::kSlotBytes,
                  .part = Part::slot,
                  .depth = depth,
                  .table = &shape,
                  .field = field,
                  .id = id,
                  .number = slot,
                  .target = at + slot},
                 field != nullptr ? &here : &path);
        }
    }

    // Shown only where nothing else is: see annotate().
    void show_padding(const ImageShape& image, const Shape& shape, std::uint32_t at, const FieldPath& path,
                      std::uint32_t depth) {
        const auto pad = [&](std::uint32_t first, std::uint32_t last) {
            const std::uint32_t end = std::min(last, region_.size());
            if (first < end) {
                show({.at = first,
                      .bytes = end - first,
                      .part = Part::padding,
                      .depth = depth,
                      .table = &shape},
                     &path);
            }
        };
        pad(at + image.table_length, at + image.vtable);
        pad(at + image.vtable + shape.vtable_bytes, at - kaplo::kReferenceBytes + image.bytes);
    }

    void walk_field(const Shape& shape, const FieldShape& field, std::uint32_t at, std::uint32_t slot,
                    const FieldPath& path, std::uint32_t depth) {
        switch (field.kind) {
            case Kind::scalar:
                if (holds(at, field.element_bytes)) {
                    show({.at = at,
                          .bytes = field.element_bytes,
                          .part = Part::scalar,
                          .depth = depth + 1,
                          .table = &shape,
                          .field = &field,
                          .number = number_at(at, field.element_bytes)},
                         &path);
                } else {
                    outside(shape, field, at, field.element_bytes, slot, path);
                }
                return;
            case Kind::nested_table:
                if (const auto table = follow(shape, field, at, slot, path, depth)) {
                    walk_table(*field.table, *table, path, depth + 1, at);
                }
                return;
            case Kind::fixed_array:
            case Kind::scalar_vector:
            case Kind::table_vector:
                if (const auto vector = follow(shape, field, at, slot, path, depth)) {
                    walk_vector(shape, field, at, *vector, path, depth);
                }
                return;
        }
    }

    void outside(const Shape& shape, const FieldShape& field, std::uint32_t at, std::uint32_t bytes,
                 std::uint32_t slot, const FieldPath& path) {
        fault(slot, kaplo::kSlotBytes, shape, &field, path,
              fmt::format("{} bytes at {} do not end inside the message of {}", bytes, at, region_.size()));
    }

    // Follows the reference at `at`, of a field or of an element of it, to where something must start.
    std::optional<std::uint32_t> follow(const Shape& shape, const FieldShape& field, std::uint32_t at,
                                        std::uint32_t slot, const FieldPath& path, std::uint32_t depth) {
        std::uint32_t distance = 0;
        if (!region_.read(at, distance)) {
            outside(shape, field, at, kaplo::kReferenceBytes, slot, path);
            return std::nullopt;
        }
        std::uint32_t target = 0;
        const bool ahead = region_.follow(at, target);
        show({.at = at,
              .bytes = kaplo::kReferenceBytes,
              .part = Part::reference,
              .depth = depth + 1,
              .table = &shape,
              .field = &field,
              .index = path.index,
              .number = distance,
              .target = target},
             &path);
        if (ahead) return target;
        fault(at, kaplo::kReferenceBytes, shape, &field, path,
              fmt::format("the reference {} leads beyond 32 bits", distance));
        return std::nullopt;
    }

    void walk_vector(const Shape& shape, const FieldShape& field, std::uint32_t reference,
                     std::uint32_t vector, const FieldPath& path, std::uint32_t depth) {
        std::uint32_t count = 0;
        if (!region_.read(vector, count)) {
            fault(reference, kaplo::kReferenceBytes, shape, &field, path,
                  fmt::format("the vector would be at {}, outside of the message of {}", vector,
                              region_.size()));
            return;
        }
        show({.at = vector,
              .bytes = kaplo::kCountBytes,
              .part = Part::count,
              .depth = depth + 1,
              .table = &shape,
              .field = &field,
              .number = count},
             &path);
        const auto wrong = [&](std::string what) {
            fault(vector, kaplo::kCountBytes, shape, &field, path, std::move(what));
        };
        kaplo::Elements elements = {};
        if (!region_.follow_vector(reference, field.element_bytes, elements)) {
            return wrong(fmt::format("{} elements of {} bytes, and {} bytes are left", count,
                                     field.element_bytes, region_.size() - vector - kaplo::kCountBytes));
        }
        if (field.kind == Kind::fixed_array && count != field.count) {
            wrong(fmt::format("{} elements, where the array has {}", count, field.count));
        }
        if (count == 0) return;
        if (field.kind != Kind::table_vector) {
            show({.at = elements.at,
                  .bytes = count * field.element_bytes,
                  .part = Part::elements,
                  .depth = depth + 1,
                  .table = &shape,
                  .field = &field,
                  .number = count},
                 &path);
        }
        if (field.kind == Kind::fixed_array) return;
        const std::uint32_t width =
            field.kind == Kind::table_vector ? field.table->record_bytes : field.element_bytes;
        // More than the hooks' 32 bits can ask for.
        if (std::uint64_t{count} * width > UINT32_MAX) {
            wrong(fmt::format("an array of {} elements of {} bytes is more than 32 bits can ask for", count,
                              width));
        }
        if (field.kind != Kind::table_vector) return;
        for (std::uint32_t k = 0; k < count; ++k) {
            const FieldPath element = {path.parent, &field, k};
            const std::uint32_t at = elements.at + k * kaplo::kReferenceBytes;
            if (const auto table = follow(shape, field, at, at, element, depth)) {
                walk_table(*field.table, *table, element, depth + 1, at);
            }
        }
    }

    bool holds(std::uint32_t at, std::uint32_t bytes) const {
        return at <= region_.size() && bytes <= region_.size() - at;
    }

    std::uint64_t number_at(std::uint32_t at, std::uint32_t bytes) const {
        std::uint64_t number = 0;
        for (std::uint32_t i = bytes; i-- > 0;) number = number << 8 | region_.bytes()[at + i];
        return number;
    }

    const Shape& root_;
    Region region_;
    const std::function<void(Range&&)>& see_;
    Walk found_;
    bool in_root_header_ = false;
};

constexpr std::size_t kMostShown = 24;  // elements of a value in one line

}  // namespace

const char* text_of(Part part) {
    switch (part) {
        case Part::root_reference:
            return "root reference";
        case Part::vtable_length:
            return "vtable length";
        case Part::table_length:
            return "table length";
        case Part::slot:
            return "slot";
        case Part::soffset:
            return "soffset";
        case Part::scalar:
            return "scalar";
        case Part::reference:
            return "reference";
        case Part::count:
            return "count";
        case Part::elements:
            return "elements";
        case Part::padding:
            return "padding";
        case Part::unread:
            break;
    }
    return "unread";
}

const char* text_of(Layout layout) {
    switch (layout) {
        case Layout::compact:
            return "compact";
        case Layout::image:
            return "image";
        case Layout::other:
            break;
    }
    return "other";
}

std::string FieldPath::text() const {
    if (field == nullptr) return "";
    std::string text = parent != nullptr ? parent->text() : "";
    if (!text.empty()) text += '.';
    text += field->name;
    if (index) text += fmt::format("[{}]", *index);
    return text;
}

Walk walk(const Shape& shape, std::span<const std::uint8_t> message,
          const std::function<void(Range&&)>& see) {
    return Walker(shape, message, see).run();
}

Annotated annotate(const Shape& shape, std::span<const std::uint8_t> message) {
    Annotated made;
    std::vector<Range> paddings;
    const auto see = [&](Range&& range) {
        auto& list = range.part == Part::padding ? paddings : made.ranges;
        if (made.ranges.size() + paddings.size() < kMostRanges) {
            list.push_back(std::move(range));
        } else {
            made.cut = true;
        }
    };
    made.walk = walk(shape, message, see);
    const auto by_position = [](const Range& a, const Range& b) { return a.at < b.at; };
    std::stable_sort(made.ranges.begin(), made.ranges.end(), by_position);
    std::stable_sort(paddings.begin(), paddings.end(), by_position);

    // What no range covers is padding where an image has some, and unread elsewhere.
    std::vector<Range> rest;
    const auto fill = [&rest](std::uint32_t from, std::uint32_t to, const Range* padding) {
        if (from >= to) return;
        Range range = padding != nullptr ? *padding : Range{.at = 0, .bytes = 0, .part = Part::unread};
        range.at = from;
        range.bytes = to - from;
        rest.push_back(std::move(range));
    };
    auto padding = paddings.begin();
    const auto fill_gap = [&](std::uint32_t first, std::uint32_t last) {
        while (first < last) {
            while (padding != paddings.end() && padding->at + padding->bytes <= first) ++padding;
            if (padding == paddings.end() || padding->at >= last) return fill(first, last, nullptr);
            fill(first, padding->at, nullptr);
            const std::uint32_t padded = std::max(first, padding->at);
            first = std::min(last, padding->at + padding->bytes);
            fill(padded, first, &*padding);
        }
    };
    std::uint32_t end = 0;
    for (const Range& range : made.ranges) {
        if (range.at > end) fill_gap(end, range.at);
        end = std::max(end, range.at + range.bytes);
    }
    fill_gap(end, static_cast<std::uint32_t>(message.size()));
    made.ranges.insert(made.ranges.end(), std::make_move_iterator(rest.begin()),
                       std::make_move_iterator(rest.end()));
    std::stable_sort(made.ranges.begin(), made.ranges.end(), by_position);

    for (const Fault& fault : made.walk.faults) {
        auto range = std::lower_bound(made.ranges.begin(), made.ranges.end(),
                                      Range{.at = fault.at, .bytes = 0, .part = Part::unread}, by_position);
        for (; range != made.ranges.end() && range->at == fault.at; ++range) {
            if (range->bytes == fault.bytes) range->faulty = true;
        }
    }
    // A piece is one range and those that start in it; what another range leaves over is a piece of its own.
    for (std::size_t k = 0; k < made.ranges.size(); ++k) {
        const Range& range = made.ranges[k];
        const std::uint32_t done = made.pieces.empty() ? 0 : made.pieces.back().at + made.pieces.back().bytes;
        const std::uint32_t range_end = range.at + range.bytes;
        if (range.at >= done) {
            made.pieces.push_back({range.at, range.bytes, {k}});
            continue;
        }
        made.pieces.back().meanings.push_back(k);
        if (range_end > done) made.pieces.push_back({done, range_end - done, {k}});
    }
    return made;
}

std::string value_text(const Range& range, std::span<const std::uint8_t> message, bool whole) {
    if (range.part == Part::scalar) return fmt::format("{}", range.number);
    if (range.part != Part::elements) return "";
    const auto bytes = message.subspan(range.at, range.bytes);
    const std::uint32_t width = range.field->element_bytes;
    const bool cut = !whole && bytes.size() / width > kMostShown;
    const auto shown = bytes.first(cut ? kMostShown * width : bytes.size());
    const std::string dots = cut ? "..." : "";
    if (width == 1) {
        const bool is_address = range.field->kind == Kind::fixed_array && !cut;
        return (is_address ? to_address(shown) : to_hex(shown)) + dots;
    }
    std::vector<std::uint64_t> numbers;
    for (std::size_t at = 0; at + width <= shown.size(); at += width) {
        std::uint64_t number = 0;
        for (std::size_t i = width; i-- > 0;) number = number << 8 | shown[at + i];
        numbers.push_back(number);
    }
    return fmt::format("[{}{}]", fmt::join(numbers, ", "), cut ? ", ..." : "");
}

std::string meaning(const Range& range, std::span<const std::uint8_t> message, bool whole) {
    const std::string name = range.path.empty() ? "" : range.path + " ";
    switch (range.part) {
        case Part::root_reference:
            return fmt::format("root reference: table at {}", range.target);
        case Part::vtable_length:
            return fmt::format("{}vtable of {}: {} bytes", name, range.table->name, range.number);
        case Part::table_length:
            return fmt::format("table length {}", range.number);
        case Part::slot:
            if (range.field == nullptr) {
                return fmt::format("slot of f{}, which the type does not have: {}", range.id, range.number);
            }
            if (range.number == 0) return fmt::format("slot of {}: absent", range.field->name);
            return fmt::format("slot of {}: {}, at {}", range.field->name, range.number, range.target);
        case Part::soffset:
            return fmt::format("{}table {}: vtable at {}", name, range.table->name, range.target);
        case Part::scalar:
        case Part::elements:
            return fmt::format("{} {} = {}", range.path, range.field->text,
                               value_text(range, message, whole));
        case Part::reference:
            return fmt::format("{} {}: at {}", range.path,
                               range.index ? range.field->table->name : range.field->text, range.target);
        case Part::count:
            return fmt::format("{} count {}", range.path, range.number);
        case Part::padding:
            return fmt::format("{}padding", name);
        case Part::unread:
            break;
    }
    return "unread";
}

}  // namespace tool
