// SPDX-License-Identifier: Apache-2.0
// Registration of a module's message types with the bus.
#ifndef KAPLO_REGISTRATION_H
#define KAPLO_REGISTRATION_H

#include <cstddef>
#include <cstdint>

#include "bus/message_id.h"
#include "bus/vorn_bus_api.h"

namespace kaplo {

struct Registration {
    std::uint32_t message_id;
    VORN_IDLUnpackFunc unpack;
    VORN_IDLFreeFunc free_unpacked;
};

// The bus knows every record as a void pointer, and is given the exported functions themselves, whose
// addresses a host may compare. It calls them with storage of the registered type; on all supported machines
// a pointer to void is passed as any other. A bus marks the function that makes the call, for clang's check
// of function types.
#ifdef __clang__
#define KAPLO_CALLS_REGISTERED __attribute__((no_sanitize("function")))
#else
#define KAPLO_CALLS_REGISTERED
#endif

template <class Record>
Registration registration(std::uint32_t (*unpack)(const std::uint8_t*, std::uint32_t, Record*),
                          void (*free_unpacked)(Record*)) {
    return {message_id<Record>, reinterpret_cast<VORN_IDLUnpackFunc>(unpack),
            reinterpret_cast<VORN_IDLFreeFunc>(free_unpacked)};
}

// Stops at the first refusal and returns it; what is registered by then stays registered.
template <std::size_t count>
std::int32_t register_in_order(const Registration (&registrations)[count]) {
    for (const Registration& entry : registrations) {
        const std::int32_t result = VORN_RegIDLFuncHook(entry.message_id, entry.unpack, entry.free_unpacked);
        if (result != 0) return result;
    }
    return 0;
}

}  // namespace kaplo

#endif
