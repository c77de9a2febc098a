// SPDX-License-Identifier: Apache-2.0
// Packing in the fixed layout: a record's image, every field present at an offset known to the compiler.
#ifndef KAPLO_IMAGE_H
#define KAPLO_IMAGE_H

#include <array>
#include <cstdint>

#include "runtime/bounded.h"
#include "runtime/description.h"

namespace kaplo {

// Writes everything of an image that is the same for all records.
template <class Record, ByteOrder order>
constexpr void write_frame(std::uint8_t* image) {
    std::uint8_t* const table = image + kReferenceBytes;
    std::uint8_t* const vtable = table + Image<Record>::vtable;
    const auto put_entry = [](std::uint8_t* at, std::uint16_t entry) { store<ByteOrder::host>(at, entry); };

    store<order>(image, kReferenceBytes);
    store<order>(table, 0 - Image<Record>::vtable);
    put_entry(vtable, vtable_length_entry<Record, order>);
    put_entry(vtable + kSlotBytes, table_length_entry<Record, order>(Image<Record>::table_length));
    each_field<Record>([&]<class F, std::uint32_t id> {
        constexpr std::uint32_t offset = Image<Record>::offsets[id];
        put_entry(vtable + slot_in_vtable(id), slot_entry<order>(offset));
        if constexpr (F::kind == Kind::nested_table) {
            write_frame<typename F::Element, order>(table + offset);
        } else if constexpr (F::kind == Kind::fixed_array) {
            store<order>(table + offset, kReferenceBytes);
            store<order>(table + offset + kReferenceBytes, std::uint32_t{std::extent_v<typename F::Member>});
        }
    });
}

// The image of an all-zero record, padding zero too: no byte of a sender's memory reaches the bus.
template <class Record, ByteOrder order>
inline constexpr auto blank_image = [] {
    std::array<std::uint8_t, Image<Record>::bytes> image = {};
    write_frame<Record, order>(image.data());
    return image;
}();

template <class Record, ByteOrder order>
constexpr void write_image_fields(const Record& record, std::uint8_t* image) {
    each_field<Record>([&]<class F, std::uint32_t id> {
        std::uint8_t* const at = image + kReferenceBytes + Image<Record>::offsets[id];
        if constexpr (F::kind == Kind::scalar) {
            store<order>(at, F::in(record));
        } else if constexpr (F::kind == Kind::nested_table) {
            write_image_fields<typename F::Element, order>(F::in(record), at);
        } else {
            using Element = typename F::Element;
            std::uint8_t* const elements = at + kReferenceBytes + kCountBytes;
            for (std::uint32_t k = 0; k < std::extent_v<typename F::Member>; ++k) {
                store<order>(elements + k * sizeof(Element), F::in(record)[k]);
            }
        }
    });
}

template <class Record, ByteOrder order>
void write_blank_image(std::uint8_t* image) {
    constexpr const auto& blank = blank_image<Record, order>;
    memcpy_s(image, blank.size(), blank.data(), blank.size());
}

}  // namespace kaplo

#endif
