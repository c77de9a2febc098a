// SPDX-License-Identifier: Apache-2.0
// Records on one line, for people.
#ifndef TOOL_BRIEF_H
#define TOOL_BRIEF_H

#include <string>

#include "tool/message/octets.h"

namespace tool {

// A record without its fields that are zero, cut to fit a table's last column: "{f0=18 f1={f2=7} f3=[1 2]}".
std::string summary(const MessageType& type, const void* record, Octets octets);

// Elements of a record that are enough for its summary.
inline constexpr std::size_t kSummaryElements = 1000;

}  // namespace tool

#endif
