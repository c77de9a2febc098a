// SPDX-License-Identifier: Apache-2.0
// The exact number of bytes that a record takes in the compact layout.
#ifndef KAPLO_SIZE_H
#define KAPLO_SIZE_H

#include <array>
#include <bit>
#include <cstdint>

#include "runtime/description.h"
#include "runtime/inline.h"

namespace kaplo {

inline constexpr std::uint64_t kLargestMessage = 0xFFFFFFFF;

// Whether the compact layout writes the field.
template <class F>
constexpr bool is_written(const typename F::Record& record) {
    if constexpr (F::kind == Kind::scalar) {
        return F::in(record) != 0;
    } else if constexpr (is_one_of<Kind::scalar_vector, Kind::table_vector>(F::kind)) {
        return F::count(record) != 0 && F::elements(record) != nullptr;
    } else {
        return true;
    }
}

// Whether the size includes the field: what is written, and for some types an empty vector.
template <class F>
constexpr bool has_size(const typename F::Record& record) {
    if constexpr (F::kind == Kind::scalar_vector &&
                  Description<typename F::Record>::empty_vector_with_pointer_has_size) {
        return F::elements(record) != nullptr;
    } else {
        return is_written<F>(record);
    }
}

// Which scalars a size counts: those that are not 0, or all.
enum class Counting : bool { written, all };

// How many scalars of 1, 2, 4 and 8 bytes a size counts.
using ScalarCounts = std::array<std::uint64_t, 4>;

// Bytes of a table and all that it refers to, but for the scalars of this table and its inner ones, which are
// added to `scalars`. Stops counting above kLargestMessage, so that no sum wraps.
template <Counting counting, class Record>
KAPLO_INLINE constexpr std::uint64_t count_bytes(const Record& record, ScalarCounts& scalars);

template <Counting counting = Counting::written, class Record>
[[gnu::flatten]] constexpr std::uint64_t table_bytes(const Record& record) {
    ScalarCounts scalars = {};
    const std::uint64_t bytes = count_bytes<counting>(record, scalars);
    return bytes + scalars[0] + 2 * scalars[1] + 4 * scalars[2] + 8 * scalars[3];
}

template <Counting counting, class Record>
KAPLO_INLINE constexpr std::uint64_t count_bytes(const Record& record, ScalarCounts& scalars) {
    std::uint64_t bytes = header_bytes<Record>;
    each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        if constexpr (F::kind == Kind::scalar) {
            if constexpr (counting == Counting::all) {
                bytes += sizeof(typename F::Member);
            } else {
                count_if(F::in(record) != 0, scalars[std::countr_zero(sizeof(typename F::Member))]);
            }
        } else if constexpr (F::kind == Kind::fixed_array) {
            bytes += kReferenceBytes + fixed_array_bytes<F>;
        } else if constexpr (F::kind == Kind::nested_table) {
            bytes += kReferenceBytes + count_bytes<counting>(F::in(record), scalars);
        } else if (has_size<F>(record)) {
            using Element = typename F::Element;
            const std::uint64_t count = F::count(record);
            bytes += kReferenceBytes + kCountBytes;
            if constexpr (F::kind == Kind::scalar_vector) {
                bytes += count * sizeof(Element);
            } else if constexpr (counting == Counting::all) {
                bytes += count * (kReferenceBytes + table_bytes<counting>(Element{}));
            } else {
                bytes += count * kReferenceBytes;
                for (std::uint32_t k = 0; k < count && bytes <= kLargestMessage; ++k) {
                    bytes += table_bytes(F::elements(record)[k]);
                }
            }
        }
    });
    return bytes;
}

// Bytes that the size of a table includes, but the writer leaves out.
template <class Record>
std::uint32_t left_out_bytes(const Record& record) {
    std::uint32_t bytes = 0;
    each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        if constexpr (F::kind == Kind::scalar_vector) {
            if (has_size<F>(record) && !is_written<F>(record)) bytes += kReferenceBytes + kCountBytes;
        }
    });
    return bytes;
}

// Bytes of a whole message; 0 for a null record and for one that does not fit 32 bits.
template <class Record>
std::uint32_t message_bytes(const Record* record) {
    if (record == nullptr) return 0;
    const std::uint64_t bytes = kReferenceBytes + table_bytes(*record);
    return !owns_memory<Record> || bytes <= kLargestMessage ? static_cast<std::uint32_t>(bytes) : 0;
}

// Bytes that the message would have if no scalar were 0: a bound that costs no walk over elements.
template <class Record>
std::uint64_t most_message_bytes(const Record& record) {
    return kReferenceBytes + table_bytes<Counting::all>(record);
}

}  // namespace kaplo

#endif
