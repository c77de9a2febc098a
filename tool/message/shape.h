// SPDX-License-Identifier: Apache-2.0
// Descriptions at run time: what the compiler derives from a record's description, as data that tools can
// walk.
#ifndef TOOL_SHAPE_H
#define TOOL_SHAPE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/description.h"

namespace tool {

// How people read and write a field's value.
enum class Display {
    number,
    hardware_address,  // 02:00:5e:10:00:01
    ipv6_address,      // 2001:db8::1
    hex,               // 0a1b
    numbers,           // a list
    table,             // field by field
    tables,            // a list of them
};

struct Shape;

struct FieldShape {
    std::string name;  // "f0"
    std::string text;  // "u32", "u8[6]", "Nac_SrvCar", "[u16]", "[Nac_Ipv6Addr]"
    kaplo::Kind kind;
    Display display;
    std::uint32_t id;             // index in the list of fields, from 0
    std::uint32_t element_bytes;  // of a scalar or element on the wire; of a table: of its reference
    std::uint32_t count;          // elements that the record holds in itself; 0 for vectors
    std::uint32_t record_offset;  // of the member in the record; of a vector: of its pointer
    std::optional<std::uint32_t> count_offset;  // of a vector: of its count in the record
    std::uint32_t slot;                         // offset of the field's slot in its vtable
    std::optional<std::uint32_t> image_offset;  // in the fixed image, from the table's start
    std::optional<std::uint32_t> image_bytes;   // there, with all that it refers to
    const Shape* table = nullptr;               // of nested tables and vectors of tables
};

// Offsets in a fixed image count from the table, which starts after the reference.
struct ImageShape {
    std::uint32_t bytes;  // the reference and the padding at the end included
    std::uint32_t table_length;
    std::uint32_t vtable;
};

// A record type: a message, or a table that occurs only inside others.
struct Shape {
    std::string name;
    std::string module;               // empty: no message
    std::optional<std::uint32_t> id;  // none: no message
    std::uint32_t record_bytes = 0;
    std::uint32_t vtable_bytes = 0;   // with a slot for each field
    std::optional<ImageShape> image;  // none: holds vectors, and is always sent in the compact layout
    std::vector<FieldShape> fields;

    // Names under which its decoders log: of a message's own table, and of one inside another.
    const char* root_decoder = nullptr;
    const char* nested_decoder = nullptr;
};

// All messages, module by module, each after the tables in it that were not listed before.
const std::vector<const Shape*>& all_shapes();

// Finds a shape by its full name; null if there is none.
const Shape* find_shape(std::string_view name);

}  // namespace tool

#endif
