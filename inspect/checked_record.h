// SPDX-License-Identifier: Apache-2.0
// Records that are read to learn whether their message is valid: unpack's own decoder, but of an array, one
// element after the other is read to the same storage, so that nothing is allocated.
#ifndef INSPECT_CHECKED_RECORD_H
#define INSPECT_CHECKED_RECORD_H

#include <cstdint>
#include <type_traits>

#include "runtime/unpack.h"

namespace inspect {

// Logs nothing.
extern kaplo::Unit silent_unit;

// A record with vectors, to be checked: the decoder reads it as a type of its own.
template <class Record>
struct Checked : Record {};

template <class F>
struct CheckedVector : F {
    static constexpr bool is_only_checked = true;
};

template <class F>
auto checked_field() {
    if constexpr (kaplo::is_one_of<kaplo::Kind::scalar_vector, kaplo::Kind::table_vector>(F::kind)) {
        return CheckedVector<F>();
    } else {
        return F();
    }
}
template <class... F>
auto checked_fields(kaplo::List<F...> /*fields*/) {
    return kaplo::List<decltype(checked_field<F>())...>();
}

template <class Record>
using CheckedRecord = std::conditional_t<kaplo::owns_memory<Record>, Checked<Record>, Record>;

}  // namespace inspect

template <class Record>
struct kaplo::Description<inspect::Checked<Record>> : kaplo::Description<Record> {
    using Fields = decltype(inspect::checked_fields(typename kaplo::Description<Record>::Fields()));
};

#endif
