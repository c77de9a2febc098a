// SPDX-License-Identifier: Apache-2.0
// A second reader of the wire format, as plain as it can be written: every sum in 64 bits, every number put
// together byte by byte, nothing shared with the library but the descriptions. What it finds in any bytes,
// the library must find too: the same record, log lines, allocations and releases.
#ifndef TESTS_SUPPORT_PLAIN_READER_H
#define TESTS_SUPPORT_PLAIN_READER_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/description.h"

namespace tests {

class PlainReader {
  public:
    using Requests = std::vector<std::pair<std::uint32_t, std::string>>;  // size, caller

    PlainReader(const std::uint8_t* bytes, std::uint32_t length, std::endian order,
                std::optional<std::size_t> failing_allocation = std::nullopt)
        : bytes_(bytes), length_(length), order_(order), failing_allocation_(failing_allocation) {}

    // Unpacks into the record, whose arrays belong to this reader afterwards.
    template <class Record>
    void unpack(Record* record) {
        using Traits = kaplo::Description<Record>;
        static const std::string name = Traits::name.c_str();
        static const std::string unpack_name = name + "_unpack";
        static const std::string decoder =
            Traits::root_decodes_as_nested ? name + "_unpack_non_root" : unpack_name;
        verdict = Verdict::argument;
        if (!arguments(unpack_name, record)) return;
        const bool first = Traits::root_decodes_as_nested || owns_memory<Record>();
        if (first) std::memset(static_cast<void*>(record), 0, sizeof *record);
        Table table;
        verdict = Verdict::header;
        if (!open(number(0, 4), decoder, table)) return;
        if (!first) std::memset(static_cast<void*>(record), 0, sizeof *record);
        verdict = Verdict::valid;
        if (fields(table, decoder, *record)) return;
        verdict = Verdict::field;
        if (owns_memory<Record>()) release(name + "_free_unpacked", *record);
    }

    enum class Verdict { valid, argument, header, field };
    Verdict verdict = Verdict::valid;  // how far it came

    std::vector<std::string> log;       // "function: text"
    Requests allocations;               // asked of the hook, failed ones included
    std::vector<std::string> releases;  // callers, of null pointers too
    std::uint64_t steps = 0;            // fields and elements looked at: the work that was done

  private:
    struct Table {
        std::uint64_t at;
        std::uint64_t vtable;
        std::uint64_t vtable_length;
    };

    template <class Record>
    static bool owns_memory() {
        bool owns = false;
        kaplo::each_field<Record>(
            [&]<class F, std::uint32_t id> { owns = owns || F::kind >= kaplo::Kind::scalar_vector; });
        return owns;
    }

    std::uint64_t number(std::uint64_t at, std::uint32_t width) const {
        std::uint64_t value = 0;
        for (std::uint32_t i = 0; i < width; ++i) {
            const std::uint64_t significance = order_ == std::endian::little ? i : width - 1 - i;
            value |= std::uint64_t{bytes_[at + i]} << (8 * significance);
        }
        return value;
    }

    template <class Record>
    bool arguments(const std::string& function, const Record* record) {
        if (bytes_ != nullptr && record != nullptr && length_ > 3 && length_ < 0x80000000) return true;
        const auto state = [](const void* pointer) { return pointer == nullptr ? "null" : "nonNull"; };
        log.push_back(function + ": [KAPLO]:Param invalid(" + state(bytes_) + ", " +
                      std::to_string(static_cast<std::int32_t>(length_)) + ", " + state(record) + ")");
        return false;
    }

    bool open(std::uint64_t at, const std::string& function, Table& table) {
        const auto complain = [&](const std::string& what, std::uint64_t value, const std::string& range,
                                  std::uint64_t limit) {
            log.push_back(function + ": [KAPLO]:" + what + "(" + std::to_string(value) +
                          ") is out of range(" + range + " - " + std::to_string(limit) + ")");
            return false;
        };
        if (at < 4 || at + 4 > length_) return complain("Table offset", at, "4", length_);
        const std::uint64_t vtable = (at - number(at, 4)) & 0xFFFFFFFF;
        if (vtable < 4 || vtable + 4 > length_) return complain("Vtable offset", at, "4", length_ - 4);
        const std::uint64_t vtable_length = number(vtable, 2);
        if (vtable + vtable_length > length_) {
            return complain("Vtable Len", vtable_length, "0", length_ - vtable);
        }
        table = {at, vtable, vtable_length};
        return true;
    }

    // The position that a reference leads to; none where it is cut off or leads backwards.
    std::optional<std::uint64_t> follow(std::uint64_t at) const {
        if (at + 4 > length_) return std::nullopt;
        const std::uint64_t target = at + number(at, 4);
        if (target > 0xFFFFFFFF) return std::nullopt;
        return target;
    }

