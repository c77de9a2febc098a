// SPDX-License-Identifier: Apache-2.0
// What the sources of the fourteen units have in common: the exported shells, one call each.
//
// A unit's source defines its own `unit`, its start-up constructor, and, by one of these macros for each
// message of its module, the functions of its side.
#ifndef NAC_UNIT_H
#define NAC_UNIT_H

#include "bus/registration.h"
#include "bus/send.h"
#include "nac/nac_messages.h"
#include "runtime/compact.h"
#include "runtime/unpack.h"

// Priorities of the start-up constructors: the units start in this order, however they are linked.
namespace nac::start_up_order {
enum : int {
    dataflow_recv = 201,  // 0 to 100 are the compiler's
    dataflow_send,
    evt_recv,
    evt_send,
    port_recv,
    port_send,
    uclgroup_recv,
    uclgroup_send,
    user_recv,
    user_send,
    user_type_recv,
    user_type_send,
    ipsec_access_recv,
    ipsec_access_send,
};
}  // namespace nac::start_up_order

#define NAC_RECEIVE_FUNCTIONS(Message)                                                           \
    extern "C" std::uint32_t Message##__unpack(const std::uint8_t* buffer, std::uint32_t length, \
                                               Message* record) {                                \
        return kaplo::unpack(unit, buffer, length, record);                                      \
    }                                                                                            \
    extern "C" void Message##_free__unpacked(Message* record) { kaplo::free_unpacked(unit, record); }

#define NAC_REGISTRATION(Message) kaplo::registration(Message##__unpack, Message##_free__unpacked),

#define NAC_SEND_FUNCTIONS(Message)                                                                    \
    extern "C" std::uint32_t Message##__pack(const Message* record, std::uint8_t* buffer,              \
                                             std::uint32_t* length) {                                  \
        return kaplo::pack(unit, record, buffer, length);                                              \
    }                                                                                                  \
    extern "C" std::uint32_t Message##__sendsingle(std::uint32_t destination, const Message* record,   \
                                                   std::uint32_t /*reserved*/, std::uint64_t target) { \
        return kaplo::send_single(unit, destination, record, target);                                  \
    }                                                                                                  \
    extern "C" std::uint32_t Message##__sendbatch(std::uint32_t destination, const Message* records,   \
                                                  std::uint32_t count, std::uint64_t target) {         \
        return kaplo::send_batch(unit, destination, records, count, target);                           \
    }                                                                                                  \
    extern "C" std::uint32_t Message##__sendmsg(std::uint32_t destination, const Message* records,     \
                                                std::uint32_t count) {                                 \
        return kaplo::send(unit, destination, records, count, 0);                                      \
    }                                                                                                  \
    extern "C" std::uint32_t Message##__sendtomsg(std::uint32_t destination, const Message* records,   \
                                                  std::uint32_t count, std::uint64_t target) {         \
        return kaplo::send(unit, destination, records, count, target);                                 \
    }

#endif
