// SPDX-License-Identifier: Apache-2.0
// The receive unit of the IPsec access module.
#include "nac/ipsec_access.h"
#include "nac/receive_unit.h"

namespace {
constinit kaplo::Unit unit;
[[gnu::constructor(nac::start_up_order::ipsec_access_recv)]] void start_up() { unit.start_up(); }
}  // namespace

NAC_IPSEC_ACCESS_MESSAGES(NAC_RECEIVE_FUNCTIONS)

extern "C" std::int32_t nac_ipsec_access_recv_init(void) {
    return kaplo::register_in_order({NAC_IPSEC_ACCESS_MESSAGES(NAC_REGISTRATION)});
}

extern "C" void nac_ipsec_access__send_resource_clean(void) {}
