// SPDX-License-Identifier: Apache-2.0
// The receive unit of the user module.
#include "nac/receive_unit.h"
#include "nac/user.h"

namespace {
constinit kaplo::Unit unit;
[[gnu::constructor(nac::start_up_order::user_recv)]] void start_up() { unit.start_up(); }
}  // namespace

NAC_USER_MESSAGES(NAC_RECEIVE_FUNCTIONS)

extern "C" std::int32_t nac_fwm_user_recv_init(void) {
    return kaplo::register_in_order({NAC_USER_MESSAGES(NAC_REGISTRATION)});
}

extern "C" void nac_fwm_user__send_resource_clean(void) {}
