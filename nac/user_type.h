// SPDX-License-Identifier: Apache-2.0
// The messages of the user type module: downloadable ACL rules and user detection.
#ifndef NAC_USER_TYPE_H
#define NAC_USER_TYPE_H

#include "bus/message_id.h"
#include "nac/nac_messages.h"
#include "runtime/description.h"

namespace kaplo {

template <>
struct Description<Nac_DaclRuleIpInfo> : Usual {
    using R = Nac_DaclRuleIpInfo;
    static constexpr Text name = "Nac_DaclRuleIpInfo";
    static constexpr bool root_decodes_as_nested = true;      // one decoder for root and RADIUS rule
    static constexpr bool scalars_precede_references = true;  // the six addresses close the table
    using Fields =
        List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>, Field<&R::f5>,
             Field<&R::f6>, Field<&R::f7>, Field<&R::f8>, Field<&R::f9>, Field<&R::f10>, Field<&R::f11>,
             Field<&R::f12>, Field<&R::f13>, Field<&R::f14>, Field<&R::f15>, Field<&R::f16>, Field<&R::f17>,
             Field<&R::f18>, Field<&R::f19>, Field<&R::f20>, Field<&R::f21>, Field<&R::f22>, Field<&R::f23>,
             Field<&R::f24>, Field<&R::f25>, Field<&R::f26>, Field<&R::f27>>;
};
static_assert(sizeof(Nac_DaclRuleIpInfo) == 124);
static_assert(message_id<Nac_DaclRuleIpInfo> == Nac_DaclRuleIpInfo_ID);
static_assert(Image<Nac_DaclRuleIpInfo>::bytes == 240 && Image<Nac_DaclRuleIpInfo>::vtable_in_image == 180);

template <>
struct Description<Nac_RadiusDaclRule> : Usual {
    using R = Nac_RadiusDaclRule;
    static constexpr Text name = "Nac_RadiusDaclRule";
    static constexpr bool root_decodes_as_nested = true;  // one decoder for root and user table
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>,
                        Field<&R::f5>, Field<&R::f6>>;
};
static_assert(sizeof(Nac_RadiusDaclRule) == 148);
static_assert(message_id<Nac_RadiusDaclRule> == Nac_RadiusDaclRule_ID);
static_assert(Image<Nac_RadiusDaclRule>::bytes == 296 && Image<Nac_RadiusDaclRule>::vtable_in_image == 272);

template <>
struct Description<Nac_UserDetectInfo> : Usual {
    using R = Nac_UserDetectInfo;
    static constexpr Text name = "Nac_UserDetectInfo";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>>;
};
static_assert(sizeof(Nac_UserDetectInfo) == 8);
static_assert(message_id<Nac_UserDetectInfo> == Nac_UserDetectInfo_ID);
static_assert(Image<Nac_UserDetectInfo>::bytes == 32 && Image<Nac_UserDetectInfo>::vtable_in_image == 16);

}  // namespace kaplo

#endif
