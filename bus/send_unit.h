// SPDX-License-Identifier: Apache-2.0
// The send unit of a module: the functions with which its messages are packed and sent, one call each.
#ifndef KAPLO_SEND_UNIT_H
#define KAPLO_SEND_UNIT_H

#include "bus/send.h"
#include "bus/unit.h"
#include "runtime/pack.h"

#define VORN_SEND_FUNCTIONS(Message)                                                                   \
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

#define VORN_SEND_UNIT(prefix, MESSAGES, priority)                             \
    VORN_UNIT(prefix, priority)                                                \
    MESSAGES(VORN_SEND_FUNCTIONS)                                              \
    extern "C" std::int32_t prefix##_send_init(void) {                         \
        return VORN_RegIDLResorceCleanFuncHook(prefix##__send_resource_clean); \
    }

#endif
