// SPDX-License-Identifier: Apache-2.0
// Registration of the modules with the bus: order, ids, functions, and what a refusal does.
#include <algorithm>
#include <thread>

#include "tests/support/message.h"

namespace {

using namespace tests;

struct Entry {
    std::uint32_t message_id;
    const void* unpack;
    const void* free_unpacked;

    bool operator==(const Entry&) const = default;
};

struct Module {
    const char* name;
    std::int32_t (*recv_init)();
    std::int32_t (*send_init)();
    void (*resource_clean)();
    std::vector<Entry> first;    // in the order of registration
    std::vector<Entry> entries;  // the same, and after them the types that came later
};

void PrintTo(const Module& module, std::ostream* out) { *out << module.name; }

#define ENTRY(Message, id)                                                 \
    Entry {                                                                \
        id, reinterpret_cast<const void*>(&Nac_##Message##__unpack),       \
            reinterpret_cast<const void*>(&Nac_##Message##_free__unpacked) \
    }
#define LISTED(Message)                                                    \
    Entry{Message##_ID, reinterpret_cast<const void*>(&Message##__unpack), \
          reinterpret_cast<const void*>(&Message##_free__unpacked)},
#define FUNCTIONS(prefix) prefix##_recv_init, prefix##_send_init, prefix##__send_resource_clean

const Module kModules[] = {
    {"dataflow",
     FUNCTIONS(nac_fwm_dataflow),
     {ENTRY(UserDataFlowCfg, 0x67B1E31C), ENTRY(UserDataFlowInfo, 0x4DDC107E),
      ENTRY(UserDataFlowMsg, 0x1824A7EB), ENTRY(UserDataFlowQueryMsg, 0x2D4DDDF7),
      ENTRY(UserDataFlowQueryAckMsg, 0x07987F08)},
     {NAC_DATAFLOW_MESSAGES(LISTED)}},
    {"evt", FUNCTIONS(nac_fwm_evt), {ENTRY(PortVlanChangeMsg, 0xDDDBF760)}, {NAC_EVT_MESSAGES(LISTED)}},
    {"port", FUNCTIONS(nac_fwm_port), {ENTRY(SetPortMsg, 0x09B58155)}, {NAC_PORT_MESSAGES(LISTED)}},
    {"uclgroup",
     FUNCTIONS(nac_fwm_uclgroup),
     {ENTRY(CfgUclGroupIp, 0xDCF172EB), ENTRY(ConfigAccessUserUclGroupIpMsg, 0xEA1A4E5D),
      ENTRY(ConfigAccessUserUclGroupIpAckMsg, 0x790D218A), ENTRY(UclGroupIpArray, 0xA7B682F4),
      ENTRY(UclGroupIpAckArray, 0x542827C5)},
     {NAC_UCLGROUP_MESSAGES(LISTED)}},
    {"user",
     FUNCTIONS(nac_fwm_user),
     {ENTRY(SetUserTableMsg, 0x47986D1D), ENTRY(SetUserTableAckMsg, 0x2198074A),
      ENTRY(UserTableHitMsg, 0xDC29F120), ENTRY(L2NotifyNacUserOfflineMsg, 0x03ED5F77),
      ENTRY(TableVersionChangeMsg, 0x73821176), ENTRY(UserTableSyncAckMsg, 0xEDB37817)},
     {NAC_USER_MESSAGES(LISTED)}},
    {"user_type",
     FUNCTIONS(nac_fwm_user_type),
     {ENTRY(DaclRuleIpInfo, 0xD65D70E6), ENTRY(RadiusDaclRule, 0x2FEB16AD),
      ENTRY(UserDetectInfo, 0x6AE6D195)},
     {NAC_USER_TYPE_MESSAGES(LISTED)}},
    {"ipsec_access",
     FUNCTIONS(nac_ipsec_access),
     {ENTRY(IpsecAuthenReqMsg, 0x54DA743D), ENTRY(IpsecAuthenAckMsg, 0x708A19A2),
      ENTRY(IpsecDownReqMsg, 0xEC72CD18), ENTRY(IpsecDownAckMsg, 0x2B0B60C3)},
     {NAC_IPSEC_ACCESS_MESSAGES(LISTED)}},
};
#undef FUNCTIONS
#undef LISTED
#undef ENTRY

class EveryModule : public MessageTest, public testing::WithParamInterface<Module> {
  protected:
    std::vector<Entry> registered() const {
        std::vector<Entry> entries;
        for (const Registered& entry : bus.registrations()) {
            entries.push_back({entry.message_id, reinterpret_cast<const void*>(entry.unpack),
                               reinterpret_cast<const void*>(entry.free_unpacked)});
        }
        return entries;
    }
};

INSTANTIATE_TEST_SUITE_P(Registration, EveryModule, testing::ValuesIn(kModules),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(EveryModule, RegistersItsTypesInOrder) {
    EXPECT_EQ(GetParam().recv_init(), 0);
    EXPECT_EQ(registered(), GetParam().entries);
    ASSERT_GE(GetParam().entries.size(), GetParam().first.size());
    EXPECT_TRUE(std::equal(GetParam().first.begin(), GetParam().first.end(), GetParam().entries.begin()));
}

TEST_P(EveryModule, StopsAtTheFirstRefusalAndPassesItOn) {
    const std::vector<Entry>& entries = GetParam().entries;
    for (std::size_t nth = 0; nth < entries.size(); ++nth) {
        bus.reset();
        bus.refuse_registration(nth, 5);
        EXPECT_EQ(GetParam().recv_init(), 5);
        EXPECT_EQ(bus.registration_calls(), nth + 1);
        const auto end = entries.begin() + static_cast<std::ptrdiff_t>(nth);
        EXPECT_EQ(registered(), std::vector<Entry>(entries.begin(), end)) << "what is registered stays so";
    }
}

TEST_P(EveryModule, PassesOnANegativeAnswerToTheLastRegistration) {
    bus.refuse_registration(GetParam().entries.size() - 1, -1);
    EXPECT_EQ(GetParam().recv_init(), -1);
    EXPECT_EQ(bus.registration_calls(), GetParam().entries.size());
}

TEST_P(EveryModule, RegistersTheSameAgainWhenCalledAgain) {
    EXPECT_EQ(GetParam().recv_init(), 0);
    EXPECT_EQ(GetParam().recv_init(), 0);
    std::vector<Entry> twice = GetParam().entries;
    twice.insert(twice.end(), GetParam().entries.begin(), GetParam().entries.end());
    EXPECT_EQ(registered(), twice);
}

TEST_P(EveryModule, SendInitRegistersTheResourceCleanAlone) {
    EXPECT_EQ(GetParam().send_init(), 0);
    EXPECT_EQ(bus.resource_cleans(), (std::vector<VORN_IDLResourceCleanFunc>{GetParam().resource_clean}));
    EXPECT_TRUE(bus.registrations().empty());
}

TEST_P(EveryModule, SendInitPassesOnTheBussAnswer) {
    for (const std::int32_t answer : {5, -1}) {
        bus.reset();
        bus.refuse_registration(0, answer);
        EXPECT_EQ(GetParam().send_init(), answer);
    }
}

TEST_P(EveryModule, ResourceCleanHasNoEffectFromAnyThread) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([clean = GetParam().resource_clean] {
            for (int k = 0; k < 100; ++k) clean();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(bus.registration_calls(), 0U);
    EXPECT_TRUE(bus.sends().empty());
    EXPECT_TRUE(services.allocations().empty() && services.releases().empty() &&
                services.log_lines().empty());
}

TEST_P(EveryModule, InitialisationTouchesNothingOfTheHost) {
    GetParam().recv_init();
    GetParam().send_init();
    EXPECT_EQ(services.use_flag_calls(), 0U);
    EXPECT_TRUE(services.allocations().empty() && services.log_lines().empty());
}

class Registration : public MessageTest {};

TEST_F(Registration, UclgroupRefusedAtItsThirdTypeLeavesTheTwoArraysUnregistered) {
    bus.refuse_registration(2, 5);
    EXPECT_EQ(nac_fwm_uclgroup_recv_init(), 5);
    EXPECT_EQ(bus.registration_calls(), 3U);
    ASSERT_EQ(bus.registrations().size(), 2U);
    EXPECT_EQ(bus.registrations()[0].message_id, 3706811115U);  // Nac_CfgUclGroupIp
    EXPECT_EQ(bus.registrations()[1].message_id, 3927592541U);  // Nac_ConfigAccessUserUclGroupIpMsg
}

TEST_F(Registration, UserRefusedAtItsLastTypeMakesAllSixCalls) {
    bus.refuse_registration(5, -1);
    EXPECT_EQ(nac_fwm_user_recv_init(), -1);
    EXPECT_EQ(bus.registration_calls(), 6U);
}

TEST_F(Registration, UserTypeRefusedAtItsFirstTypeRegistersNothing) {
    bus.refuse_registration(0, 9);
    EXPECT_EQ(nac_fwm_user_type_recv_init(), 9);
    EXPECT_EQ(bus.registration_calls(), 1U);
    EXPECT_TRUE(bus.registrations().empty());
}

}  // namespace
