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

// The bus knows every record as a void pointer, in C's way: it calls the two functions with storage of the
// registered type, so the pointers that it passes are the ones that they take.
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