    // Count and position of element 0 of the vector that a reference leads to.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> follow_vector(std::uint64_t at,
                                                                         std::uint64_t width) const {
        const auto vector = follow(at);
        if (!vector || *vector + 4 > length_) return std::nullopt;
        const std::uint64_t count = number(*vector, 4);
        if (*vector + 4 + count * width > length_) return std::nullopt;
        return std::pair{count, *vector + 4};
    }

    template <class Record>
    bool fields(const Table& table, const std::string& decoder, Record& record) {
        return kaplo::every_field<Record>([&]<class F, std::uint32_t id> {
            ++steps;
            if (table.vtable_length < 6 + 2 * id) return true;
            const std::uint64_t slot = number(table.vtable + 4 + 2 * id, 2);
            return slot == 0 || field<F>(table.at + slot, decoder, record);
        });
    }

    template <class Record>
    bool nested(std::uint64_t at, Record& record) {
        static const std::string decoder =
            std::string(kaplo::Description<Record>::name.c_str()) + "_unpack_non_root";
        Table table;
        return open(at, decoder, table) && fields(table, decoder, record);
    }

    template <class Element>
    void copy(std::uint64_t at, std::uint64_t count, Element* to) {
        for (std::uint64_t k = 0; k < count; ++k) {
            ++steps;
            to[k] = static_cast<Element>(number(at + k * sizeof(Element), sizeof(Element)));
        }
    }

    template <class F>
    bool field(std::uint64_t at, const std::string& decoder, typename F::Record& record) {
        using Element = typename F::Element;
        if constexpr (F::kind == kaplo::Kind::scalar) {
            if (at + sizeof(Element) > length_) return false;
            F::in(record) = static_cast<Element>(number(at, sizeof(Element)));
            return true;
        } else if constexpr (F::kind == kaplo::Kind::nested_table) {
            const auto target = follow(at);
            return target && nested(*target, F::in(record));
        } else if constexpr (F::kind == kaplo::Kind::fixed_array) {
            constexpr std::uint64_t size = std::extent_v<typename F::Member>;
            const auto vector = follow_vector(at, sizeof(Element));
            if (!vector || vector->first != size) return false;
            copy(vector->second, size, F::in(record));
            return true;
        } else {
            constexpr bool of_tables = F::kind == kaplo::Kind::table_vector;
            const auto vector = follow_vector(at, of_tables ? 4 : sizeof(Element));
            if (!vector) return false;
            const auto [count, first] = *vector;
            F::count(record) = static_cast<std::uint32_t>(count);
            if (count == 0) return true;
            F::elements(record) = allocate<Element>(
                count, decoder, kaplo::Description<typename F::Record>::allocation_complaint);
            if (F::elements(record) == nullptr) return false;
            if constexpr (of_tables) {
                for (std::uint64_t k = 0; k < count; ++k) {
                    const auto target = follow(first + 4 * k);
                    if (!target || !nested(*target, F::elements(record)[k])) return false;
                }
            } else {
                copy(first, count, F::elements(record));
            }
            return true;
        }
    }

    template <class Element>
    Element* allocate(std::uint64_t count, const std::string& decoder, kaplo::AllocationComplaint complaint) {
        const std::uint64_t bytes = count * sizeof(Element);
        const auto size = static_cast<std::uint32_t>(bytes);
        if (bytes == size) {
            allocations.emplace_back(size, decoder);
            if (allocations.size() - 1 != failing_allocation_) {
                static_assert(alignof(Element) <= alignof(std::uint64_t));
                arrays_.emplace_back(bytes / sizeof(std::uint64_t) + 1);
                return reinterpret_cast<Element*>(arrays_.back().data());
            }
        }
        const std::size_t blanks = complaint == kaplo::AllocationComplaint::one_blank ? 1 : 16;
        log.push_back(decoder + ": [KAPLO]:Malloc unpack data unsuccess," + std::string(blanks, ' ') +
                      "size(" + std::to_string(size) + ")");
        return nullptr;
    }

    template <class Record>
    void release(const std::string& caller, Record& record) {
        kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
            if constexpr (F::kind >= kaplo::Kind::scalar_vector) {
                const bool null_too = F::kind == kaplo::Kind::scalar_vector &&
                                      kaplo::Description<Record>::frees_null_scalar_arrays;
                if (F::elements(record) != nullptr || null_too) releases.push_back(caller);
                F::elements(record) = nullptr;
            }
        });
    }

    const std::uint8_t* bytes_;
    std::uint32_t length_;
    std::endian order_;
    std::optional<std::size_t> failing_allocation_;
    std::vector<std::vector<std::uint64_t>> arrays_;  // cleared, aligned for any record
};

}  // namespace tests

#endif
