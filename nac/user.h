// SPDX-License-Identifier: Apache-2.0
// The messages of the user module: the access-user table, its acknowledgements and notices.
#ifndef NAC_USER_H
#define NAC_USER_H

#include "bus/message_id.h"
#include "nac/nac_messages.h"
#include "nac/user_type.h"
#include "runtime/description.h"

namespace kaplo {

template <>
struct Description<Nac_Ipv6Addr> : Usual {
    using R = Nac_Ipv6Addr;
    static constexpr Text name = "Nac_Ipv6Addr";
    using Fields = List<Field<&R::f0>>;
};
static_assert(sizeof(Nac_Ipv6Addr) == 16);

template <>
struct Description<Nac_SrvCar> : Usual {
    using R = Nac_SrvCar;
    static constexpr Text name = "Nac_SrvCar";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>>;
};
static_assert(sizeof(Nac_SrvCar) == 20);

template <>
struct Description<Nac_SetUserTableMsg> : Usual {
    using R = Nac_SetUserTableMsg;
    static constexpr Text name = "Nac_SetUserTableMsg";
    static constexpr bool root_decodes_as_nested = true;      // faults and allocations carry the nested name
    static constexpr bool scalars_precede_references = true;  // 42 scalars, then 13 references
    // The stated length is the inline part and the two fixed arrays, even where vectors lie between these, so
    // that it may end short of the second. Kept so: no reader relies on it.
    static constexpr bool table_length_omits_vectors = true;
    // Sized by pointer, written by count: callers pass a null pointer with count 0.
    static constexpr bool empty_vector_with_pointer_has_size = true;
    // Only the two arrays of tables are tested first; the host's free hook takes null.
    static constexpr bool frees_null_scalar_arrays = true;
    using Fields =
        List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>, Field<&R::f5>,
             Field<&R::f6>, Field<&R::f7>, Field<&R::f8>, Field<&R::f9>, Field<&R::f10>, Field<&R::f11>,
             Vector<&R::f12_count, &R::f12>, Field<&R::f13>, Field<&R::f14>, Vector<&R::f15_count, &R::f15>,
             Vector<&R::f16_count, &R::f16>, Field<&R::f17>, Field<&R::f18>, Field<&R::f19>, Field<&R::f20>,
             Field<&R::f21>, Field<&R::f22>, Field<&R::f23>, Field<&R::f24>, Field<&R::f25>, Field<&R::f26>,
             Field<&R::f27>, Field<&R::f28>, Field<&R::f29>, Field<&R::f30>, Vector<&R::f31_count, &R::f31>,
             Vector<&R::f32_count, &R::f32>, Field<&R::f33>, Field<&R::f34>, Field<&R::f35>, Field<&R::f36>,
             Field<&R::f37>, Field<&R::f38>, Field<&R::f39>, Field<&R::f40>, Field<&R::f41>,
             Vector<&R::f42_count, &R::f42>, Field<&R::f43>, Field<&R::f44>, Field<&R::f45>, Field<&R::f46>,
             Field<&R::f47>, Field<&R::f48>, Field<&R::f49>, Field<&R::f50>, Vector<&R::f51_count, &R::f51>,
             Vector<&R::f52_count, &R::f52>, Field<&R::f53>, Field<&R::f54>>;
};
static_assert(sizeof(Nac_SetUserTableMsg) == 328);
static_assert(message_id<Nac_SetUserTableMsg> == Nac_SetUserTableMsg_ID);

template <>
struct Description<Nac_SetUserTableAckMsg> : Usual {
    using R = Nac_SetUserTableAckMsg;
    static constexpr Text name = "Nac_SetUserTableAckMsg";
    static constexpr bool root_decodes_as_nested = true;  // a header fault leaves an all-zero record
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>,
                        Field<&R::f5>, Field<&R::f6>, Field<&R::f7>, Field<&R::f8>>;
};
static_assert(sizeof(Nac_SetUserTableAckMsg) == 36);
static_assert(message_id<Nac_SetUserTableAckMsg> == Nac_SetUserTableAckMsg_ID);
static_assert(Image<Nac_SetUserTableAckMsg>::bytes == 72 &&
              Image<Nac_SetUserTableAckMsg>::vtable_in_image == 44);

template <>
struct Description<Nac_UserTableHitMsg> : Usual {
    using R = Nac_UserTableHitMsg;
    static constexpr Text name = "Nac_UserTableHitMsg";
    static constexpr bool root_decodes_as_nested = true;  // a header fault leaves an all-zero record
    using Fields =
        List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>, Field<&R::f5>>;
};
static_assert(sizeof(Nac_UserTableHitMsg) == 24);
static_assert(message_id<Nac_UserTableHitMsg> == Nac_UserTableHitMsg_ID);
static_assert(Image<Nac_UserTableHitMsg>::bytes == 48 && Image<Nac_UserTableHitMsg>::vtable_in_image == 32);

template <>
struct Description<Nac_L2NotifyNacUserOfflineMsg> : Usual {
    using R = Nac_L2NotifyNacUserOfflineMsg;
    static constexpr Text name = "Nac_L2NotifyNacUserOfflineMsg";
    static constexpr bool root_decodes_as_nested = true;      // a header fault leaves an all-zero record
    static constexpr bool scalars_precede_references = true;  // the address closes the table
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>,
                        Field<&R::f5>, Field<&R::f6>, Field<&R::f7>>;
};
static_assert(sizeof(Nac_L2NotifyNacUserOfflineMsg) == 32);
static_assert(message_id<Nac_L2NotifyNacUserOfflineMsg> == Nac_L2NotifyNacUserOfflineMsg_ID);
static_assert(Image<Nac_L2NotifyNacUserOfflineMsg>::bytes == 72 &&
              Image<Nac_L2NotifyNacUserOfflineMsg>::vtable_in_image == 48);

template <>
struct Description<Nac_TableVersionChangeMsg> : Usual {
    using R = Nac_TableVersionChangeMsg;
    static constexpr Text name = "Nac_TableVersionChangeMsg";
    using Fields = List<Field<&R::f0>>;
};
static_assert(sizeof(Nac_TableVersionChangeMsg) == 4);
static_assert(message_id<Nac_TableVersionChangeMsg> == Nac_TableVersionChangeMsg_ID);
static_assert(Image<Nac_TableVersionChangeMsg>::bytes == 24 &&
              Image<Nac_TableVersionChangeMsg>::vtable_in_image == 12);

template <>
struct Description<Nac_UserTableSyncAckMsg> : Usual {
    using R = Nac_UserTableSyncAckMsg;
    static constexpr Text name = "Nac_UserTableSyncAckMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>>;
};
static_assert(sizeof(Nac_UserTableSyncAckMsg) == 20);
static_assert(message_id<Nac_UserTableSyncAckMsg> == Nac_UserTableSyncAckMsg_ID);
static_assert(Image<Nac_UserTableSyncAckMsg>::bytes == 48 &&
              Image<Nac_UserTableSyncAckMsg>::vtable_in_image == 28);

}  // namespace kaplo

#endif
