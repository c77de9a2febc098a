// SPDX-License-Identifier: Apache-2.0
// Members of records that only a table describes.
#ifndef INSPECT_RECORD_ACCESS_H
#define INSPECT_RECORD_ACCESS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "inspect/vorn_inspect.h"

namespace inspect {

inline const std::uint8_t* member(const void* record, std::uint32_t offset) {
    return static_cast<const std::uint8_t*>(record) + offset;
}
inline std::uint8_t* member(void* record, std::uint32_t offset) {
    return static_cast<std::uint8_t*>(record) + offset;
}

template <class T>
T loaded(const std::uint8_t* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// The integer of 1, 2, 4 or 8 bytes, in the host's byte order.
inline std::uint64_t host_number_at(const std::uint8_t* at, std::uint32_t width) {
    switch (width) {
        case 1:
            return *at;
        case 2:
            return loaded<std::uint16_t>(at);
        case 4:
            return loaded<std::uint32_t>(at);
        default:
            return loaded<std::uint64_t>(at);
    }
}

// The bytes of an element in a record's array.
inline std::size_t element_size(const vorn_field& field) {
    return field.table != nullptr ? field.table->record_bytes : field.element_bytes;
}

inline bool is_vector(const vorn_field& field) { return field.count_offset != VORN_NO_OFFSET; }

// The two members of a vector.
struct ArrayMember {
    std::uint32_t count;
    void* elements;
};
inline ArrayMember array_of(const vorn_field& field, const void* record) {
    return {loaded<std::uint32_t>(member(record, field.count_offset)),
            loaded<void*>(member(record, field.record_offset))};
}
inline void set_array(const vorn_field& field, void* record, const ArrayMember& array) {
    std::memcpy(member(record, field.count_offset), &array.count, sizeof array.count);
    std::memcpy(member(record, field.record_offset), &array.elements, sizeof array.elements);
}

}  // namespace inspect

#endif
