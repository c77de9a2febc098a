// SPDX-License-Identifier: Apache-2.0
// Records from JSON text, by their tables.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <new>
#include <span>

#include "inspect/bounded_text.h"
#include "inspect/json_text.h"
#include "inspect/record_access.h"
#include "inspect/record_reader.h"
#include "inspect/vorn_inspect.h"

std::int32_t vorn_inspect_from_json(const vorn_type* type, const char* json, std::size_t length, void* record,
                                    char* why, std::size_t capacity) {
    inspect::BoundedText reason(why, why != nullptr ? capacity : 0);
    if (type == nullptr || json == nullptr || record == nullptr) {
        reason.add("no type, no text or no record");
        return -1;
    }
    try {
        inspect::read_record(inspect::json_from_text({json, length}), *type, record);
        return 0;
    } catch (const std::bad_alloc&) {
        reason.add("no memory for the record");
    } catch (const std::exception& error) {
        reason.add(error.what());
    }
    return -1;
}

void vorn_inspect_free_record(const vorn_type* type, void* record) {
    if (type == nullptr || record == nullptr) return;
    for (const vorn_field* const field : std::span(type->fields, type->field_count)) {
        if (field->kind == VORN_KIND_NESTED_TABLE) {
            vorn_inspect_free_record(field->table, inspect::member(record, field->record_offset));
        }
        if (!inspect::is_vector(*field)) continue;
        const inspect::ArrayMember array = inspect::array_of(*field, record);
        if (array.elements != nullptr && field->table != nullptr) {
            auto* const elements = static_cast<std::uint8_t*>(array.elements);
            for (std::uint32_t k = 0; k < array.count; ++k) {
                vorn_inspect_free_record(field->table, elements + k * inspect::element_size(*field));
            }
        }
        std::free(array.elements);
        inspect::set_array(*field, record, {array.count, nullptr});
    }
}
