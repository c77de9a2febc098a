// SPDX-License-Identifier: Apache-2.0
// Comparison of records field by field, arrays by their content, with the path of the first difference.
#ifndef TESTS_SUPPORT_SAME_RECORD_H
#define TESTS_SUPPORT_SAME_RECORD_H

#include <gtest/gtest.h>

#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>

#include "runtime/description.h"

namespace tests {

// Where two records differ and how, put together from the inside out: "f6.f16[2]: 3 instead of 4". Its
// functions are kept out of line and return false, so that the comparisons below stay small in code.
class Difference {
  public:
    [[gnu::noinline]] bool of_numbers(std::uint64_t actual, std::uint64_t expected) {
        return add(std::to_string(actual) + " instead of " + std::to_string(expected));
    }
    [[gnu::noinline]] bool add(const std::string& what) {
        path_.clear();
        what_ = what;
        return false;
    }
    [[gnu::noinline]] bool in_count() { return inside("_count"); }
    [[gnu::noinline]] bool in_element(std::uint32_t k) { return inside("[" + std::to_string(k) + "]"); }
    [[gnu::noinline]] bool in_field(std::uint32_t id) { return inside(".f" + std::to_string(id)); }

    testing::AssertionResult result(bool same) const {
        if (same) return testing::AssertionSuccess();
        return testing::AssertionFailure() << path_.substr(1) << ": " << what_;
    }

  private:
    bool inside(const std::string& outer) {
        path_.insert(0, outer);
        return false;
    }

    std::string path_;
    std::string what_;
};

template <class Record>
requires std::is_class_v<Record>
bool same(const Record& actual, const Record& expected, Difference& found);

template <std::unsigned_integral T>
bool same(T actual, T expected, Difference& found) {
    return actual == expected || found.of_numbers(actual, expected);
}

template <class Element>
bool same_elements(const Element* actual, const Element* expected, std::uint32_t count, Difference& found) {
    for (std::uint32_t k = 0; k < count; ++k) {
        if (!same(actual[k], expected[k], found)) return found.in_element(k);
    }
    return true;
}

template <class F>
bool same_field(const typename F::Record& actual, const typename F::Record& expected, Difference& found) {
    if constexpr (F::kind == kaplo::Kind::fixed_array) {
        return same_elements(&F::in(actual)[0], &F::in(expected)[0], std::extent_v<typename F::Member>,
                             found);
    } else if constexpr (kaplo::is_one_of<kaplo::Kind::scalar_vector, kaplo::Kind::table_vector>(F::kind)) {
        if (!same(F::count(actual), F::count(expected), found)) return found.in_count();
        if ((F::elements(actual) == nullptr) != (F::elements(expected) == nullptr)) {
            return found.add(F::elements(actual) == nullptr ? "no array" : "an array instead of none");
        }
        return F::elements(actual) == nullptr ||
               same_elements(F::elements(actual), F::elements(expected), F::count(actual), found);
    } else {
        return same(F::in(actual), F::in(expected), found);
    }
}

template <class Record>
requires std::is_class_v<Record>
bool same(const Record& actual, const Record& expected, Difference& found) {
    return kaplo::every_field<Record>([&]<class F, std::uint32_t id> {
        return same_field<F>(actual, expected, found) || found.in_field(id);
    });
}

template <class Record>
testing::AssertionResult same_record(const Record& actual, const Record& expected) {
    Difference found;
    return found.result(same(actual, expected, found));
}

}  // namespace tests

#endif
