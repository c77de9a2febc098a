// SPDX-License-Identifier: Apache-2.0
// What a record must look like where unpack stopped at a field: the fields before it as they were sent, that
// field as far as it got, nothing after it, and no array anywhere.
#ifndef TESTS_SUPPORT_STOPPED_RECORD_H
#define TESTS_SUPPORT_STOPPED_RECORD_H

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/support/same_record.h"

namespace tests {

template <class Record>
inline constexpr Record kNothing = {};

// Whether `actual` is what is left of `sent` when decoding stopped somewhere.
//
// The first field that differs is the last that decoding reached. Numbers and fixed arrays are stored whole
// or not at all, nested records are what is left in turn. A vector's count is stored before its array is
// obtained, and stays when the arrays are released.
template <class Record>
bool left_of(const Record& actual, const Record& sent, Difference& found) {
    using enum kaplo::Kind;
    Difference ignored;
    bool stopped = false;
    return kaplo::every_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (kaplo::is_one_of<scalar_vector, table_vector>(F::kind)) {
            if (F::elements(actual) != nullptr) {
                found.add("an array instead of none");
                return found.in_field(id);
            }
            if (!stopped && F::count(actual) == F::count(sent)) return true;
        } else if (!stopped && same_field<F>(actual, sent, ignored)) {
            return true;
        }
        const bool stops_here = !stopped;
        stopped = true;
        if constexpr (F::kind == nested_table) {
            if (stops_here) return left_of(F::in(actual), F::in(sent), found) || found.in_field(id);
        }
        return same_field<F>(actual, kNothing<typename F::Record>, found) || found.in_field(id);
    });
}

template <class Record>
testing::AssertionResult stopped_record(const Record& actual, const Record& sent) {
    Difference found;
    return found.result(left_of(actual, sent, found));
}

}  // namespace tests

#endif
