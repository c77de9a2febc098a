// SPDX-License-Identifier: Apache-2.0
// The Nac package's catalogue.
#include "nac/catalogue.h"

#include "inspect/package_catalogue.h"

VORN_CATALOGUE(Nac, nac, NAC_ALL_MODULES)
