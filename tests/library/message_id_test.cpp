// SPDX-License-Identifier: Apache-2.0
// Message ids: the 32-bit FNV-1a hash of "Nac." and the message's name.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

#include "nac/catalogue.h"

namespace {

// The hash as it is published, once more and at run time.
std::uint32_t hash(std::string_view text) {
    std::uint64_t hash = 2166136261;
    for (const char character : text) {
        hash ^= static_cast<unsigned char>(character);
        hash = hash * 16777619 % (std::uint64_t{1} << 32);
    }
    return static_cast<std::uint32_t>(hash);
}

struct Id {
    const char* name;
    std::uint32_t decimal;
    std::uint32_t by_the_compiler;
    std::uint32_t in_the_header;
};

#define ID(name, decimal) \
    { #name, decimal, kaplo::message_id < Nac_##name>, Nac_##name##_ID }
constexpr Id kIds[] = {
    ID(UserDataFlowCfg, 1739711260),
    ID(UserDataFlowInfo, 1306267774),
    ID(UserDataFlowMsg, 405055467),
    ID(UserDataFlowQueryMsg, 760077815),
    ID(UserDataFlowQueryAckMsg, 127434504),
    ID(PortVlanChangeMsg, 3722180448),
    ID(SetPortMsg, 162890069),
    ID(CfgUclGroupIp, 3706811115),
    ID(ConfigAccessUserUclGroupIpMsg, 3927592541),
    ID(ConfigAccessUserUclGroupIpAckMsg, 2030903690),
    ID(UclGroupIpArray, 2813756148),
    ID(UclGroupIpAckArray, 1411917765),
    ID(SetUserTableMsg, 1201171741),
    ID(SetUserTableAckMsg, 563611466),
    ID(UserTableHitMsg, 3693736224),
    ID(L2NotifyNacUserOfflineMsg, 65888119),
    ID(TableVersionChangeMsg, 1937903990),
    ID(UserTableSyncAckMsg, 3987961879),
    ID(DaclRuleIpInfo, 3596447974),
    ID(RadiusDaclRule, 803935917),
    ID(UserDetectInfo, 1793511829),
    ID(IpsecAuthenReqMsg, 1423602749),
    ID(IpsecAuthenAckMsg, 1888098722),
    ID(IpsecDownReqMsg, 3966946584),
    ID(IpsecDownAckMsg, 722165955),
};
#undef ID

TEST(MessageId, IsTheHashOfThePackageAndTheName) {
    for (const Id& id : kIds) {
        EXPECT_EQ(id.by_the_compiler, id.decimal) << id.name;
        EXPECT_EQ(id.in_the_header, id.decimal) << id.name;
        EXPECT_EQ(hash(std::string("Nac.") + id.name), id.decimal) << id.name;
    }
}

TEST(MessageId, IsDifferentForEveryType) {
    std::set<std::uint32_t> ids;
    for (const Id& id : kIds) ids.insert(id.by_the_compiler);
    EXPECT_EQ(ids.size(), std::size(kIds));
}

TEST(MessageId, HashMeetsPublishedValues) {
    EXPECT_EQ(kaplo::fnv1a(kaplo::Text("")), 0x811C9DC5U);
    EXPECT_EQ(kaplo::fnv1a(kaplo::Text("a")), 0xE40C292CU);
    EXPECT_EQ(kaplo::fnv1a(kaplo::Text("foobar")), 0xBF9CF968U);
}

TEST(MessageId, OnlyTheFirstUnderscoreOfTheNameBecomesADot) {
    EXPECT_STREQ(kaplo::dotted(kaplo::Text("Nac_SetPortMsg")).c_str(), "Nac.SetPortMsg");
    EXPECT_STREQ(kaplo::dotted(kaplo::Text("Nac_Set_Port")).c_str(), "Nac.Set_Port");
}

TEST(MessageId, ANameWithoutAnUnderscoreStaysAsItIs) {
    EXPECT_STREQ(kaplo::dotted(kaplo::Text("Lease")).c_str(), "Lease");
}

}  // namespace
