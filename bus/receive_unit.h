// SPDX-License-Identifier: Apache-2.0
// The receive unit of a module: the functions with which its messages are received, one call each, and their
// registration with the bus. vorn_add_package makes a source of one line for each module.
#ifndef KAPLO_RECEIVE_UNIT_H
#define KAPLO_RECEIVE_UNIT_H

#include "bus/registration.h"
#include "bus/unit.h"
#include "runtime/release.h"
#include "runtime/unpack.h"

#define VORN_RECEIVE_FUNCTIONS(Message)                                                          \
    extern "C" std::uint32_t Message##__unpack(const std::uint8_t* buffer, std::uint32_t length, \
                                               Message* record) {                                \
        return kaplo::unpack(unit, buffer, length, record);                                      \
    }                                                                                            \
    extern "C" void Message##_free__unpacked(Message* record) { kaplo::free_unpacked(unit, record); }

#define VORN_REGISTRATION(Message) kaplo::registration(Message##__unpack, Message##_free__unpacked),

#define VORN_RECEIVE_UNIT(prefix, MESSAGES, priority)                   \
    VORN_UNIT(prefix, priority)                                         \
    MESSAGES(VORN_RECEIVE_FUNCTIONS)                                    \
    extern "C" std::int32_t prefix##_recv_init(void) {                  \
        return kaplo::register_in_order({MESSAGES(VORN_REGISTRATION)}); \
    }                                                                   \
    extern "C" void prefix##__send_resource_clean(void) {}

#endif
