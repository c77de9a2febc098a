// SPDX-License-Identifier: Apache-2.0
// The descriptions of all message types of the package.
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

#endif
