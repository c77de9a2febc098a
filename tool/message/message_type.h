// SPDX-License-Identifier: Apache-2.0
// The message types of the packages that the tool works on, by name or id.
#ifndef TOOL_MESSAGE_TYPE_H
#define TOOL_MESSAGE_TYPE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "inspect/vorn_inspect.h"

namespace tool {

using MessageType = vorn_type;  // or a table that travels only inside messages
using Field = vorn_field;

inline std::span<const Field* const> fields_of(const MessageType& type) {
    return {type.fields, type.field_count};
}

// Where nothing else is asked for, the Nac package's.
const std::vector<const vorn_catalogue*>& catalogues();
// Throws CommandError if the file is none.
const vorn_catalogue& load_catalogue(const std::string& file);
// Before types are asked for: from now on the catalogues of these files, as vorn_inspect_load finds them, and
// no others. Throws CommandError.
void load_catalogues(const std::vector<std::string>& files);

// All types, each after the tables in it.
const std::vector<const MessageType*>& all_types();

// All messages, module by module.
const std::vector<const MessageType*>& message_types();

// Null: there is none.
const MessageType* find_type(const std::string& name);
const MessageType* find_message_type(std::uint32_t id);

// Reads a message type as users name it: its full name, or its id as "0x09B58155" or "162890069". Null if
// there is none.
const MessageType* named_message_type(const std::string& text);

// "Nac_SetPort is not a message type; did you mean Nac_SetPortMsg?"
std::string no_such_type(const std::string& text);

// A message type's name, or its id where it has none here.
std::string type_name(std::uint32_t id);

}  // namespace tool

#endif
