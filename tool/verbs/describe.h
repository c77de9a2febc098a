// SPDX-License-Identifier: Apache-2.0
// Shapes as JSON.
#ifndef TOOL_DESCRIBE_H
#define TOOL_DESCRIBE_H

#include "tool/message/record_json.h"
#include "tool/message/shape.h"

namespace tool {

// Names, kinds, sizes and offsets of a record type and of its fields; tables in it by name.
Json shape_to_json(const Shape& shape);

}  // namespace tool

#endif
