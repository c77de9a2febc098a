// SPDX-License-Identifier: Apache-2.0
// Random records of any described type: the same ones for the same seed on every machine.
#ifndef TESTS_SUPPORT_RANDOM_RECORD_H
#define TESTS_SUPPORT_RANDOM_RECORD_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <type_traits>
#include <vector>

#include "runtime/description.h"

namespace tests {

// splitmix64: small, and, unlike the distributions of the standard library, the same everywhere.
class Random {
  public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() {
        std::uint64_t bits = state_ += 0x9E3779B97F4A7C15;
        bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
        bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
        return bits ^ (bits >> 31);
    }
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(next() % limit); }
    bool one_in(std::uint32_t n) { return below(n) == 0; }

  private:
    std::uint64_t state_;
};

enum class Filling {
    zero,     // nothing set
    sparse,   // one value in eight set
    rich,     // every value set, no vector empty
    extreme,  // values at the limits of their widths
};

// Which filling the n-th record of a series has, so that a series sees them all.
inline Filling filling_of(std::uint64_t seed) { return static_cast<Filling>(seed % 4); }

inline constexpr std::uint32_t kMostElements = 4;  // of a vector, by default

// Records back to back, as batches take them, with the arrays that their vectors point to. The arrays live
// as long as this object and are never handed to a free function.
template <class Record>
class RandomRecords {
  public:
    RandomRecords(std::uint64_t seed, Filling filling, std::size_t count = 1,
                  std::uint32_t most_elements = kMostElements)
        : random_(seed), filling_(filling), most_elements_(most_elements), records_(count) {
        for (Record& record : records_) fill(record);
    }
    explicit RandomRecords(std::uint64_t seed) : RandomRecords(seed, filling_of(seed)) {}
    RandomRecords(const RandomRecords&) = delete;
    RandomRecords& operator=(const RandomRecords&) = delete;

    const Record& operator*() const { return records_.front(); }
    const Record& operator[](std::size_t i) const { return records_.at(i); }
    const Record* data() const { return records_.data(); }
    std::uint32_t size() const { return static_cast<std::uint32_t>(records_.size()); }

  private:
    template <class Described>
    void fill(Described& record) {
        kaplo::each_field<Described>([&]<class F, std::uint32_t id> {
            using Element = typename F::Element;
            if constexpr (F::kind == kaplo::Kind::scalar) {
                F::in(record) = scalar<Element>();
            } else if constexpr (F::kind == kaplo::Kind::nested_table) {
                fill(F::in(record));
            } else if constexpr (F::kind == kaplo::Kind::fixed_array) {
                for (Element& element : F::in(record)) element = scalar<Element>();
            } else {
                F::count(record) = count();
                F::elements(record) = array<Element>(F::count(record));
            }
        });
    }

    [[gnu::noinline]] std::uint32_t count() {
        switch (filling_) {
            case Filling::zero:
                return 0;
            case Filling::rich:
                return 1 + random_.below(most_elements_);
            case Filling::sparse:
            case Filling::extreme:
                break;
        }
        return random_.below(most_elements_ + 1);
    }

    // Null for no elements, as unpack leaves it.
    template <class Element>
    Element* array(std::uint32_t count) {
        if (count == 0) return nullptr;
        const auto elements = std::make_shared<std::vector<Element>>(count);
        arrays_.push_back(elements);
        for (Element& element : *elements) {
            if constexpr (std::is_class_v<Element>) {
                fill(element);
            } else {
                element = scalar<Element>();
            }
        }
        return elements->data();
    }

    // Out of line, as it is called for every field of every type.
    template <class T>
    [[gnu::noinline]] T scalar() {
        constexpr T most = std::numeric_limits<T>::max();
        switch (filling_) {
            case Filling::zero:
                return 0;
            case Filling::sparse:
                return random_.one_in(8) ? any<T>() : T{0};
            case Filling::rich:
                return any<T>();
            case Filling::extreme:
                break;
        }
        constexpr T limits[] = {0, 1, most / 2, most / 2 + 1, most - 1, most};
        return limits[random_.below(6)];
    }

    // Any width in bits is as likely as any other, so that small numbers occur too. Never 0.
    template <class T>
    T any() {
        const std::uint32_t unused_bits = random_.below(std::numeric_limits<T>::digits);
        const std::uint64_t most = std::numeric_limits<T>::max();
        return static_cast<T>(random_.next() % (most >> unused_bits) + 1);
    }

    Random random_;
    Filling filling_;
    std::uint32_t most_elements_;
    std::vector<Record> records_;
    std::vector<std::shared_ptr<void>> arrays_;
};

}  // namespace tests

#endif
