// SPDX-License-Identifier: Apache-2.0
// Whether bytes are a valid message: the compiled decoder answers, and the walk explains what it refuses.
#include <cstdint>

#include "inspect/fault_text.h"
#include "inspect/type_operations.h"

vorn_verdict vorn_inspect_verify(const vorn_type* type, const std::uint8_t* bytes, std::size_t length,
                                 vorn_fault_handler on_fault, void* context) {
    if (type == nullptr || type->operations == nullptr) return VORN_VERDICT_ARGUMENT;
    return type->operations->verify(type, bytes, length, on_fault, context);
}

vorn_verdict vorn_inspect_unpack(const vorn_type* type, const std::uint8_t* bytes, std::size_t length,
                                 void* record) {
    if (type == nullptr || type->operations == nullptr) return VORN_VERDICT_ARGUMENT;
    return type->operations->unpack(bytes, length, record);
}

std::uint32_t vorn_inspect_packed_bytes(const vorn_type* type, const void* record) {
    if (type == nullptr || type->operations == nullptr) return 0;
    return type->operations->packed_bytes(record);
}

std::uint32_t vorn_inspect_write_image(const vorn_type* type, const void* record, std::uint8_t* buffer,
                                       std::uint32_t capacity) {
    if (type == nullptr || record == nullptr || buffer == nullptr || type->operations == nullptr ||
        type->operations->write_image == nullptr || capacity < type->image_bytes) {
        return 0;
    }
    type->operations->write_image(record, buffer);
    return type->image_bytes;
}

std::size_t vorn_inspect_fault_text(const vorn_fault* fault, char* text, std::size_t capacity) {
    return inspect::write_fault_text(*fault, text, capacity);
}
