// SPDX-License-Identifier: Apache-2.0
// Packing a record into a caller's buffer, in either layout.
#ifndef KAPLO_PACK_H
#define KAPLO_PACK_H

#include <cstdint>

#include "runtime/compact.h"
#include "runtime/description.h"
#include "runtime/frame.h"
#include "runtime/image.h"
#include "runtime/inline.h"
#include "runtime/size.h"

namespace kaplo {

inline constexpr std::uint32_t kRefusal = 0xFFFFFFFF;

template <class Record, ByteOrder order>
std::uint32_t write_root_in_order(const Record& record, std::uint8_t* buffer, bool every_scalar) {
    Writer<order> writer(buffer);
    writer.put(kReferenceBytes + vtable_bytes<Record>);
    if constexpr (has_frames<Record, order>) {
        writer = every_scalar ? write_framed(writer, record) : write_table(writer, record, false);
    } else {
        writer = write_table(writer, record, every_scalar);
    }
    return static_cast<std::uint32_t>(writer.at() - buffer);
}

// Writes a message into a buffer that can hold it. `every_scalar`: it is known that none is 0. Returns the
// bytes written.
template <class Record>
std::uint32_t write_root(const Unit& unit, const Record& record, std::uint8_t* buffer, bool every_scalar) {
    return unit.byte_swap == 0
               ? write_root_in_order<Record, ByteOrder::host>(record, buffer, every_scalar)
               : write_root_in_order<Record, ByteOrder::reversed>(record, buffer, every_scalar);
}

// Writes a message that message_bytes() has sized to `bytes` into `buffer`, which holds that many. Returns
// the bytes written, fewer than the size where an empty vector has a size but is not written; 0, with a
// line logged, for a null record or buffer or a capacity below 4.
template <class Record>
std::uint32_t write_message(Unit& unit, const Record* record, std::uint8_t* buffer, std::uint32_t bytes,
                            std::uint32_t capacity) {
    if (record == nullptr || capacity < kShortestBuffer || buffer == nullptr) {
        log_pack_arguments(unit, pack_name<Record>.c_str(), buffer, capacity, record);
        return 0;
    }
    return write_root(unit, *record, buffer, bytes == most_message_bytes(*record));
}

// Packs from the beginning, a record that message_bytes() has sized to `bytes`.
template <class Record>
[[gnu::noinline]] std::uint32_t pack_sized(Unit& unit, const Record* record, std::uint8_t* buffer,
                                           std::uint32_t* length, std::uint32_t bytes) {
    KaploMemHooksInit(unit);
    if (bytes == 0 || length == nullptr || *length < bytes) return kRefusal;
    // Without a buffer this only logs: the caller still learns the size.
    write_message(unit, record, buffer, bytes, *length);
    *length = bytes;
    return 0;
}

// Packs a record with vectors.
template <class Record>
[[gnu::noinline]] std::uint32_t pack_vectors(Unit& unit, const Record* record, std::uint8_t* buffer,
                                             std::uint32_t* length) {
    KaploMemHooksInit(unit);
    if (record == nullptr || length == nullptr) return kRefusal;
    // Where the capacity is plainly enough the elements need not be walked twice.
    if (buffer != nullptr && *length >= most_message_bytes(*record)) {
        *length = write_root(unit, *record, buffer, false) + left_out_bytes(*record);
        return 0;
    }
    return pack_sized(unit, record, buffer, length, message_bytes(record));
}

// The exported pack of every message type. A record that fills its frame is written here, where no call means
// no register to save.
template <class Record>
KAPLO_INLINE inline std::uint32_t pack(Unit& unit, const Record* record, std::uint8_t* buffer,
                                       std::uint32_t* length) {
    if constexpr (owns_memory<Record>) {
        return pack_vectors(unit, record, buffer, length);
    } else {
        const std::uint32_t bytes = message_bytes(record);  // 0 for no record
        if constexpr (has_frames<Record, ByteOrder::host>) {
            if (bytes == kReferenceBytes + CompactFrame<Record>::bytes && has_memory_hooks(unit) &&
                buffer != nullptr && length != nullptr && *length >= bytes && unit.byte_swap == 0) {
                write_root_in_order<Record, ByteOrder::host>(*record, buffer, true);
                *length = bytes;
                return 0;
            }
        }
        return pack_sized(unit, record, buffer, length, bytes);
    }
}

// Writes the record's fixed image, Image<Record>::bytes at `image`. Cannot fail.
template <class Record>
KAPLO_INLINE inline void write_image(Unit& unit, const Record& record, std::uint8_t* image) {
    KaploMemHooksInit(unit);
    if (unit.byte_swap != 0) {
        write_blank_image<Record, ByteOrder::reversed>(image);
        write_image_fields<Record, ByteOrder::reversed>(record, image);
    } else if constexpr (has_frames<Record, ByteOrder::host>) {
        ImageFrame<Record>::write(record, image);
    } else {
        write_blank_image<Record, ByteOrder::host>(image);
        write_image_fields<Record, ByteOrder::host>(record, image);
    }
}

}  // namespace kaplo

#endif
