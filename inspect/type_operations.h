// SPDX-License-Identifier: Apache-2.0
// What only the compiler can do with a described record: decode it, size it, write its image.
#ifndef INSPECT_TYPE_OPERATIONS_H
#define INSPECT_TYPE_OPERATIONS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "inspect/checked_record.h"
#include "inspect/vorn_inspect.h"
#include "runtime/pack.h"
#include "runtime/size.h"
#include "runtime/unpack.h"

// Of a message; the pointers are not null, but write_image where there is no image.
struct vorn_type_operations {
    vorn_verdict (*check)(const std::uint8_t* bytes, std::uint32_t length);  // of a buffer's length
    vorn_verdict (*verify)(const vorn_type* type, const std::uint8_t* bytes, std::size_t length,
                           vorn_fault_handler on_fault, void* context);
    vorn_verdict (*unpack)(const std::uint8_t* bytes, std::size_t length, void* record);
    std::uint32_t (*packed_bytes)(const void* record);
    void (*write_image)(const void* record, std::uint8_t* buffer);
};

namespace inspect {

// The byte order that the library reads and writes.
inline constexpr auto kWireOrder =
    kaplo::kByteSwap == 0 ? kaplo::ByteOrder::host : kaplo::ByteOrder::reversed;

// The host's memory and log.
extern kaplo::Unit hooked_unit;

constexpr vorn_verdict verdict_of(kaplo::Outcome outcome) {
    switch (outcome) {
        case kaplo::Outcome::whole:
            return VORN_VERDICT_VALID;
        case kaplo::Outcome::bad_header:
            return VORN_VERDICT_HEADER;
        case kaplo::Outcome::bad_field:
            break;
    }
    return VORN_VERDICT_FIELD;
}

template <class Record>
vorn_verdict check(const std::uint8_t* bytes, std::uint32_t length) {
    CheckedRecord<Record> record;
    return verdict_of(kaplo::read_root(silent_unit, kaplo::Region<kWireOrder>(bytes, length), record));
}

// Whether that can be a message at all.
inline bool is_message_size(const std::uint8_t* bytes, std::size_t length) {
    return bytes != nullptr && length >= kaplo::kShortestBuffer && length <= kaplo::kLongestBuffer;
}

// Asks the decoder, and lets the walk explain what it refuses.
vorn_verdict verify_in_full(const vorn_type* type, const std::uint8_t* bytes, std::size_t length,
                            vorn_fault_handler on_fault, void* context);

// A message with its frame is valid without another look, as for unpack().
template <class Record>
vorn_verdict verify(const vorn_type* type, const std::uint8_t* bytes, std::size_t length,
                    vorn_fault_handler on_fault, void* context) {
    if constexpr (kaplo::has_frames<Record, kWireOrder>) {
        Record record;
        if (is_message_size(bytes, length) &&
            kaplo::read_framed_message(kaplo::Region<kWireOrder>(bytes, static_cast<std::uint32_t>(length)),
                                       record)) {
            return VORN_VERDICT_VALID;
        }
    }
    return verify_in_full(type, bytes, length, on_fault, context);
}

template <class Record>
vorn_verdict unpack(const std::uint8_t* bytes, std::size_t length, void* record) {
    kaplo::KaploMemHooksInit(hooked_unit);
    const auto size = static_cast<std::uint32_t>(std::min<std::size_t>(length, UINT32_MAX));
    if (!kaplo::check_unpack_arguments(hooked_unit, kaplo::unpack_name<Record>.c_str(), bytes, size,
                                       record)) {
        return VORN_VERDICT_ARGUMENT;
    }
    const kaplo::Region<kWireOrder> region(bytes, size);
    Record& made = *static_cast<Record*>(record);
    if (kaplo::read_framed_message(region, made)) return VORN_VERDICT_VALID;
    const vorn_verdict verdict = verdict_of(kaplo::read_root(hooked_unit, region, made));
    const bool lacked_memory =
        verdict != VORN_VERDICT_VALID && check<Record>(bytes, size) == VORN_VERDICT_VALID;
    return lacked_memory ? VORN_VERDICT_NO_MEMORY : verdict;
}

template <class Record>
std::uint32_t packed_bytes(const void* record) {
    return kaplo::message_bytes(static_cast<const Record*>(record));
}

template <class Record>
void write_image(const void* record, std::uint8_t* buffer) {
    kaplo::write_image(hooked_unit, *static_cast<const Record*>(record), buffer);
}

template <class Record>
constexpr vorn_type_operations make_operations() {
    vorn_type_operations made = {&check<Record>, &verify<Record>, &unpack<Record>, &packed_bytes<Record>,
                                 nullptr};
    if constexpr (!kaplo::owns_memory<Record>) made.write_image = &write_image<Record>;
    return made;
}
template <class Record>
inline constexpr vorn_type_operations operations_of = make_operations<Record>();

}  // namespace inspect

#endif
