// SPDX-License-Identifier: Apache-2.0
// What the sources of the seven receive units have in common: the exported shells, one call each.
//
// A unit's source defines its own `unit`, its start-up constructor, and, by these macros for each message of
// its module, the functions of its side and what it registers with the bus.
#ifndef NAC_RECEIVE_UNIT_H
#define NAC_RECEIVE_UNIT_H

#include "bus/registration.h"
#include "nac/nac_messages.h"
#include "nac/start_up_order.h"
#include "runtime/release.h"
#include "runtime/unpack.h"

#define NAC_RECEIVE_FUNCTIONS(Message)                                                           \
    extern "C" std::uint32_t Message##__unpack(const std::uint8_t* buffer, std::uint32_t length, \
                                               Message* record) {                                \
        return kaplo::unpack(unit, buffer, length, record);                                      \
    }                                                                                            \
    extern "C" void Message##_free__unpacked(Message* record) { kaplo::free_unpacked(unit, record); }

#define NAC_REGISTRATION(Message) kaplo::registration(Message##__unpack, Message##_free__unpacked),

#endif
