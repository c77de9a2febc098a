// SPDX-License-Identifier: Apache-2.0
// Release of the arrays that unpack allocated for a record.
#ifndef KAPLO_RELEASE_H
#define KAPLO_RELEASE_H

#include <cstdint>

#include "runtime/description.h"

namespace kaplo {

// Gives the arrays back and nulls their pointers; the counts stay. A second call finds nothing to release.
template <class Record>
void release(const Unit& unit, Record& record) {
    each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (is_one_of<Kind::scalar_vector, Kind::table_vector>(F::kind)) {
            constexpr bool frees_null =
                F::kind == Kind::scalar_vector && Description<Record>::frees_null_scalar_arrays;
            if (!frees_null && F::elements(record) == nullptr) return;
            free_received(unit, F::elements(record), free_name<Record>.c_str());
            F::elements(record) = nullptr;
        }
    });
}

// The exported free of every message type.
template <class Record>
void free_unpacked(Unit& unit, Record* record) {
    if constexpr (owns_memory<Record>) {
        if (record == nullptr) return;
        KaploMemHooksInit(unit);
        release(unit, *record);
    }
}

}  // namespace kaplo

#endif
