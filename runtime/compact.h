// SPDX-License-Identifier: Apache-2.0
// Writing the compact layout: zero scalars left out, every vtable right before its table.
#ifndef KAPLO_COMPACT_H
#define KAPLO_COMPACT_H

#include <array>
#include <cstdint>
#include <type_traits>

#include "runtime/bounded.h"
#include "runtime/description.h"
#include "runtime/size.h"

namespace kaplo {

// Writes front to back into a buffer that was sized for the message; positions count from its start. Handed
// from function to function as a value, so that the cursor stays in a register.
template <ByteOrder order>
class Writer {
  public:
    constexpr explicit Writer(std::uint8_t* buffer) : buffer_(buffer) {}

    constexpr std::uint32_t position() const { return at_; }
    constexpr std::uint8_t* cursor() const { return buffer_ + at_; }

    // Leaves `bytes` for later and tells where they start.
    constexpr std::uint32_t reserve(std::uint32_t bytes) {
        const std::uint32_t start = at_;
        at_ += bytes;
        return start;
    }

    template <class T>
    constexpr void put(T value) {
        store<order>(buffer_ + reserve(sizeof(T)), value);
    }

    template <class T>
    constexpr void put_all(const T* elements, std::uint32_t count) {
        if (sizeof(T) == 1 && !std::is_constant_evaluated()) {
            memcpy_s(buffer_ + reserve(count), count, elements, count);
        } else {
            for (std::uint32_t k = 0; k < count; ++k) put(elements[k]);
        }
    }

    // Makes the reserved reference point to `target`, which lies behind it.
    constexpr void refer(std::uint32_t reference, std::uint32_t target) {
        store<order>(buffer_ + reference, target - reference);
    }

    // Where a table that is opened now will start.
    template <class Record>
    constexpr std::uint32_t next_table() const {
        return at_ + vtable_bytes<Record>;
    }

    // Leaves room for a vtable and a soffset, and tells where the table starts.
    template <class Record>
    constexpr std::uint32_t open_table() {
        [[maybe_unused]] const std::uint32_t vtable = reserve(vtable_bytes<Record>);
        if constexpr (kPlatformMemory) {
            constexpr std::uint32_t slot_bytes = kSlotBytes * slots<Record>;
            memset_s(buffer_ + vtable + kVtableHeaderBytes, slot_bytes, 0, slot_bytes);
        }
        return reserve(kReferenceBytes);
    }

    // Writes the field's slot: the cursor's place in the table, or 0 for a field that is left out.
    template <class Record>
    constexpr void set_slot(std::uint32_t table, std::uint32_t id, std::uint32_t place) {
        std::uint8_t* const vtable = buffer_ + table - vtable_bytes<Record>;
        store<ByteOrder::host>(vtable + slot_in_vtable(id), slot_entry<order>(place));
    }

    // Writes a scalar and its slot, or leaves out a 0. Without a branch, since it would be taken at random:
    // what is left out goes to the message's first eight bytes, which are written last.
    template <class Record, class T>
    constexpr void put_scalar(std::uint32_t table, std::uint32_t id, T value) {
        const std::uint32_t kept = 0 - std::uint32_t{value != 0};
        set_slot<Record>(table, id, (at_ - table) & kept);
        store<order>(buffer_ + (at_ & kept), value);
        at_ += sizeof(T) & kept;
    }

    template <class Record>
    constexpr void close_table(std::uint32_t table, std::uint32_t length) {
        std::uint8_t* const vtable = buffer_ + table - vtable_bytes<Record>;
        store<ByteOrder::host>(vtable, vtable_length_entry<Record, order>);
        store<ByteOrder::host>(vtable + kSlotBytes, table_length_entry<Record, order>(length));
        store<order>(buffer_ + table, vtable_bytes<Record>);
    }

  private:
    std::uint8_t* buffer_;
    std::uint32_t at_ = 0;
};

// Writes the table of a record in a vector: by copying, if every scalar is there (see runtime/frame.h).
template <class Record, ByteOrder order>
constexpr Writer<order> write_element(Writer<order> writer, const Record& record, bool every_scalar);

// Writes the record's vtable, its table and all that the table refers to. `every_scalar`: it is known that
// none is 0. Returns the writer behind it.
template <class Record, ByteOrder order>
[[gnu::flatten, gnu::noinline]] constexpr Writer<order> write_table(Writer<order> writer,
                                                                    const Record& record, bool every_scalar) {
    using Traits = Description<Record>;
    const std::uint32_t table = writer.template open_table<Record>();
    std::array<std::uint32_t, slots<Record>> references = {};  // where each is reserved; 0: not written

    const auto write_inline = [&]<class F, std::uint32_t id> {
        if constexpr (F::kind == Kind::scalar) {
            writer.template put_scalar<Record>(table, id, F::in(record));
        } else {
            const bool written = is_written<F>(record);
            writer.template set_slot<Record>(table, id, written ? writer.position() - table : 0);
            if (written) references[id] = writer.reserve(kReferenceBytes);
        }
    };
    if constexpr (Traits::scalars_precede_references) {
        each_field<Record>([&]<class F, std::uint32_t id> {
            if constexpr (F::kind == Kind::scalar) write_inline.template operator()<F, id>();
        });
        each_field<Record>([&]<class F, std::uint32_t id> {
            if constexpr (F::kind != Kind::scalar) write_inline.template operator()<F, id>();
        });
    } else {
        each_field<Record>(write_inline);
    }
    std::uint32_t table_length = writer.position() - table;

    std::array<std::uint32_t, slots<Record>> element_references = {};
    each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (F::kind == Kind::fixed_array) {
            writer.refer(references[id], writer.position());
            writer.put(std::uint32_t{std::extent_v<typename F::Member>});
            writer.put_all(F::in(record), std::extent_v<typename F::Member>);
            table_length += fixed_array_bytes<F>;
        } else if constexpr (is_one_of<Kind::scalar_vector, Kind::table_vector>(F::kind)) {
            if (references[id] == 0) return;
            writer.refer(references[id], writer.position());
            writer.put(F::count(record));
            if constexpr (F::kind == Kind::scalar_vector) {
                writer.put_all(F::elements(record), F::count(record));
            } else {
                element_references[id] = writer.reserve(F::count(record) * kReferenceBytes);
            }
        }
    });
    if constexpr (!Traits::table_length_omits_vectors) table_length = writer.position() - table;

    each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (F::kind == Kind::nested_table) {
            writer.refer(references[id], writer.template next_table<typename F::Element>());
            writer = write_table(writer, F::in(record), every_scalar);
        } else if constexpr (F::kind == Kind::table_vector) {
            if (references[id] == 0) return;
            for (std::uint32_t k = 0; k < F::count(record); ++k) {
                const auto& element = F::elements(record)[k];
                writer.refer(element_references[id] + k * kReferenceBytes,
                             writer.template next_table<typename F::Element>());
                writer = write_element(writer, element, every_scalar);
            }
        }
    });
    writer.template close_table<Record>(table, table_length);
    return writer;
}

}  // namespace kaplo

#endif
