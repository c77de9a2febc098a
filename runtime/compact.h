// SPDX-License-Identifier: Apache-2.0
// Packing in the compact layout: zero scalars left out, every vtable right before its table.
#ifndef KAPLO_COMPACT_H
#define KAPLO_COMPACT_H

#include <array>
#include <cstdint>

#include "runtime/bounded.h"
#include "runtime/description.h"
#include "runtime/size.h"

namespace kaplo {

inline constexpr std::uint32_t kRefusal = 0xFFFFFFFF;

// Writes front to back into a buffer that was sized for the message; positions count from its start.
template <ByteOrder order>
class Writer {
  public:
    explicit Writer(std::uint8_t* buffer) : buffer_(buffer) {}

    std::uint32_t position() const { return at_; }

    // Leaves `bytes` for later and tells where they start.
    std::uint32_t reserve(std::uint32_t bytes) {
        const std::uint32_t start = at_;
        at_ += bytes;
        return start;
    }

    template <class T>
    void put(T value) {
        store<order>(buffer_ + reserve(sizeof(T)), value);
    }

    template <class T>
    void put_all(const T* elements, std::uint32_t count) {
        if constexpr (sizeof(T) == 1) {
            memcpy_s(buffer_ + reserve(count), count, elements, count);
        } else {
            for (std::uint32_t k = 0; k < count; ++k) put(elements[k]);
        }
    }

    // Makes the reserved reference point to `target`, which lies behind it.
    void refer(std::uint32_t reference, std::uint32_t target) {
        store<order>(buffer_ + reference, target - reference);
    }

    // Tells where the table will start, behind its vtable.
    template <class Record>
    std::uint32_t open_table() {
        const std::uint32_t vtable = reserve(vtable_bytes<Record>);
        constexpr std::uint32_t slot_bytes = kSlotBytes * slots<Record>;
        memset_s(buffer_ + vtable + kVtableHeaderBytes, slot_bytes, 0, slot_bytes);
        return reserve(kReferenceBytes);
    }

    template <class Record>
    void set_slot(std::uint32_t table, std::uint32_t id) {
        std::uint8_t* const vtable = buffer_ + table - vtable_bytes<Record>;
        store<ByteOrder::host>(vtable + slot_in_vtable(id), slot_entry<order>(at_ - table));
    }

    template <class Record>
    void close_table(std::uint32_t table, std::uint32_t length) {
        std::uint8_t* const vtable = buffer_ + table - vtable_bytes<Record>;
        store<ByteOrder::host>(vtable, vtable_length_entry<Record, order>);
        store<ByteOrder::host>(vtable + kSlotBytes, table_length_entry<Record, order>(length));
        store<order>(buffer_ + table, vtable_bytes<Record>);
    }

  private:
    std::uint8_t* buffer_;
    std::uint32_t at_ = 0;
};

// Writes the record's vtable, its table and all that the table refers to. Returns the table's position.
template <class Record, ByteOrder order>
std::uint32_t write_table(Writer<order>& writer, const Record& record) {
    using Traits = Description<Record>;
    const std::uint32_t table = writer.template open_table<Record>();
    std::array<std::uint32_t, slots<Record>> references = {};  // where each is reserved; 0: not written

    const auto write_inline = [&]<class F, std::uint32_t id> {
        if (!is_written<F>(record)) return;
        writer.template set_slot<Record>(table, id);
        if constexpr (F::kind == Kind::scalar) {
            writer.put(F::in(record));
        } else {
            references[id] = writer.reserve(kReferenceBytes);
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
    writer.template close_table<Record>(table, table_length);

    each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (F::kind == Kind::nested_table) {
            writer.refer(references[id], write_table(writer, F::in(record)));
        } else if constexpr (F::kind == Kind::table_vector) {
            if (references[id] == 0) return;
            for (std::uint32_t k = 0; k < F::count(record); ++k) {
                writer.refer(element_references[id] + k * kReferenceBytes,
                             write_table(writer, F::elements(record)[k]));
            }
        }
    });
    return table;
}

template <class Record, ByteOrder order>
std::uint32_t write_root(const Record& record, std::uint8_t* buffer) {
    Writer<order> writer(buffer);
    const std::uint32_t root_reference = writer.reserve(kReferenceBytes);
    writer.refer(root_reference, write_table(writer, record));
    return writer.position();
}

// Writes a message that message_bytes() has sized into `buffer`, which holds that many bytes. Returns the
// bytes written, fewer than the size where a vector's frame has a size but is not written; 0, with a
// line logged, for a null record or buffer or a capacity below 4.
template <class Record>
std::uint32_t write_message(Unit& unit, const Record* record, std::uint8_t* buffer, std::uint32_t capacity) {
    if (record == nullptr || capacity < kShortestBuffer || buffer == nullptr) {
        log_pack_arguments(unit, pack_name<Record>.c_str(), buffer, capacity, record);
        return 0;
    }
    return unit.byte_swap == 0 ? write_root<Record, ByteOrder::host>(*record, buffer)
                               : write_root<Record, ByteOrder::reversed>(*record, buffer);
}

// The exported pack of every message type.
template <class Record>
std::uint32_t pack(Unit& unit, const Record* record, std::uint8_t* buffer, std::uint32_t* length) {
    KaploMemHooksInit(unit);
    const std::uint32_t bytes = message_bytes(record);  // 0 for no record too
    if (bytes == 0 || length == nullptr || *length < bytes) return kRefusal;
    // Without a buffer this only logs: the caller still learns the size.
    write_message(unit, record, buffer, *length);
    *length = bytes;
    return 0;
}

}  // namespace kaplo

#endif
