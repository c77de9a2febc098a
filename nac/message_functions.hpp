// SPDX-License-Identifier: Apache-2.0
// The message types for templates: what nac_messages.h declares of each, found by its record.
#ifndef NAC_MESSAGE_FUNCTIONS_HPP
#define NAC_MESSAGE_FUNCTIONS_HPP

#include <cstdint>

#include "bus/typed_functions.hpp"
#include "nac/nac_messages.h"

NAC_ALL_MESSAGES(VORN_TYPED_FUNCTIONS)

namespace nac {

template <class Record>
struct Functions;

#define NAC_FUNCTIONS_OF(Message)                                \
    template <>                                                  \
    struct Functions<Message> : kaplo::TypedFunctions<Message> { \
        static constexpr std::uint32_t id = Message##_ID;        \
    };
NAC_ALL_MESSAGES(NAC_FUNCTIONS_OF)
#undef NAC_FUNCTIONS_OF

}  // namespace nac

#endif
