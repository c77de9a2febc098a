// SPDX-License-Identifier: Apache-2.0
// The descriptions of the Lease package: the fields of each record, in the order of their ids.
#ifndef LEASE_DESCRIPTIONS_H
#define LEASE_DESCRIPTIONS_H

#include "bus/message_id.h"
#include "lease.h"
#include "runtime/description.h"

namespace kaplo {

template <>
struct Description<Lease_Address> : Usual {
    using R = Lease_Address;
    static constexpr Text name = "Lease_Address";
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};

template <>
struct Description<Lease_Option> : Usual {
    using R = Lease_Option;
    static constexpr Text name = "Lease_Option";
    using Fields = List<Field<&R::f0>, Field<&R::f1>>;
};

template <>
struct Description<Lease_Binding> : Usual {
    using R = Lease_Binding;
    static constexpr Text name = "Lease_Binding";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>>;
};

template <>
struct Description<Lease_Request> : Usual {
    using R = Lease_Request;
    static constexpr Text name = "Lease_Request";
    using Fields =
        List<Field<&R::f0>, Field<&R::f1>, Vector<&R::f2_count, &R::f2>, Vector<&R::f3_count, &R::f3>>;
};
static_assert(message_id<Lease_Request> == Lease_Request_ID);

template <>
struct Description<Lease_Grant> : Usual {
    using R = Lease_Grant;
    static constexpr Text name = "Lease_Grant";
    using Fields =
        List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Vector<&R::f4_count, &R::f4>,
             Field<&R::f5>, Field<&R::f6>, Field<&R::f7>, Vector<&R::f8_count, &R::f8>>;
};
static_assert(message_id<Lease_Grant> == Lease_Grant_ID);

template <>
struct Description<Lease_Release> : Usual {
    using R = Lease_Release;
    static constexpr Text name = "Lease_Release";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>>;
};
static_assert(message_id<Lease_Release> == Lease_Release_ID);

template <>
struct Description<Lease_PoolReport> : Usual {
    using R = Lease_PoolReport;
    static constexpr Text name = "Lease_PoolReport";
    using Fields = List<Field<&R::f0>, Vector<&R::f1_count, &R::f1>, Vector<&R::f2_count, &R::f2>>;
};
static_assert(message_id<Lease_PoolReport> == Lease_PoolReport_ID);

}  // namespace kaplo

#endif
