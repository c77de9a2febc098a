// SPDX-License-Identifier: Apache-2.0
// The scalars of a record, one after the other.
#ifndef TESTS_EACH_SCALAR_H
#define TESTS_EACH_SCALAR_H

#include <cstdint>

#include "runtime/description.h"

namespace tests {

// Calls visit(scalar) for each scalar of the record and of its inner records.
template <class Record, class Visitor>
void each_scalar(Record& record, Visitor&& visit) {
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (F::kind == kaplo::Kind::scalar) {
            visit(F::in(record));
        } else if constexpr (F::kind == kaplo::Kind::nested_table) {
            each_scalar(F::in(record), visit);
        }
    });
}

}  // namespace tests

#endif
