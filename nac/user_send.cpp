// SPDX-License-Identifier: Apache-2.0
// The send unit of the user module.
#include "nac/send_unit.h"
#include "nac/user.h"

namespace {
constinit kaplo::Unit unit;
[[gnu::constructor(nac::start_up_order::user_send)]] void start_up() { unit.start_up(); }
}  // namespace

NAC_USER_MESSAGES(NAC_SEND_FUNCTIONS)

extern "C" std::int32_t nac_fwm_user_send_init(void) {
    return VORN_RegIDLResorceCleanFuncHook(nac_fwm_user__send_resource_clean);
}
