// SPDX-License-Identifier: Apache-2.0
// The messages of the IPsec access module: authentication and teardown of IPsec users.
#ifndef NAC_IPSEC_ACCESS_H
#define NAC_IPSEC_ACCESS_H

#include "bus/message_id.h"
#include "nac/nac_messages.h"
#include "runtime/description.h"

namespace kaplo {

template <>
struct Description<Nac_IpsecAuthenReqMsg> : Usual {
    using R = Nac_IpsecAuthenReqMsg;
    static constexpr Text name = "Nac_IpsecAuthenReqMsg";
    static constexpr bool root_decodes_as_nested = true;  // faults and allocations carry the nested name
    static constexpr bool empty_vector_with_pointer_has_size = true;  // sized by pointer, written by count
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>,
                        Vector<&R::f5_count, &R::f5>, Vector<&R::f6_count, &R::f6>, Field<&R::f7>,
                        Vector<&R::f8_count, &R::f8>, Field<&R::f9>, Field<&R::f10>, Field<&R::f11>,
                        Field<&R::f12>, Field<&R::f13>, Field<&R::f14>, Vector<&R::f15_count, &R::f15>>;
};
static_assert(sizeof(Nac_IpsecAuthenReqMsg) == 104);
static_assert(message_id<Nac_IpsecAuthenReqMsg> == Nac_IpsecAuthenReqMsg_ID);

template <>
struct Description<Nac_IpsecAuthenAckMsg> : Usual {
    using R = Nac_IpsecAuthenAckMsg;
    static constexpr Text name = "Nac_IpsecAuthenAckMsg";
    static constexpr bool root_decodes_as_nested = true;  // faults and allocations carry the nested name
    static constexpr bool empty_vector_with_pointer_has_size = true;  // sized by pointer, written by count
    using Fields =
        List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>, Field<&R::f5>,
             Field<&R::f6>, Field<&R::f7>, Field<&R::f8>, Field<&R::f9>, Field<&R::f10>, Field<&R::f11>,
             Field<&R::f12>, Field<&R::f13>, Vector<&R::f14_count, &R::f14>, Vector<&R::f15_count, &R::f15>,
             Vector<&R::f16_count, &R::f16>>;
};
static_assert(sizeof(Nac_IpsecAuthenAckMsg) == 104);
static_assert(message_id<Nac_IpsecAuthenAckMsg> == Nac_IpsecAuthenAckMsg_ID);

template <>
struct Description<Nac_IpsecDownReqMsg> : Usual {
    using R = Nac_IpsecDownReqMsg;
    static constexpr Text name = "Nac_IpsecDownReqMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>>;
};
static_assert(sizeof(Nac_IpsecDownReqMsg) == 20);
static_assert(message_id<Nac_IpsecDownReqMsg> == Nac_IpsecDownReqMsg_ID);
static_assert(Image<Nac_IpsecDownReqMsg>::bytes == 48 && Image<Nac_IpsecDownReqMsg>::vtable_in_image == 28);

template <>
struct Description<Nac_IpsecDownAckMsg> : Usual {
    using R = Nac_IpsecDownAckMsg;
    static constexpr Text name = "Nac_IpsecDownAckMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>>;
};
static_assert(sizeof(Nac_IpsecDownAckMsg) == 20);
static_assert(message_id<Nac_IpsecDownAckMsg> == Nac_IpsecDownAckMsg_ID);
static_assert(Image<Nac_IpsecDownAckMsg>::bytes == 48 && Image<Nac_IpsecDownAckMsg>::vtable_in_image == 28);

}  // namespace kaplo

#endif
