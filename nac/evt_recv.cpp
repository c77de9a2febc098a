// SPDX-License-Identifier: Apache-2.0
// The receive unit of the event module.
#include "nac/evt.h"
#include "nac/receive_unit.h"

namespace {
constinit kaplo::Unit unit;
[[gnu::constructor(nac::start_up_order::evt_recv)]] void start_up() { unit.start_up(); }
}  // namespace

NAC_EVT_MESSAGES(NAC_RECEIVE_FUNCTIONS)

extern "C" std::int32_t nac_fwm_evt_recv_init(void) {
    return kaplo::register_in_order({NAC_EVT_MESSAGES(NAC_REGISTRATION)});
}

extern "C" void nac_fwm_evt__send_resource_clean(void) {}
