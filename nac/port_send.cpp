// SPDX-License-Identifier: Apache-2.0
// The send unit of the port module.
#include "nac/port.h"
#include "nac/send_unit.h"

namespace {
constinit kaplo::Unit unit;
[[gnu::constructor(nac::start_up_order::port_send)]] void start_up() { unit.start_up(); }
}  // namespace

NAC_PORT_MESSAGES(NAC_SEND_FUNCTIONS)

extern "C" std::int32_t nac_fwm_port_send_init(void) {
    return VORN_RegIDLResorceCleanFuncHook(nac_fwm_port__send_resource_clean);
}
