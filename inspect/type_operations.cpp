// SPDX-License-Identifier: Apache-2.0
// What the operations of all types share; every catalogue that is a file of its own has it too.
#include "inspect/type_operations.h"

namespace inspect {

constinit kaplo::Unit hooked_unit;
constinit kaplo::Unit silent_unit = {.state = {.memory_ready = 1, .log_ready = 1}};

vorn_verdict verify_in_full(const vorn_type* type, const std::uint8_t* bytes, std::size_t length,
                            vorn_fault_handler on_fault, void* context) {
    if (is_message_size(bytes, length)) {
        const vorn_verdict verdict = type->operations->check(bytes, static_cast<std::uint32_t>(length));
        if (verdict == VORN_VERDICT_VALID || on_fault == nullptr) return verdict;
    }
    return vorn_inspect_walk(type, bytes, length, nullptr, on_fault, context, nullptr);
}

}  // namespace inspect
