// SPDX-License-Identifier: Apache-2.0
// The order in which the fourteen units start.
#ifndef NAC_START_UP_ORDER_H
#define NAC_START_UP_ORDER_H

// Priorities of the start-up constructors: the units start in this order, however they are linked.
namespace nac::start_up_order {
enum : int {
    dataflow_recv = 201,  // 0 to 100 are the compiler's
    dataflow_send,
    evt_recv,
    evt_send,
    port_recv,
    port_send,
    uclgroup_recv,
    uclgroup_send,
    user_recv,
    user_send,
    user_type_recv,
    user_type_send,
    ipsec_access_recv,
    ipsec_access_send,
};
}  // namespace nac::start_up_order

#endif
