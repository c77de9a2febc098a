// SPDX-License-Identifier: Apache-2.0
// Writing the compact layout: zero scalars left out, every vtable right before its table.
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

    // Leaves `bytes` for later and tells where they start.
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

    // Makes the reserved reference point to `target`, which lies behind it.
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
        const std::size_t place = place_ & kept;
        set_slot(id, place);
        if constexpr (sizeof(T) <= kReferenceBytes) {
            store<order>(table() + place, value);
        } else {
            const auto halves = std::bit_cast<std::array<std::uint32_t, 2>>(ordered<order>(value));
            store<ByteOrder::host>(table() + place, halves[0]);
            store<ByteOrder::host>(table() + place + (sizeof halves[0] & kept), halves[1]);
        }
        place_ += sizeof(T) & kept;
    }

    // Leaves room for a reference and tells where; null for a field that is left out.
    constexpr std::uint8_t* put_reference(std::uint32_t id, bool written) {
        set_slot(id, written ? place_ : 0);
        if (!written) return nullptr;
        std::uint8_t* const reference = table() + place_;
        place_ += kReferenceBytes;
        return reference;
    }

    constexpr std::uint32_t length() const { return static_cast<std::uint32_t>(place_); }
    constexpr std::uint8_t* table() const { return vtable_ + vtable_bytes<Record>; }
    constexpr std::uint8_t* end() const { return table() + place_; }

    constexpr void close(std::uint32_t length) const {
        store<ByteOrder::host>(vtable_, vtable_length_entry<Record, order>);
        store<ByteOrder::host>(vtable_ + kSlotBytes, table_length_entry<Record, order>(length));
        store<order>(table(), vtable_bytes<Record>);
    }

  private:
    constexpr void set_slot(std::uint32_t id, std::size_t place) {
        store<ByteOrder::host>(vtable_ + slot_in_vtable(id),
                               slot_entry<order>(static_cast<std::uint32_t>(place)));
    }

    std::uint8_t* vtable_;
    std::size_t place_ = kReferenceBytes;  // of the next field, from the table's start
};

// Writes the table of a record in a vector: by copying, if it has every scalar (see runtime/frame.h).
template <class Record, ByteOrder order>
constexpr Writer<order> write_element(Writer<order> writer, const Record& record, bool every_scalar);

// Writes the record's vtable, its table and all that the table refers to. `every_scalar`: it is known that no
// scalar in them is 0. Returns the writer behind it.
template <class Record, ByteOrder order>
[[gnu::flatten, gnu::noinline]] constexpr Writer<order> write_table(Writer<order> writer,
                                                                    const Record& record, bool every_scalar) {
    using Traits = Description<Record>;
    OpenTable<Record, order> table(writer);
    // Where each reference is reserved, later where its elements' are; null: not written.
    std::array<std::uint8_t*, references_before<Record>(slots<Record>)> references = {};

    const auto write_inline = [&]<class F, std::uint32_t id>() KAPLO_INLINE {
        if constexpr (F::kind == Kind::scalar) {
            table.put_scalar(id, F::in(record));
        } else {
            references[references_before<Record>(id)] = table.put_reference(id, is_written<F>(record));
        }
    };
    if constexpr (Traits::scalars_precede_references) {
        each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
            if constexpr (F::kind == Kind::scalar) write_inline.template operator()<F, id>();
        });
        each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
            if constexpr (F::kind != Kind::scalar) write_inline.template operator()<F, id>();
        });
    } else {
        each_field<Record>(write_inline);
    }
    writer = Writer<order>(table.end());
    std::uint32_t table_length = table.length();

    each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        [[maybe_unused]] constexpr std::uint32_t n = references_before<Record>(id);
        if constexpr (F::kind == Kind::fixed_array) {
            writer.refer(references[n], writer.at());
            writer.put(std::uint32_t{std::extent_v<typename F::Member>});
            writer.put_all(F::in(record), std::extent_v<typename F::Member>);
            table_length += fixed_array_bytes<F>;
        } else if constexpr (is_one_of<Kind::scalar_vector, Kind::table_vector>(F::kind)) {
            if (references[n] == nullptr) return;
            writer.refer(references[n], writer.at());
            writer.put(F::count(record));
            if constexpr (F::kind == Kind::scalar_vector) {
                writer.put_all(F::elements(record), F::count(record));
            } else {
                references[n] = writer.reserve(F::count(record) * kReferenceBytes);
            }
        }
    });
    if constexpr (!Traits::table_length_omits_vectors) {
        table_length = static_cast<std::uint32_t>(writer.at() - table.table());
    }
    table.close(table_length);

    each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        [[maybe_unused]] constexpr std::uint32_t n = references_before<Record>(id);
        if constexpr (F::kind == Kind::nested_table) {
            writer.refer(references[n], writer.at() + vtable_bytes<typename F::Element>);
            writer = write_table(writer, F::in(record), every_scalar);
        } else if constexpr (F::kind == Kind::table_vector) {
            if (references[n] == nullptr) return;
            for (std::uint32_t k = 0; k < F::count(record); ++k) {
                writer.refer(references[n] + std::size_t{k} * kReferenceBytes,
                             writer.at() + vtable_bytes<typename F::Element>);
                writer = write_element(writer, F::elements(record)[k], every_scalar);
            }
        }
    });
    return writer;
}

}  // namespace kaplo

#endif
