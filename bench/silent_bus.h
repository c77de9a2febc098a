// SPDX-License-Identifier: Apache-2.0
// A bus that accepts everything and does nothing with it.
#ifndef BENCH_SILENT_BUS_H
#define BENCH_SILENT_BUS_H

#include <cstdint>

#include "bus/vorn_bus_api.h"

namespace bench {

// Sees what is sent while it is set; null while anything is measured.
using Tap = void (*)(const VORN_SendDescriptor* descriptors, std::uint32_t count);
extern Tap bus_tap;

}  // namespace bench

#endif
