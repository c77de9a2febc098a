// SPDX-License-Identifier: Apache-2.0
// The messages of the data-flow module: settings and information about a user's data flow, and the query for
// them.
#ifndef NAC_DATAFLOW_H
#define NAC_DATAFLOW_H

#include "bus/message_id.h"
#include "nac/nac_messages.h"
#include "runtime/description.h"

namespace kaplo {

template <>
struct Description<Nac_UserDataFlowCfg> : Usual {
    using R = Nac_UserDataFlowCfg;
    static constexpr Text name = "Nac_UserDataFlowCfg";
    static constexpr bool nested_decoder_checks_arguments = true;  // the one decoder that does
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>>;
};
static_assert(sizeof(Nac_UserDataFlowCfg) == 32);
static_assert(message_id<Nac_UserDataFlowCfg> == Nac_UserDataFlowCfg_ID);
static_assert(Image<Nac_UserDataFlowCfg>::bytes == 56 && Image<Nac_UserDataFlowCfg>::vtable_in_image == 40);

template <>
struct Description<Nac_UserDataFlowInfo> : Usual {
    using R = Nac_UserDataFlowInfo;
    static constexpr Text name = "Nac_UserDataFlowInfo";
    static constexpr bool root_decodes_as_nested =
        true;  // one decoder for root, list element and query answer
    using Fields =
        List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>, Field<&R::f5>>;
};
static_assert(sizeof(Nac_UserDataFlowInfo) == 136);
static_assert(message_id<Nac_UserDataFlowInfo> == Nac_UserDataFlowInfo_ID);
static_assert(Image<Nac_UserDataFlowInfo>::bytes == 256 &&
              Image<Nac_UserDataFlowInfo>::vtable_in_image == 240);

template <>
struct Description<Nac_UserDataFlowMsg> : Usual {
    using R = Nac_UserDataFlowMsg;
    static constexpr Text name = "Nac_UserDataFlowMsg";
    static constexpr bool root_decodes_as_nested = true;  // faults and allocations carry the nested name
    using Fields = List<Vector<&R::f0_count, &R::f0>>;
};
static_assert(sizeof(Nac_UserDataFlowMsg) == 16);
static_assert(message_id<Nac_UserDataFlowMsg> == Nac_UserDataFlowMsg_ID);

template <>
struct Description<Nac_UserDataFlowQueryMsg> : Usual {
    using R = Nac_UserDataFlowQueryMsg;
    static constexpr Text name = "Nac_UserDataFlowQueryMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};
static_assert(sizeof(Nac_UserDataFlowQueryMsg) == 8);
static_assert(message_id<Nac_UserDataFlowQueryMsg> == Nac_UserDataFlowQueryMsg_ID);
static_assert(Image<Nac_UserDataFlowQueryMsg>::bytes == 24 &&
              Image<Nac_UserDataFlowQueryMsg>::vtable_in_image == 16);

template <>
struct Description<Nac_UserDataFlowQueryAckMsg> : Usual {
    using R = Nac_UserDataFlowQueryAckMsg;
    static constexpr Text name = "Nac_UserDataFlowQueryAckMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};
static_assert(sizeof(Nac_UserDataFlowQueryAckMsg) == 144);
static_assert(message_id<Nac_UserDataFlowQueryAckMsg> == Nac_UserDataFlowQueryAckMsg_ID);
static_assert(Image<Nac_UserDataFlowQueryAckMsg>::bytes == 280 &&
              Image<Nac_UserDataFlowQueryAckMsg>::vtable_in_image == 268);

}  // namespace kaplo

#endif
