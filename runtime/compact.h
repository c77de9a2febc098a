// SPDX-License-Identifier: Apache-2.0
// The writer of the compact layout: zero scalars left out, every vtable right before its table.
#ifndef KAPLO_COMPACT_H
#define KAPLO_COMPACT_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "runtime/bounded.h"
#include "runtime/description.h"
#include "runtime/inline.h"
#include "runtime/size.h"

namespace kaplo {

// Writes front to back into a buffer that was sized for the message. Handed from function to function as a
// value, so that the cursor stays in a register.
template <ByteOrder order>
class Writer {
  public:
    constexpr explicit Writer(std::uint8_t* at) : at_(at) {}

    constexpr std::uint8_t* at() const { return at_; }

    // Leaves `bytes` for later. Returns where they start.
    constexpr std::uint8_t* reserve(std::uint32_t bytes) {
        std::uint8_t* const start = at_;
        at_ += bytes;
        return start;
    }

    template <class T>
    constexpr void put(T value) {
        store<order>(reserve(sizeof(T)), value);
    }

    template <class T>
    constexpr void put_all(const T* elements, std::uint32_t count) {
        if (is_copied<T, order> && !std::is_constant_evaluated()) {
            const auto bytes = static_cast<std::uint32_t>(count * sizeof(T));
            memcpy_s(reserve(bytes), bytes, elements, bytes);
        } else {
            for (std::uint32_t k = 0; k < count; ++k) put(elements[k]);
        }
    }

    // Makes the reserved reference point to `target`, which lies after it.
    static constexpr void refer(std::uint8_t* reference, const std::uint8_t* target) {
        store<order>(reference, static_cast<std::uint32_t>(target - reference));
    }

  private:
    std::uint8_t* at_;
};

// The vtable of a record, and the inline part of its table while that is written.
template <class Record, ByteOrder order>
class OpenTable {
  public:
    constexpr explicit OpenTable(Writer<order> writer) : vtable_(writer.at()) {
        if constexpr (kPlatformMemory) {
            constexpr std::uint32_t slot_bytes = kSlotBytes * slots<Record>;
            memset_s(vtable_ + kVtableHeaderBytes, slot_bytes, 0, slot_bytes);
        }
    }

    // Writes a scalar and its slot, or leaves out a 0. Without a branch, since that would be taken at random:
    // what is left out goes to where the soffset will be, four bytes at most at a time.
    template <class T>
    constexpr void put_scalar(std::uint32_t id, T value) {
        const std::size_t kept = mask_if(value != 0);
        const std::size_t offset = offset_ & kept;
        set_slot(id, offset);
        if constexpr (sizeof(T) <= kReferenceBytes) {
            store<order>(table() + offset, value);
        } else {
            const auto halves = std::bit_cast<std::array<std::uint32_t, 2>>(ordered<order>(value));
            store<ByteOrder::host>(table() + offset, halves[0]);
            store<ByteOrder::host>(table() + offset + (sizeof halves[0] & kept), halves[1]);
        }
        offset_ += sizeof(T) & kept;
    }

    // Leaves bytes for a reference and returns where; null for a field that is left out.
    constexpr std::uint8_t* put_reference(std::uint32_t id, bool written) {
        set_slot(id, written ? offset_ : 0);
        if (!written) return nullptr;
        std::uint8_t* const reference = table() + offset_;
        offset_ += kReferenceBytes;
        return reference;
    }

    constexpr std::uint32_t length() const { return static_cast<std::uint32_t>(offset_); }
    constexpr std::uint8_t* table() const { return vtable_ + vtable_bytes<Record>; }
    constexpr std::uint8_t* end() const { return table() + offset_; }

    constexpr void close(std::uint32_t length) const {
        store<ByteOrder::host>(vtable_, vtable_length_entry<Record, order>);
        store<ByteOrder::host>(vtable_ + kSlotBytes, table_length_entry<Record, order>(length));
        store<order>(table(), vtable_bytes<Record>);
    }

  private:
    constexpr void set_slot(std::uint32_t id, std::size_t offset) {
        store<ByteOrder::host>(vtable_ + slot_in_vtable(id),
                               slot_entry<order>(static_cast<std::uint32_t>(offset)));
    }

