// SPDX-License-Identifier: Apache-2.0
// What the fuzzers make of their input: numbers, a message type, records; and how a broken promise ends.
#ifndef FUZZ_SUPPLY_H
#define FUZZ_SUPPLY_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <type_traits>
#include <vector>

// The package whose messages are tried: that which the build names, else Nac.
#ifdef FUZZ_MESSAGES
#include FUZZ_DESCRIPTIONS
#else
#include "nac/catalogue.h"
#define FUZZ_MESSAGES NAC_ALL_MESSAGES
#endif

namespace fuzz {

// What a sweep reads at the moment, for the line of a broken promise.
inline std::string doing;

// Ends the process, so that the fuzzer keeps the input.
[[noreturn]] inline void broken(const std::string& promise) {
    static_cast<void>(std::fprintf(stderr, "broken promise: %s %s\n", promise.c_str(), doing.c_str()));
    std::abort();
}

inline void promise(bool kept, const std::string& what) {
    if (!kept) broken(what);
}

// The low bytes of a number, little-endian.
inline void put(std::uint8_t* at, std::uint64_t value, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// The byte order that an input asks for with its lowest bit.
inline std::endian order_from(std::uint8_t options) {
    return options % 2 == 0 ? std::endian::little : std::endian::big;
}

// The input, front to back; zeros where it has ended. Its numbers are little-endian, so that an input means
// the same on every machine.
class Supply {
  public:
    Supply(const std::uint8_t* data, std::size_t size) : next_(data), left_(size) {}

    template <class T>
    T take() {
        std::uint64_t value = 0;
        const std::size_t taken = left_ < sizeof(T) ? left_ : sizeof(T);
        for (std::size_t i = 0; i < taken; ++i) value |= std::uint64_t{next_[i]} << (8 * i);
        next_ += taken;
        left_ -= taken;
        return static_cast<T>(value);
    }

    bool is_empty() const { return left_ == 0; }

    // All that is left, in an allocation of just this size.
    std::vector<std::uint8_t> rest() {
        std::vector<std::uint8_t> bytes(next_, next_ + left_);
        bytes.shrink_to_fit();
        left_ = 0;
        return bytes;
    }

  private:
    const std::uint8_t* next_;
    std::size_t left_;
};

inline constexpr std::uint32_t kMessageTypes = [] {
    std::uint32_t count = 0;
#define FUZZ_COUNT(Message) ++count;
    FUZZ_MESSAGES(FUZZ_COUNT)
#undef FUZZ_COUNT
    return count;
}();

// Calls visit.operator()<Record>() for the message type of this index, modulo their number.
template <class Visitor>
void with_message_type(std::uint32_t index, Visitor&& visit) {
    std::uint32_t left = index % kMessageTypes;
#define FUZZ_VISIT(Message) \
    if (left-- == 0) return visit.template operator()<Message>();
    FUZZ_MESSAGES(FUZZ_VISIT)
#undef FUZZ_VISIT
}

// Records made from the input, with the arrays of their vectors.
class RecordSource {
  public:
    explicit RecordSource(Supply& supply) : supply_(supply) {}

    template <class Record>
    void fill(Record& record) {
        kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
            using Element = typename F::Element;
            if constexpr (F::kind == kaplo::Kind::scalar) {
                F::in(record) = scalar<Element>();
            } else if constexpr (F::kind == kaplo::Kind::nested_table) {
                fill(F::in(record));
            } else if constexpr (F::kind == kaplo::Kind::fixed_array) {
                for (Element& element : F::in(record)) element = supply_.take<Element>();
            } else {
                const std::uint32_t count = supply_.take<std::uint8_t>() % 9;
                F::count(record) = count;
                F::elements(record) = count == 0 ? nullptr : array<Element>(count);
            }
        });
    }

  private:
    // Half of the scalars are zero.
    template <class T>
    T scalar() {
        return supply_.take<std::uint8_t>() % 2 == 0 ? T{0} : supply_.take<T>();
    }

    template <class Element>
    Element* array(std::uint32_t count) {
        static_assert(alignof(Element) <= alignof(std::uint64_t));
        arrays_.emplace_back(count * sizeof(Element) / sizeof(std::uint64_t) + 1);
        auto* const elements = reinterpret_cast<Element*>(arrays_.back().data());
        for (std::uint32_t k = 0; k < count; ++k) {
            if constexpr (std::is_class_v<Element>) {
                fill(elements[k]);
            } else {
                elements[k] = supply_.take<Element>();
            }
        }
        return elements;
    }

    Supply& supply_;
    std::deque<std::vector<std::uint64_t>> arrays_;
};

}  // namespace fuzz

#endif
