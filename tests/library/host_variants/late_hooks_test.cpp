// SPDX-License-Identifier: Apache-2.0
// Hooks that appear after a unit's first use: that unit never sees them, others that come later do.
//
// The module with the hooks stays loaded, so the tests count on CTest, which runs every test in a process of
// its own.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "nac/nac_messages.h"
#include "tests/support/bytes.h"
#include "tests/support/recording_bus.h"

namespace {

using namespace tests;

class LateHooks : public testing::Test {
  protected:
    LateHooks() { EXPECT_EQ(dlsym(RTLD_DEFAULT, "ZEB_OsalLogWrite"), nullptr); }

    void bring_hooks() {
        void* const module = dlopen(LATE_HOST, RTLD_NOW | RTLD_GLOBAL);
        ASSERT_NE(module, nullptr) << dlerror();
        calls_ = static_cast<const unsigned*>(dlsym(module, "late_host_calls"));
        ASSERT_NE(calls_, nullptr);
        ASSERT_NE(dlsym(RTLD_DEFAULT, "ZEB_OsalLogWrite"), nullptr);
    }
    unsigned calls() const { return *calls_; }

  private:
    const unsigned* calls_ = nullptr;
};

void exchange_list() {
    const Bytes list_of_one =
        hex("0a 00 00 00"        // root reference: table at 10
            "06 00 10 00 04 00"  // vtable: length, table length, offset of f0
            "06 00 00 00"        // soffset
            "04 00 00 00"        // reference of f0: vector at 18
            "01 00 00 00"        // one element
            "08 00 00 00"        // its table at 22 + 8 = 30
            "04 00 04 00"        // its vtable at 26, without slots
            "04 00 00 00");      // its soffset
    Nac_UserDataFlowMsg list = {};
    Nac_UserDataFlowMsg__unpack(list_of_one.data(), static_cast<std::uint32_t>(list_of_one.size()), &list);
    ASSERT_NE(list.f0, nullptr);
    EXPECT_EQ(Nac_UserDataFlowMsg__sendmsg(1, &list, 1), 0U);
    Nac_UserDataFlowMsg_free__unpacked(&list);
}

void log_on_both_sides() {
    Nac_UserDataFlowMsg list = {};
    EXPECT_EQ(Nac_UserDataFlowMsg__unpack(nullptr, 4, &list), sizeof list);
    std::uint32_t length = 14;
    EXPECT_EQ(Nac_UserDataFlowMsg__pack(&list, nullptr, &length), 0U);
}

TEST_F(LateHooks, AreNeverLookedUpAgain) {
    exchange_list();
    log_on_both_sides();
    bring_hooks();
    exchange_list();
    log_on_both_sides();
    EXPECT_EQ(calls(), 0U);
}

TEST_F(LateHooks, DoNotReceiveABlockThatTheSystemGave) {
    Nac_UserDataFlowMsg list = {};
    const Bytes list_of_one =
        hex("0a 00 00 00 06 00 10 00 04 00 06 00 00 00 04 00 00 00"  // root reference to reference of f0
            "01 00 00 00 08 00 00 00 04 00 04 00 04 00 00 00");      // the vector and its element
    Nac_UserDataFlowMsg__unpack(list_of_one.data(), static_cast<std::uint32_t>(list_of_one.size()), &list);
    ASSERT_NE(list.f0, nullptr);
    bring_hooks();
    Nac_UserDataFlowMsg_free__unpacked(&list);
    EXPECT_EQ(list.f0, nullptr);
    EXPECT_EQ(calls(), 0U);
}

TEST_F(LateHooks, ServeUnitsThatAreUsedForTheFirstTimeAfterwards) {
    exchange_list();
    bring_hooks();
    Nac_SetPortMsg port = {};
    EXPECT_EQ(Nac_SetPortMsg__unpack(nullptr, 4, &port), sizeof port);
    EXPECT_EQ(calls(), 2U) << "the use flag and the log line";
}

TEST_F(LateHooks, ServeTheGroupOfAUnitThatWasNotYetResolved) {
    exchange_list();  // the receive unit has logged nothing
    bring_hooks();
    log_on_both_sides();
    EXPECT_EQ(calls(), 1U) << "the receive unit's line; the send unit had resolved its log hooks to send";
}

}  // namespace
