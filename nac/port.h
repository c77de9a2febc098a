// SPDX-License-Identifier: Apache-2.0
// The messages of the port module: settings for a port.
#ifndef NAC_PORT_H
#define NAC_PORT_H

#include "bus/message_id.h"
#include "nac/nac_messages.h"
#include "runtime/description.h"

namespace kaplo {

template <>
struct Description<Nac_SetPortMsg> : Usual {
    using R = Nac_SetPortMsg;
    static constexpr Text name = "Nac_SetPortMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};
static_assert(sizeof(Nac_SetPortMsg) == 8);
static_assert(message_id<Nac_SetPortMsg> == Nac_SetPortMsg_ID);
static_assert(Image<Nac_SetPortMsg>::bytes == 24 && Image<Nac_SetPortMsg>::vtable_in_image == 16);

}  // namespace kaplo

#endif
