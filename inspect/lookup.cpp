// SPDX-License-Identifier: Apache-2.0
// Types by name and id, registration, and the words for constants.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "inspect/vorn_inspect.h"

const vorn_type* vorn_inspect_type_by_name(const vorn_catalogue* catalogue, const char* name) {
    if (catalogue == nullptr || name == nullptr) return nullptr;
    const std::span types(catalogue->types, catalogue->type_count);
    const auto found = std::find_if(types.begin(), types.end(), [name](const vorn_type* type) {
        return std::strcmp(type->name, name) == 0;
    });
    return found != types.end() ? *found : nullptr;
}

const vorn_type* vorn_inspect_type_by_id(const vorn_catalogue* catalogue, std::uint32_t message_id) {
    if (catalogue == nullptr) return nullptr;
    const std::span types(catalogue->messages_by_id, catalogue->message_count);
    const auto found =
        std::lower_bound(types.begin(), types.end(), message_id,
                         [](const vorn_type* type, std::uint32_t id) { return type->id < id; });
    return found != types.end() && (*found)->id == message_id ? *found : nullptr;
}

std::int32_t vorn_inspect_register_all(const vorn_catalogue* catalogue) {
    if (catalogue == nullptr) return -1;
    std::int32_t result = 0;
    for (const vorn_module* const module : std::span(catalogue->modules, catalogue->module_count)) {
        if (result == 0) result = module->recv_init();
        if (result == 0) result = module->send_init();
    }
    return result;
}

const char* vorn_inspect_verdict_text(vorn_verdict verdict) {
    switch (verdict) {
        case VORN_VERDICT_VALID:
            return "ok";
        case VORN_VERDICT_ARGUMENT:
            return "argument";
        case VORN_VERDICT_HEADER:
            return "header";
        case VORN_VERDICT_FIELD:
            return "field";
        case VORN_VERDICT_NO_MEMORY:
            return "memory";
    }
    return "unknown";
}

const char* vorn_inspect_layout_text(vorn_layout layout) {
    switch (layout) {
        case VORN_LAYOUT_COMPACT:
            return "compact";
        case VORN_LAYOUT_IMAGE:
            return "image";
        case VORN_LAYOUT_OTHER:
            break;
    }
    return "other";
}

const char* vorn_inspect_part_text(vorn_part part) {
    switch (part) {
        case VORN_PART_ROOT_REFERENCE:
            return "root reference";
        case VORN_PART_VTABLE_LENGTH:
            return "vtable length";
        case VORN_PART_TABLE_LENGTH:
            return "table length";
        case VORN_PART_SLOT:
            return "slot";
        case VORN_PART_SOFFSET:
            return "soffset";
        case VORN_PART_SCALAR:
            return "scalar";
        case VORN_PART_REFERENCE:
            return "reference";
        case VORN_PART_COUNT:
            return "count";
        case VORN_PART_ELEMENTS:
            return "elements";
        case VORN_PART_PADDING:
            return "padding";
        case VORN_PART_UNREAD:
            break;
    }
    return "unread";
}
