// SPDX-License-Identifier: Apache-2.0
// The messages of the event module: changes of a port's VLAN.
#ifndef NAC_EVT_H
#define NAC_EVT_H

#include "bus/message_id.h"
#include "nac/nac_messages.h"
#include "runtime/description.h"

namespace kaplo {

template <>
struct Description<Nac_PortVlanChangeMsg> : Usual {
    using R = Nac_PortVlanChangeMsg;
    static constexpr Text name = "Nac_PortVlanChangeMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>>;
};
static_assert(sizeof(Nac_PortVlanChangeMsg) == 12);
static_assert(message_id<Nac_PortVlanChangeMsg> == Nac_PortVlanChangeMsg_ID);
static_assert(Image<Nac_PortVlanChangeMsg>::bytes == 32 &&
              Image<Nac_PortVlanChangeMsg>::vtable_in_image == 20);

}  // namespace kaplo

#endif
