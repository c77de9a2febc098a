// SPDX-License-Identifier: Apache-2.0
#include "inspect/record_reader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "inspect/byte_text.h"
#include "inspect/record_access.h"

namespace inspect {
namespace {

RecordError is_not(const Json& value, const std::string& path, const std::string& what) {
    return {path, shortened(json_text(value)) + " is not " + what};
}

const Json& array_from(const Json& value, const std::string& path) {
    if (!value.is_array()) throw is_not(value, path, "an array");
    return value;
}

void read_number(const Json& value, std::uint32_t width, std::uint8_t* at, const std::string& path) {
    const std::uint64_t largest = UINT64_MAX >> (64 - 8 * width);
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > largest) {
        throw is_not(value, path, "an integer from 0 to " + std::to_string(largest));
    }
    const auto store = [at](auto number) { std::memcpy(at, &number, sizeof number); };
    const auto number = value.get<std::uint64_t>();
    switch (width) {
        case 1:
            return store(static_cast<std::uint8_t>(number));
        case 2:
            return store(static_cast<std::uint16_t>(number));
        case 4:
            return store(static_cast<std::uint32_t>(number));
        default:
            return store(number);
    }
}

std::vector<std::uint8_t> read_bytes(const Json& value, const vorn_field& field, const std::string& path) {
    if (!value.is_string()) throw is_not(value, path, "a text");
    const auto& text = value.get_ref<const std::string&>();
    try {
        return is_vector(field) ? from_hex(text) : from_address(text, field.count);
    } catch (const std::invalid_argument& fault) {
        throw RecordError(path, fault.what());
    }
}

// Zeroed; the record's own from now on.
std::uint8_t* make_array(const vorn_field& field, void* record, std::size_t count) {
    if (count == 0) return nullptr;
    void* const elements = std::calloc(count, element_size(field));
    if (elements == nullptr || count > UINT32_MAX) {
        std::free(elements);
        throw std::bad_alloc();
    }
    set_array(field, record, {static_cast<std::uint32_t>(count), elements});
    return static_cast<std::uint8_t*>(elements);
}

void read_field(const Json& value, const vorn_field& field, void* record, const std::string& path) {
    std::uint8_t* at = member(record, field.record_offset);
    if (field.kind == VORN_KIND_SCALAR) return read_number(value, field.element_bytes, at, path);
    if (field.kind == VORN_KIND_NESTED_TABLE) return read_record(value, *field.table, at, path + ".");
    if (field.table == nullptr && field.element_bytes == 1) {
        const std::vector<std::uint8_t> bytes = read_bytes(value, field, path);
        if (is_vector(field)) at = make_array(field, record, bytes.size());
        std::copy(bytes.begin(), bytes.end(), at);
        return;
    }
    const std::size_t count = array_from(value, path).size();
    if (is_vector(field)) {
        at = make_array(field, record, count);
    } else if (count != field.count) {
        throw RecordError(path,
                          "holds " + std::to_string(count) + " numbers, not " + std::to_string(field.count));
    }
    for (std::size_t k = 0; k < count; ++k, at += element_size(field)) {
        const std::string element_path = path + "[" + std::to_string(k) + "]";
        if (field.table != nullptr) {
            read_record(value[k], *field.table, at, element_path + ".");
        } else {
            read_number(value[k], field.element_bytes, at, element_path);
        }
    }
}

}  // namespace

void read_record(const Json& object, const vorn_type& type, void* record, const std::string& path) {
    if (!object.is_object()) {
        throw RecordError(path.empty() ? "record" : path.substr(0, path.size() - 1), "not an object");
    }
    const std::span fields(type.fields, type.field_count);
    for (const auto& item : object.items()) {
        const bool is_known = std::any_of(fields.begin(), fields.end(), [&item](const vorn_field* field) {
            return item.key() == field->name;
        });
        if (!is_known) {
            throw RecordError(path + shortened(item.key()), std::string(type.name) + " has no such field");
        }
    }
    for (const vorn_field* const field : fields) {
        const auto found = object.find(field->name);
        if (found != object.end()) read_field(*found, *field, record, path + field->name);
    }
}

}  // namespace inspect
