// SPDX-License-Identifier: Apache-2.0
// Valid messages with a few of their bytes changed, or cut short, made from a fuzzer's input.
//
// Input: options with layout and byte order, the changes, then the record.
#ifndef FUZZ_DAMAGED_H
#define FUZZ_DAMAGED_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "fuzz/checked_unit.h"

namespace fuzz {

struct Change {
    std::uint16_t at;
    std::uint8_t width;
    std::uint32_t value;
};

template <class Record>
std::vector<std::uint8_t> packed(kaplo::Unit& unit, const Record& record, bool as_image) {
    if constexpr (!kaplo::owns_memory<Record>) {
        if (as_image) {
            std::vector<std::uint8_t> image(kaplo::Image<Record>::bytes);
            kaplo::write_image(unit, record, image.data());
            return image;
        }
    }
    std::vector<std::uint8_t> bytes(kaplo::message_bytes(&record));
    auto length = static_cast<std::uint32_t>(bytes.size());
    kaplo::pack(unit, &record, bytes.data(), &length);
    return bytes;
}

// The damaged message of this type; `options` hold the layout, the byte order and how much changes.
template <class Record>
std::vector<std::uint8_t> damaged_message(Supply& supply, std::uint8_t options) {
    std::vector<Change> changes(1 + (options >> 2 & 3));
    for (Change& change : changes) {
        change = {supply.take<std::uint16_t>(), supply.take<std::uint8_t>(), supply.take<std::uint32_t>()};
    }
    const auto cut = supply.take<std::uint16_t>();

    CheckedUnit unit(order_from(options));
    account.clear();
    RecordSource source(supply);
    Record record = {};
    source.fill(record);
    std::vector<std::uint8_t> bytes = packed(unit, record, (options & 2) != 0);
    for (const Change& change : changes) {
        const std::size_t at = change.at % bytes.size();
        constexpr std::size_t widths[] = {1, 2, 4};
        const std::size_t width = std::min(widths[change.width % 3], bytes.size() - at);
        put(bytes.data() + at, change.value, width);
    }
    if (cut % 4 == 0) bytes.resize(cut / 4 % (bytes.size() + 1));
    bytes.shrink_to_fit();
    return bytes;
}

}  // namespace fuzz

#endif
