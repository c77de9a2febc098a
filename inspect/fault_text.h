// SPDX-License-Identifier: Apache-2.0
// A fault as one sentence: header-only, so that the bus, which links nothing of libvorn_nac_inspect, writes
// the same.
#ifndef INSPECT_FAULT_TEXT_H
#define INSPECT_FAULT_TEXT_H

#include <cstddef>

#include "inspect/bounded_text.h"
#include "inspect/vorn_inspect.h"

namespace inspect {

// What vorn_inspect_fault_text does.
inline std::size_t write_fault_text(const vorn_fault& fault, char* text, std::size_t capacity) {
    BoundedText line(text, capacity);
    line.add("at ", fault.at, ", ", fault.path);
    if (fault.field == nullptr) line.add(*fault.path == '\0' ? "header" : " header");
    line.add(" of ", fault.table->name, ": ", fault.what);
    return line.length();
}

}  // namespace inspect

#endif
