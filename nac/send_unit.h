// SPDX-License-Identifier: Apache-2.0
// What the sources of the seven send units have in common: the exported shells, one call each.
//
// A unit's source defines its own `unit`, its start-up constructor, and, by this macro for each message of
// its module, the functions of its side.
#ifndef NAC_SEND_UNIT_H
#define NAC_SEND_UNIT_H

#include "bus/send.h"
#include "nac/nac_messages.h"
#include "nac/start_up_order.h"
#include "runtime/pack.h"

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
