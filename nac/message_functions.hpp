// SPDX-License-Identifier: Apache-2.0
// The message types for templates: what nac_messages.h declares of each, found by its record.
#ifndef NAC_MESSAGE_FUNCTIONS_HPP
#define NAC_MESSAGE_FUNCTIONS_HPP

#include <cstdint>

#include "nac/nac_messages.h"

namespace nac {

template <class Record>
struct Functions;

#define NAC_FUNCTIONS_OF(Message)                                   \
    template <>                                                     \
    struct Functions<Message> {                                     \
        static constexpr std::uint32_t id = Message##_ID;           \
        static constexpr const char* name = #Message;               \
        static constexpr auto pack = &Message##__pack;              \
        static constexpr auto unpack = &Message##__unpack;          \
        static constexpr auto free = &Message##_free__unpacked;     \
        static constexpr auto send_single = &Message##__sendsingle; \
        static constexpr auto send_batch = &Message##__sendbatch;   \
        static constexpr auto send = &Message##__sendmsg;           \
        static constexpr auto send_to = &Message##__sendtomsg;      \
    };
NAC_ALL_MESSAGES(NAC_FUNCTIONS_OF)
#undef NAC_FUNCTIONS_OF

}  // namespace nac

#endif
