// SPDX-License-Identifier: Apache-2.0
// The messages that are measured, and their records: the same ones in every run and on every machine.
#ifndef BENCH_MESSAGES_H
#define BENCH_MESSAGES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

#include "nac/catalogue.h"
#include "tests/support/random_record.h"

namespace bench {

// Whether an operation gets one record every time, or walks a pool of records that differ.
// The series by the share of scalars that are zero are pools too.
enum class Content { same, varied, zero_0, zero_1, zero_5, zero_50, same_two_thirds };

inline constexpr std::array kSeries = {Content::zero_0, Content::zero_1, Content::zero_5, Content::zero_50,
                                       Content::same_two_thirds};

constexpr const char* name_of(Content content) {
    constexpr std::array names = {
        "same", "varied", "0 % zero", "1 % zero", "5 % zero", "50 % zero", "the same two thirds zero"};
    return names[static_cast<std::size_t>(content)];
}

// What a message's records look like.
struct Shape {
    const char* name;
    std::uint32_t set_of_six_same;    // how many of six scalars are not zero
    std::uint32_t set_of_six_varied;  // in the pool: which ones differs from record to record
    std::uint32_t pool;
    bool has_vectors = false;
    std::uint32_t data_flow_elements = 0;
};

// Calls visit<Record>(shape) for each message that is measured.
template <class Visitor>
void each_message(Visitor&& visit) {
    visit.template operator()<Nac_SetPortMsg>(Shape{"Nac_SetPortMsg", 6, 3, 256});
    visit.template operator()<Nac_UserDataFlowInfo>(Shape{"Nac_UserDataFlowInfo", 6, 3, 256});
    visit.template operator()<Nac_UserDataFlowMsg>(Shape{"Nac_UserDataFlowMsg x 1", 6, 3, 256, true, 1});
    visit.template operator()<Nac_UserDataFlowMsg>(Shape{"Nac_UserDataFlowMsg x 10", 6, 3, 256, true, 10});
    visit.template operator()<Nac_UserDataFlowMsg>(Shape{"Nac_UserDataFlowMsg x 100", 6, 3, 64, true, 100});
    visit.template operator()<Nac_UserDataFlowMsg>(Shape{"Nac_UserDataFlowMsg x 1000", 6, 3, 16, true, 1000});
    visit.template operator()<Nac_UserDataFlowMsg>(
        Shape{"Nac_UserDataFlowMsg x 10000", 6, 3, 4, true, 10000});
    visit.template operator()<Nac_DaclRuleIpInfo>(Shape{"Nac_DaclRuleIpInfo", 6, 3, 256});
    visit.template operator()<Nac_SetUserTableMsg>(Shape{"Nac_SetUserTableMsg sparse", 2, 2, 256});
    visit.template operator()<Nac_SetUserTableMsg>(Shape{"Nac_SetUserTableMsg rich", 6, 3, 256, true});
}

// The records of those messages.
#define BENCH_RECORDS(RECORD)    \
    RECORD(Nac_SetPortMsg)       \
    RECORD(Nac_UserDataFlowInfo) \
    RECORD(Nac_UserDataFlowMsg)  \
    RECORD(Nac_DaclRuleIpInfo)   \
    RECORD(Nac_SetUserTableMsg)

inline constexpr std::uint32_t kLargestBatch = 100;

// The records of one shape, back to back, and the arrays that they point to.
template <class Record>
class Records {
  public:
    Records(const Shape& shape, Content content)
        : shape_(shape),
          content_(content),
          set_of_six_(content == Content::same ? shape.set_of_six_same : shape.set_of_six_varied) {
        if (content == Content::same) {
            Record record = {};
            fill(record);
            records_.assign(kLargestBatch, record);  // they share their arrays, which nobody changes
        } else {
            records_.resize(shape.pool);
            for (Record& record : records_) fill(record);
        }
    }
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;

    const Record& operator[](std::size_t i) const { return records_[i]; }
    std::size_t size() const { return records_.size(); }

  private:
    template <class Described>
    void fill(Described& record) {
        kaplo::each_field<Described>([&]<class F, std::uint32_t id> {
            using Element = typename F::Element;
            if constexpr (F::kind == kaplo::Kind::scalar) {
                F::in(record) = is_set(id) ? any<Element>() : Element{0};
            } else if constexpr (F::kind == kaplo::Kind::nested_table) {
                fill(F::in(record));
            } else if constexpr (F::kind == kaplo::Kind::fixed_array) {
                for (Element& element : F::in(record)) element = any<Element>();
            } else if (shape_.has_vectors) {
                F::count(record) = count<Element>();
                F::elements(record) = array<Element>(F::count(record));
            }
        });
    }

    bool is_set(std::uint32_t id) {
        switch (content_) {
            case Content::zero_0:
                return true;
            case Content::zero_1:
                return !random_.one_in(100);
            case Content::zero_5:
                return !random_.one_in(20);
            case Content::zero_50:
                return !random_.one_in(2);
            case Content::same_two_thirds:
                return id % 3 == 0;
            case Content::same:
            case Content::varied:
                break;
        }
        return random_.below(6) < set_of_six_;
    }

    // A user with ten addresses, twenty rules, three names and three short lists of numbers.
    template <class Element>
    std::uint32_t count() const {
        if constexpr (std::is_same_v<Element, Nac_UserDataFlowInfo>) {
            return shape_.data_flow_elements;
        } else if constexpr (std::is_same_v<Element, Nac_RadiusDaclRule>) {
            return 20;
        } else if constexpr (std::is_same_v<Element, Nac_Ipv6Addr>) {
            return 10;
        } else {
            return sizeof(Element) == 1 ? 32 : 8;
        }
    }

    template <class Element>
    Element* array(std::uint32_t count) {
        const auto elements = std::make_shared<std::vector<Element>>(count);
        arrays_.push_back(elements);
        for (Element& element : *elements) {
            if constexpr (std::is_class_v<Element>) {
                fill(element);
            } else {
                element = any<Element>();
            }
        }
        return elements->data();
    }

    // Any width in bits is as likely as any other, so that formats which shorten small numbers may do so.
    // Never 0.
    template <class T>
    T any() {
        const std::uint32_t bits = 1 + random_.below(8 * sizeof(T));
        const std::uint64_t top = std::uint64_t{1} << (bits - 1);
        return static_cast<T>(top | (random_.next() & (top - 1)));
    }

    const Shape shape_;
    const Content content_;
    const std::uint32_t set_of_six_;
    tests::Random random_{2026};
    std::vector<Record> records_;
    std::vector<std::shared_ptr<void>> arrays_;
};

}  // namespace bench

#endif
