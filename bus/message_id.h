// SPDX-License-Identifier: Apache-2.0
// A message type's id on the bus: the 32-bit FNV-1a hash of its name.
#ifndef KAPLO_MESSAGE_ID_H
#define KAPLO_MESSAGE_ID_H

#include <cstddef>
#include <cstdint>

#include "runtime/description.h"

namespace kaplo {

// FNV-1a, 32 bits (Fowler, Noll, Vo). The terminating zero is not hashed.
template <std::size_t length>
constexpr std::uint32_t fnv1a(const Text<length>& text) {
    std::uint32_t hash = 0x811C9DC5;
    for (std::size_t i = 0; i < length; ++i) {
        hash = (hash ^ static_cast<unsigned char>(text.characters[i])) * 0x01000193;
    }
    return hash;
}

// The record's name as the bus spells it, with a dot after the package: "Nac.Lease" for Nac_Lease.
template <std::size_t length>
constexpr Text<length> dotted(Text<length> name) {
    for (char& character : name.characters) {
        if (character == '_') {
            character = '.';
            break;
        }
    }
    return name;
}

template <class Record>
inline constexpr std::uint32_t message_id = fnv1a(dotted(Description<Record>::name));

}  // namespace kaplo

#endif
