// SPDX-License-Identifier: Apache-2.0
// The send unit of the IPsec access module.
#include "nac/ipsec_access.h"
#include "nac/send_unit.h"

namespace {
constinit kaplo::Unit unit;
[[gnu::constructor(nac::start_up_order::ipsec_access_send)]] void start_up() { unit.start_up(); }
}  // namespace

NAC_IPSEC_ACCESS_MESSAGES(NAC_SEND_FUNCTIONS)

extern "C" std::int32_t nac_ipsec_access_send_init(void) {
    return VORN_RegIDLResorceCleanFuncHook(nac_ipsec_access__send_resource_clean);
}
