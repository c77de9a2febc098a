// SPDX-License-Identifier: Apache-2.0
// The send unit of the data-flow module.
#include "nac/dataflow.h"
#include "nac/send_unit.h"

namespace {
constinit kaplo::Unit unit;
[[gnu::constructor(nac::start_up_order::dataflow_send)]] void start_up() { unit.start_up(); }
}  // namespace

NAC_DATAFLOW_MESSAGES(NAC_SEND_FUNCTIONS)

extern "C" std::int32_t nac_fwm_dataflow_send_init(void) {
    return VORN_RegIDLResorceCleanFuncHook(nac_fwm_dataflow__send_resource_clean);
}
