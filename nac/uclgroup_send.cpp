// SPDX-License-Identifier: Apache-2.0
// The send unit of the UCL group module.
#include "nac/send_unit.h"
#include "nac/uclgroup.h"

namespace {
constinit kaplo::Unit unit;
[[gnu::constructor(nac::start_up_order::uclgroup_send)]] void start_up() { unit.start_up(); }
}  // namespace

NAC_UCLGROUP_MESSAGES(NAC_SEND_FUNCTIONS)

extern "C" std::int32_t nac_fwm_uclgroup_send_init(void) {
    return VORN_RegIDLResorceCleanFuncHook(nac_fwm_uclgroup__send_resource_clean);
}
