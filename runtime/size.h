// SPDX-License-Identifier: Apache-2.0
// The exact number of bytes that a record takes in the compact layout.
#ifndef KAPLO_SIZE_H
#define KAPLO_SIZE_H

#include <cstdint>

#include "runtime/description.h"

namespace kaplo {

inline constexpr std::uint64_t kLargestMessage = 0xFFFFFFFF;

// Whether the compact layout writes the field.
template <class F>
bool is_written(const typename F::Record& record) {
    if constexpr (F::kind == Kind::scalar) {
        return F::in(record) != 0;
    } else if constexpr (is_one_of<Kind::scalar_vector, Kind::table_vector>(F::kind)) {
        return F::count(record) != 0 && F::elements(record) != nullptr;
    } else {
        return true;
    }
}

// Whether the size includes the field: what is written, and for some types an empty vector's frame.
template <class F>
bool has_size(const typename F::Record& record) {
    if constexpr (F::kind == Kind::scalar_vector &&
                  Description<typename F::Record>::empty_vector_with_pointer_has_size) {
        return F::elements(record) != nullptr;
    } else {
        return is_written<F>(record);
    }
}

// Bytes of a table and all that it refers to. Stops counting above kLargestMessage, so that no sum wraps.
template <class Record>
std::uint64_t table_bytes(const Record& record) {
    std::uint64_t bytes = vtable_bytes<Record> + kReferenceBytes;
    each_field<Record>([&]<class F, std::uint32_t id> {
        if (!has_size<F>(record)) return;
        if constexpr (F::kind == Kind::scalar) {
            bytes += sizeof(typename F::Member);
        } else if constexpr (F::kind == Kind::fixed_array) {
            bytes += kReferenceBytes + fixed_array_bytes<F>;
        } else if constexpr (F::kind == Kind::nested_table) {
            bytes += kReferenceBytes + table_bytes(F::in(record));
        } else if constexpr (F::kind == Kind::scalar_vector) {
            bytes +=
                kReferenceBytes + kCountBytes + std::uint64_t{F::count(record)} * sizeof(typename F::Element);
        } else {
            bytes += kReferenceBytes + kCountBytes + std::uint64_t{F::count(record)} * kReferenceBytes;
            for (std::uint32_t k = 0; k < F::count(record) && bytes <= kLargestMessage; ++k) {
                bytes += table_bytes(F::elements(record)[k]);
            }
        }
    });
    return bytes;
}

// Bytes of a whole message; 0 for a null record and for one that does not fit 32 bits.
template <class Record>
std::uint32_t message_bytes(const Record* record) {
    if (record == nullptr) return 0;
    const std::uint64_t bytes = kReferenceBytes + table_bytes(*record);
    return bytes <= kLargestMessage ? static_cast<std::uint32_t>(bytes) : 0;
}

}  // namespace kaplo

#endif
