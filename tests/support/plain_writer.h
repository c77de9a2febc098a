// SPDX-License-Identifier: Apache-2.0
// A second writer of the wire format, as plain as it can be written: every number put down byte by byte,
// nothing shared with the library but the descriptions. What it writes for a record the library must write
// too.
#ifndef TESTS_SUPPORT_PLAIN_WRITER_H
#define TESTS_SUPPORT_PLAIN_WRITER_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "runtime/description.h"

namespace tests {

class PlainWriter {
  public:
    using Bytes = std::vector<std::uint8_t>;

    explicit PlainWriter(std::endian order) : order_(order) {}

    // The message in the compact layout.
    template <class Record>
    Bytes compact(const Record& record) {
        bytes_.assign(4, 0);
        put_at(0, compact_table(record), 4);
        return bytes_;
    }

    // The fixed image. Padding is zero.
    template <class Record>
    Bytes image(const Record& record) {
        bytes_.clear();
        append_image(record);
        return bytes_;
    }

  private:
    using Kind = kaplo::Kind;

    template <class Record>
    static constexpr std::size_t field_count() {
        std::size_t count = 0;
        kaplo::each_field<Record>([&]<class F, std::uint32_t id> { ++count; });
        return count;
    }

    template <class Record>
    static constexpr bool has_vector() {
        bool has = false;
        kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
            has = has || F::kind == Kind::fixed_array || F::kind >= Kind::scalar_vector;
        });
        return has;
    }

    void put_at(std::size_t at, std::uint64_t value, std::size_t width) {
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t significance = order_ == std::endian::little ? i : width - 1 - i;
            bytes_.at(at + i) = static_cast<std::uint8_t>(value >> (8 * significance));
        }
    }
    std::size_t append(std::uint64_t value, std::size_t width) {
        const std::size_t at = bytes_.size();
        bytes_.resize(at + width);
        put_at(at, value, width);
        return at;
    }
    template <class T>
    void append_all(const T* elements, std::size_t count) {
        for (std::size_t k = 0; k < count; ++k) append(elements[k], sizeof(T));
    }

    // Offsets, and lengths of tables without vectors: a host that reverses keeps their low byte only.
    void put_short(std::size_t at, std::uint64_t value) {
        put_at(at, order_ == std::endian::native ? value : value & 0xFF, 2);
    }

    template <class Record>
    void put_vtable(std::size_t vtable, std::uint64_t table_length) {
        put_at(vtable, 4 + 2 * field_count<Record>(), 2);
        if (has_vector<Record>()) {
            put_at(vtable + 2, table_length, 2);
        } else {
            put_short(vtable + 2, table_length);
        }
    }

    template <class Record>
    std::size_t compact_table(const Record& record) {
        using Traits = kaplo::Description<Record>;
        const std::size_t vtable = bytes_.size();
        bytes_.resize(vtable + 4 + 2 * field_count<Record>());
        const std::size_t table = append(0, 4);
        std::array<std::size_t, field_count<Record>()> references = {};

        for (const bool second_pass : {false, true}) {
            kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
                const bool late = Traits::scalars_precede_references && F::kind != Kind::scalar;
                if (late != second_pass) return;
                const std::size_t offset = bytes_.size() - table;
                if constexpr (F::kind == Kind::scalar) {
                    if (F::in(record) == 0) return;
                    append(F::in(record), sizeof F::in(record));
                } else {
                    if constexpr (F::kind >= Kind::scalar_vector) {
                        if (F::count(record) == 0 || F::elements(record) == nullptr) return;
                    }
                    references[id] = append(0, 4);
                }
                put_short(vtable + 4 + 2 * id, offset);
            });
        }
        std::size_t fixed_length = bytes_.size() - table;

        std::array<std::size_t, field_count<Record>()> elements = {};
        kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
            if (references[id] == 0 || F::kind == Kind::nested_table) return;
            put_at(references[id], bytes_.size() - references[id], 4);
            if constexpr (F::kind == Kind::fixed_array) {
                constexpr std::size_t count = std::extent_v<typename F::Member>;
                append(count, 4);
                append_all(F::in(record), count);
                fixed_length += 4 + sizeof F::in(record);
            } else if constexpr (F::kind == Kind::scalar_vector) {
                append(F::count(record), 4);
                append_all(F::elements(record), F::count(record));
            } else if constexpr (F::kind == Kind::table_vector) {
                append(F::count(record), 4);
                elements[id] = bytes_.size();
                bytes_.resize(bytes_.size() + std::size_t{4} * F::count(record));
            }
        });
        put_vtable<Record>(vtable, Traits::table_length_omits_vectors ? fixed_length : bytes_.size() - table);
        put_at(table, table - vtable, 4);

        kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
            if constexpr (F::kind == Kind::nested_table) {
                refer(references[id], compact_table(F::in(record)));
            } else if constexpr (F::kind == Kind::table_vector) {
                if (references[id] == 0) return;
                for (std::size_t k = 0; k < F::count(record); ++k) {
                    refer(elements[id] + 4 * k, compact_table(F::elements(record)[k]));
                }
            }
        });
        return table;
    }
    void refer(std::size_t reference, std::size_t target) { put_at(reference, target - reference, 4); }

    template <class Record>
    void append_image(const Record& record) {
        const std::size_t start = bytes_.size();
        append(4, 4);
        const std::size_t table = append(0, 4);
        std::array<std::size_t, field_count<Record>()> offsets = {};
        kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
            offsets[id] = bytes_.size() - table;
            if constexpr (F::kind == Kind::scalar) {
                append(F::in(record), sizeof F::in(record));
            } else if constexpr (F::kind == Kind::nested_table) {
                append_image(F::in(record));
            } else {
                constexpr std::size_t count = std::extent_v<typename F::Member>;
                append(4, 4);
                append(count, 4);
                append_all(F::in(record), count);
            }
        });
        const std::size_t length = bytes_.size() - table;
        pad_to(table, 4);
        const std::size_t vtable = bytes_.size();
        put_at(table, table - vtable, 4);
        bytes_.resize(vtable + 4 + 2 * field_count<Record>());
        put_vtable<Record>(vtable, length);
        for (std::size_t id = 0; id < offsets.size(); ++id) put_short(vtable + 4 + 2 * id, offsets[id]);
        pad_to(start, 8);
    }
    void pad_to(std::size_t start, std::size_t multiple) {
        while ((bytes_.size() - start) % multiple != 0) bytes_.push_back(0);
    }

    std::endian order_;
    Bytes bytes_;
};

}  // namespace tests

#endif
