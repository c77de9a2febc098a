// SPDX-License-Identifier: Apache-2.0
// The functions of message types for templates, found by the record.
#ifndef KAPLO_TYPED_FUNCTIONS_HPP
#define KAPLO_TYPED_FUNCTIONS_HPP

#include <cstdint>

namespace kaplo {

template <class Record>
struct TypedFunctions;

}  // namespace kaplo

// Outside of any namespace, once for each message type.
#define VORN_TYPED_FUNCTIONS(Message)                               \
    template <>                                                     \
    struct kaplo::TypedFunctions<Message> {                         \
        static constexpr const char* name = #Message;               \
        static constexpr auto pack = &Message##__pack;              \
        static constexpr auto unpack = &Message##__unpack;          \
        static constexpr auto free = &Message##_free__unpacked;     \
        static constexpr auto send_single = &Message##__sendsingle; \
        static constexpr auto send_batch = &Message##__sendbatch;   \
        static constexpr auto send = &Message##__sendmsg;           \
        static constexpr auto send_to = &Message##__sendtomsg;      \
    };

#endif