    std::uint8_t* vtable_;
    std::size_t offset_ = kReferenceBytes;  // of the next field, from the table's start
};

// Where a field's reference is in the table, and in a vector of tables those of its elements. Null: not
// written.
struct References {
    std::uint8_t* own = nullptr;
    std::uint8_t* elements = nullptr;
};
template <class Record>
using ReferencesOf = std::array<References, references_before<Record>(slots<Record>)>;

// Writes the slots, the scalars, and bytes for the references.
template <class Record, ByteOrder order>
KAPLO_INLINE constexpr void write_inline_part(OpenTable<Record, order>& table, const Record& record,
                                              ReferencesOf<Record>& references) {
    const auto write = [&]<class F, std::uint32_t id>() KAPLO_INLINE {
        if constexpr (F::kind == Kind::scalar) {
            table.put_scalar(id, F::in(record));
        } else {
            references[references_before<Record>(id)].own = table.put_reference(id, is_written<F>(record));
        }
    };
    if constexpr (Description<Record>::scalars_precede_references) {
        each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
            if constexpr (F::kind == Kind::scalar) write.template operator()<F, id>();
        });
        each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
            if constexpr (F::kind != Kind::scalar) write.template operator()<F, id>();
        });
    } else {
        each_field<Record>(write);
    }
}

// Writes the table's own vectors, of tables their references only. Returns the bytes of its fixed arrays.
template <class Record, ByteOrder order>
KAPLO_INLINE constexpr std::uint32_t write_vectors(Writer<order>& writer, const Record& record,
                                                   ReferencesOf<Record>& references) {
    std::uint32_t bytes_of_fixed_arrays = 0;
    each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        [[maybe_unused]] constexpr std::uint32_t n = references_before<Record>(id);
        if constexpr (F::kind == Kind::fixed_array) {
            writer.refer(references[n].own, writer.at());
            writer.put(std::uint32_t{std::extent_v<typename F::Member>});
            writer.put_all(F::in(record), std::extent_v<typename F::Member>);
            bytes_of_fixed_arrays += fixed_array_bytes<F>;
        } else if constexpr (is_one_of<Kind::scalar_vector, Kind::table_vector>(F::kind)) {
            if (references[n].own == nullptr) return;
            writer.refer(references[n].own, writer.at());
            writer.put(F::count(record));
            if constexpr (F::kind == Kind::scalar_vector) {
                writer.put_all(F::elements(record), F::count(record));
            } else {
                references[n].elements = writer.reserve(F::count(record) * kReferenceBytes);
            }
        }
    });
    return bytes_of_fixed_arrays;
}

// Writes the tables that the table refers to, in the way `inner`.
template <class Inner, class Record, ByteOrder order>
KAPLO_INLINE constexpr void write_inner_tables(Writer<order>& writer, const Record& record, Inner inner,
                                               const ReferencesOf<Record>& references) {
    each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        [[maybe_unused]] constexpr std::uint32_t n = references_before<Record>(id);
        if constexpr (F::kind == Kind::nested_table) {
            writer.refer(references[n].own, writer.at() + vtable_bytes<typename F::Element>);
            writer = inner.write(writer, F::in(record));
        } else if constexpr (F::kind == Kind::table_vector) {
            if (references[n].own == nullptr) return;
            Inner of_elements = inner;
            for (std::uint32_t k = 0; k < F::count(record); ++k) {
                writer.refer(references[n].elements + std::size_t{k} * kReferenceBytes,
                             writer.at() + vtable_bytes<typename F::Element>);
                writer = of_elements.write(writer, F::elements(record)[k]);
            }
        }
    });
}

template <class Inner, class Record, ByteOrder order>
KAPLO_INLINE constexpr Writer<order> write_table_parts(Writer<order> writer, const Record& record,
                                                       Inner inner) {
    using Traits = Description<Record>;
    OpenTable<Record, order> table(writer);
    ReferencesOf<Record> references = {};
    write_inline_part(table, record, references);
    writer = Writer<order>(table.end());
    const std::uint32_t bytes_of_fixed_arrays = write_vectors(writer, record, references);
    table.close(Traits::table_length_omits_vectors ? table.length() + bytes_of_fixed_arrays
                                                   : static_cast<std::uint32_t>(writer.at() - table.table()));
    write_inner_tables(writer, record, inner, references);
    return writer;
}

// Writes the record's vtable, its table and all that the table refers to; inner tables in the way `inner`.
// Returns the writer after it.
template <class Inner, class Record>
[[gnu::flatten, gnu::noinline]] constexpr Writer<ByteOrder::host> write_table(Writer<ByteOrder::host> writer,
                                                                              const Record& record,
                                                                              Inner inner) {
    return write_table_parts(writer, record, inner);
}
template <class Inner, class Record>
KAPLO_FOR_REVERSED constexpr Writer<ByteOrder::reversed> write_table(Writer<ByteOrder::reversed> writer,
                                                                     const Record& record, Inner inner) {
    return write_table_parts(writer, record, inner);
}

// The plain way: inner tables are written as their outer one is. Quicker ways (see runtime/pack.h) write the
// same bytes.
struct Plainly {
    template <class Record, ByteOrder order>
    constexpr Writer<order> write(Writer<order> writer, const Record& record) const {
        return write_table(writer, record, *this);
    }
};

}  // namespace kaplo

#endif
