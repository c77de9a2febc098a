// SPDX-License-Identifier: Apache-2.0
// Packing a record into a caller's buffer, in either layout.
#ifndef KAPLO_PACK_H
#define KAPLO_PACK_H

#include <cstdint>

#include "runtime/compact.h"
#include "runtime/description.h"
#include "runtime/frame.h"
#include "runtime/image.h"
#include "runtime/size.h"

namespace kaplo {

inline constexpr std::uint32_t kRefusal = 0xFFFFFFFF;

// Writes a message of `bytes` bytes. Returns how many were written.
template <class Record, ByteOrder order>
std::uint32_t write_root(const Record& record, std::uint8_t* buffer, std::uint32_t bytes) {
    Writer<order> writer(buffer);
    const std::uint32_t root_reference = writer.reserve(kReferenceBytes);
    const std::uint32_t table = writer.template next_table<Record>();
    const bool every_scalar = has_every_scalar(record, bytes - kReferenceBytes);
    if constexpr (has_frames<Record, order>) {
        writer = every_scalar ? write_framed(writer, record) : write_table(writer, record, false);
    } else {
        writer = write_table(writer, record, every_scalar);
    }
    writer.refer(root_reference, table);
    return writer.position();
}

// Writes a message that message_bytes() has sized to `bytes` into `buffer`, which holds that many. Returns
// the bytes written, fewer than the size where a vector's frame has a size but is not written; 0, with a
// line logged, for a null record or buffer or a capacity below 4.
template <class Record>
std::uint32_t write_message(Unit& unit, const Record* record, std::uint8_t* buffer, std::uint32_t bytes,
                            std::uint32_t capacity) {
    if (record == nullptr || capacity < kShortestBuffer || buffer == nullptr) {
        log_pack_arguments(unit, pack_name<Record>.c_str(), buffer, capacity, record);
        return 0;
    }
    return unit.byte_swap == 0 ? write_root<Record, ByteOrder::host>(*record, buffer, bytes)
                               : write_root<Record, ByteOrder::reversed>(*record, buffer, bytes);
}

// The exported pack of every message type.
template <class Record>
[[gnu::always_inline]] inline std::uint32_t pack(Unit& unit, const Record* record, std::uint8_t* buffer,
                                                 std::uint32_t* length) {
    KaploMemHooksInit(unit);
    const std::uint32_t bytes = message_bytes(record);  // 0 for no record too
    if (bytes == 0 || length == nullptr || *length < bytes) return kRefusal;
    // Without a buffer this only logs: the caller still learns the size.
    write_message(unit, record, buffer, bytes, *length);
    *length = bytes;
    return 0;
}

// Writes the record's fixed image, Image<Record>::bytes at `image`. Cannot fail.
template <class Record>
[[gnu::always_inline]] inline void write_image(Unit& unit, const Record& record, std::uint8_t* image) {
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
