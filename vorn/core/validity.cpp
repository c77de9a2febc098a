// SPDX-License-Identifier: Apache-2.0
#include "vorn/core/validity.h"

#include "inspect/fault_text.h"

namespace vorn {

std::uint32_t Validity::check(const Message& message, Log& log) {
    fault_.front() = '\0';
    const auto length = static_cast<std::uint32_t>(message.bytes.size());
    for (const vorn_bus_verify verify : verifiers_) {
        std::int32_t verdict = -1;
        try {
            verdict = verify(message.id, message.bytes.data(), length, write, &fault_);
        } catch (...) {
            log.warning("a verifier threw an exception on a message of id ", message.id);
        }
        if (verdict == 0) return VORN_BUS_VERIFIED;
        if (verdict > 0) return VORN_BUS_VERIFIED | VORN_BUS_DAMAGED;
    }
    return 0;
}

// The first fault is where unpack stops; of others the bus wants to hear nothing.
std::int32_t Validity::write(const vorn_fault* fault, void* text) {
    auto& written = *static_cast<Text*>(text);
    inspect::write_fault_text(*fault, written.data(), written.size());
    return 1;
}

}  // namespace vorn
