// SPDX-License-Identifier: Apache-2.0
// All message types of the package, module by module: for tools and tests that walk them.
#ifndef NAC_CATALOGUE_H
#define NAC_CATALOGUE_H

#include "nac/dataflow.h"
#include "nac/evt.h"
#include "nac/ipsec_access.h"
#include "nac/message_functions.hpp"
#include "nac/port.h"
#include "nac/uclgroup.h"
#include "nac/user.h"
#include "nac/user_type.h"

// Applies MODULE to each module's name, the prefix of its functions, and the list of its messages.
#define NAC_ALL_MODULES(MODULE)                                  \
    MODULE(dataflow, nac_fwm_dataflow, NAC_DATAFLOW_MESSAGES)    \
    MODULE(evt, nac_fwm_evt, NAC_EVT_MESSAGES)                   \
    MODULE(port, nac_fwm_port, NAC_PORT_MESSAGES)                \
    MODULE(uclgroup, nac_fwm_uclgroup, NAC_UCLGROUP_MESSAGES)    \
    MODULE(user, nac_fwm_user, NAC_USER_MESSAGES)                \
    MODULE(user_type, nac_fwm_user_type, NAC_USER_TYPE_MESSAGES) \
    MODULE(ipsec_access, nac_ipsec_access, NAC_IPSEC_ACCESS_MESSAGES)

#endif
