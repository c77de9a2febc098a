// SPDX-License-Identifier: Apache-2.0
// Packing a record into a caller's buffer, in either layout.
#ifndef KAPLO_PACK_H
#define KAPLO_PACK_H

#include <cstdint>

#include "runtime/absent.h"
#include "runtime/compact.h"
#include "runtime/description.h"
#include "runtime/frame.h"
#include "runtime/image.h"
#include "runtime/inline.h"
#include "runtime/shapes.h"
#include "runtime/size.h"

namespace kaplo {

inline constexpr std::uint32_t kRefusal = 0xFFFFFFFF;

// What is known of the scalars in a message before it is written.
enum class Scalars : bool { unknown, all_present };

// The quickest way to write a table: by copying its frame, by its shape, or plainly.
class Quickly {
  public:
    explicit Quickly(Scalars scalars) : scalars_(scalars) {}

    template <class Record, ByteOrder order>
    KAPLO_INLINE inline Writer<order> write(Writer<order> writer, const Record& record) {
        if constexpr (has_frames<Record, order>) {
            if (scalars_ == Scalars::all_present || (seems_full_ && has_every_scalar(record))) {
                return write_framed(writer, record);
            }
            const std::uint8_t* const start = writer.at();
            writer = write_partly_filled(writer, record);
            // Elements of a list are alike: where this one lacks a scalar, so will the next.
            seems_full_ = writer.at() - start == CompactFrame<Record>::bytes;
            return writer;
        } else {
            return write_table(writer, record, *this);
        }
    }

  private:
    template <class Record>
    KAPLO_INLINE inline Writer<ByteOrder::host> write_partly_filled(Writer<ByteOrder::host> writer,
                                                                    const Record& record) const {
        if constexpr (!has_shapes<Record, ByteOrder::host>) {
            return write_table(writer, record, *this);
        } else if constexpr (has_inner_tables<Record>) {
            return write_tree(writer, record);
        } else {
            return write_shaped(writer, record, ByShape());
        }
    }

    // What a table of a shape refers to.
    struct ByShape {
        template <class Record>
        KAPLO_INLINE inline Writer<ByteOrder::host> write(Writer<ByteOrder::host> writer,
                                                          const Record& record) const {
            return Quickly(Scalars::unknown, false).write_partly_filled(writer, record);
        }
    };

    // A table with inner tables, once for all that call it.
    template <class Record>
    [[gnu::noinline]] static Writer<ByteOrder::host> write_tree(Writer<ByteOrder::host> writer,
                                                                const Record& record) {
        return write_shaped(writer, record, ByShape());
    }

    Quickly(Scalars scalars, bool seems_full) : scalars_(scalars), seems_full_(seems_full) {}

    Scalars scalars_;
    bool seems_full_ = true;
};

template <class Record, ByteOrder order>
KAPLO_INLINE inline std::uint32_t write_root_in_order(const Record& record, std::uint8_t* buffer,
                                                      Scalars scalars) {
    Writer<order> writer(buffer);
    writer.put(kReferenceBytes + vtable_bytes<Record>);
    writer = Quickly(scalars).write(writer, record);
    return static_cast<std::uint32_t>(writer.at() - buffer);
}

// Writes a message into a buffer that can hold it. Returns the bytes written.
template <class Record>
std::uint32_t write_root(const Unit& unit, const Record& record, std::uint8_t* buffer, Scalars scalars) {
    return unit.byte_swap == 0 ? write_root_in_order<Record, ByteOrder::host>(record, buffer, scalars)
                               : write_root_in_order<Record, ByteOrder::reversed>(record, buffer, scalars);
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
    return write_root(unit, *record, buffer,
                      bytes == most_message_bytes(*record) ? Scalars::all_present : Scalars::unknown);
}

// Packs from the beginning, where the size decides whether the capacity is enough.
template <class Record>
[[gnu::noinline]] std::uint32_t pack_sized(Unit& unit, const Record* record, std::uint8_t* buffer,
                                           std::uint32_t* length) {
    KaploMemHooksInit(unit);
    const std::uint32_t bytes = message_bytes(record);  // 0 for no record
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
        *length = write_root(unit, *record, buffer, Scalars::unknown) + left_out_bytes(*record);
        return 0;
    }
    return pack_sized(unit, record, buffer, length);
}

// The exported pack of every message type. Where the capacity is plainly enough a record without vectors is
// written here, where no call means no register to save.
template <class Record>
KAPLO_INLINE inline std::uint32_t pack(Unit& unit, const Record* record, std::uint8_t* buffer,
                                       std::uint32_t* length) {
    if constexpr (owns_memory<Record>) {
        return pack_vectors(unit, record, buffer, length);
    } else {
        if constexpr (has_frames<Record, ByteOrder::host>) {
            if (record != nullptr && length != nullptr &&
                *length >= kReferenceBytes + CompactFrame<Record>::bytes && buffer != nullptr &&
                has_memory_hooks(unit) && unit.byte_swap == 0) {
                *length = write_root_in_order<Record, ByteOrder::host>(*record, buffer, Scalars::unknown);
                return 0;
            }
        }
        return pack_sized(unit, record, buffer, length);
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
