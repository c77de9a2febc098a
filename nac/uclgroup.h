// SPDX-License-Identifier: Apache-2.0
// The messages of the UCL group module: the UCL group addresses of access users.
#ifndef NAC_UCLGROUP_H
#define NAC_UCLGROUP_H

#include "bus/message_id.h"
#include "nac/nac_messages.h"
#include "runtime/description.h"

namespace kaplo {

template <>
struct Description<Nac_CfgUclGroupIp> : Usual {
    using R = Nac_CfgUclGroupIp;
    static constexpr Text name = "Nac_CfgUclGroupIp";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>>;
};
static_assert(sizeof(Nac_CfgUclGroupIp) == 20);
static_assert(message_id<Nac_CfgUclGroupIp> == Nac_CfgUclGroupIp_ID);
static_assert(Image<Nac_CfgUclGroupIp>::bytes == 48 && Image<Nac_CfgUclGroupIp>::vtable_in_image == 28);

template <>
struct Description<Nac_ConfigAccessUserUclGroupIpMsg> : Usual {
    using R = Nac_ConfigAccessUserUclGroupIpMsg;
    static constexpr Text name = "Nac_ConfigAccessUserUclGroupIpMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};
static_assert(sizeof(Nac_ConfigAccessUserUclGroupIpMsg) == 24);
static_assert(message_id<Nac_ConfigAccessUserUclGroupIpMsg> == Nac_ConfigAccessUserUclGroupIpMsg_ID);
static_assert(Image<Nac_ConfigAccessUserUclGroupIpMsg>::bytes == 72 &&
              Image<Nac_ConfigAccessUserUclGroupIpMsg>::vtable_in_image == 60);

template <>
struct Description<Nac_ConfigAccessUserUclGroupIpAckMsg> : Usual {
    using R = Nac_ConfigAccessUserUclGroupIpAckMsg;
    static constexpr Text name = "Nac_ConfigAccessUserUclGroupIpAckMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>>;
};
static_assert(sizeof(Nac_ConfigAccessUserUclGroupIpAckMsg) == 28);
static_assert(message_id<Nac_ConfigAccessUserUclGroupIpAckMsg> == Nac_ConfigAccessUserUclGroupIpAckMsg_ID);
static_assert(Image<Nac_ConfigAccessUserUclGroupIpAckMsg>::bytes == 80 &&
              Image<Nac_ConfigAccessUserUclGroupIpAckMsg>::vtable_in_image == 64);

template <>
struct Description<Nac_UclGroupIpArray> : Usual {
    using R = Nac_UclGroupIpArray;
    static constexpr Text name = "Nac_UclGroupIpArray";
    static constexpr auto allocation_complaint =
        AllocationComplaint::one_blank;  // the arrays of this module only
    using Fields = List<Field<&R::f0>, Vector<&R::f1_count, &R::f1>>;
};
static_assert(sizeof(Nac_UclGroupIpArray) == 16);
static_assert(message_id<Nac_UclGroupIpArray> == Nac_UclGroupIpArray_ID);

template <>
struct Description<Nac_UclGroupIpAckArray> : Usual {
    using R = Nac_UclGroupIpAckArray;
    static constexpr Text name = "Nac_UclGroupIpAckArray";
    static constexpr auto allocation_complaint =
        AllocationComplaint::one_blank;  // the arrays of this module only
    using Fields = List<Field<&R::f0>, Vector<&R::f1_count, &R::f1>>;
};
static_assert(sizeof(Nac_UclGroupIpAckArray) == 16);
static_assert(message_id<Nac_UclGroupIpAckArray> == Nac_UclGroupIpAckArray_ID);

}  // namespace kaplo

#endif
