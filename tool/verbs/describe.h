// SPDX-License-Identifier: Apache-2.0
// Descriptions as JSON.
#ifndef TOOL_DESCRIBE_H
#define TOOL_DESCRIBE_H

#include "tool/message/record_json.h"

namespace tool {

// Names, kinds, sizes and offsets of a record type and of its fields; tables in it by name.
Json description_json(const MessageType& type);

}  // namespace tool

#endif
