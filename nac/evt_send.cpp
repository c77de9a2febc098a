// SPDX-License-Identifier: Apache-2.0
// The send unit of the event module.
#include "nac/evt.h"
#include "nac/send_unit.h"

namespace {
constinit kaplo::Unit unit;
[[gnu::constructor(nac::start_up_order::evt_send)]] void start_up() { unit.start_up(); }
}  // namespace

NAC_EVT_MESSAGES(NAC_SEND_FUNCTIONS)

extern "C" std::int32_t nac_fwm_evt_send_init(void) {
    return VORN_RegIDLResorceCleanFuncHook(nac_fwm_evt__send_resource_clean);
}
