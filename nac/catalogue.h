// SPDX-License-Identifier: Apache-2.0
// All message types of the package, module by module: for tools and tests that walk them.
#ifndef NAC_CATALOGUE_H
#define NAC_CATALOGUE_H

#include "nac/dataflow.h"
#include "nac/evt.h"
#include "nac/ipsec_access.h"
#include "nac/port.h"
#include "nac/uclgroup.h"
#include "nac/user.h"
#include "nac/user_type.h"

#define NAC_ALL_MESSAGES(MESSAGE)   \
    NAC_DATAFLOW_MESSAGES(MESSAGE)  \
    NAC_EVT_MESSAGES(MESSAGE)       \
    NAC_PORT_MESSAGES(MESSAGE)      \
    NAC_UCLGROUP_MESSAGES(MESSAGE)  \
    NAC_USER_MESSAGES(MESSAGE)      \
    NAC_USER_TYPE_MESSAGES(MESSAGE) \
    NAC_IPSEC_ACCESS_MESSAGES(MESSAGE)

// Applies MODULE to each module and the prefix of its functions.
#define NAC_ALL_MODULES(MODULE)          \
    MODULE(dataflow, nac_fwm_dataflow)   \
    MODULE(evt, nac_fwm_evt)             \
    MODULE(port, nac_fwm_port)           \
    MODULE(uclgroup, nac_fwm_uclgroup)   \
    MODULE(user, nac_fwm_user)           \
    MODULE(user_type, nac_fwm_user_type) \
    MODULE(ipsec_access, nac_ipsec_access)

namespace nac {

// The seven exported functions of a message type, found by its record.
template <class Record>
struct Functions;

#define NAC_FUNCTIONS_OF(Message)                                   \
    template <>                                                     \
    struct Functions<Message> {                                     \
        static constexpr auto pack = &Message##__pack;              \
        static constexpr auto unpack = &Message##__unpack;          \
        static constexpr auto free = &Message##_free__unpacked;     \
        static constexpr auto send_single = &Message##__sendsingle; \
        static constexpr auto send_batch = &Message##__sendbatch;   \
        static constexpr auto send = &Message##__sendmsg;           \
        static constexpr auto send_to = &Message##__sendtomsg;      \
    };
NAC_ALL_MESSAGES(NAC_FUNCTIONS_OF)
#undef NAC_FUNCTIONS_OF

}  // namespace nac

#endif
