// SPDX-License-Identifier: Apache-2.0
// Promise: a good message with a few of its bytes changed, or cut short, is read as the plain reader reads
// it.
//
// Most random bytes fail at the first check; these fail deep inside.
//
// Input: message type, layout and byte order, the changes, then the record.
#include "fuzz/checked_unit.h"

namespace {

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

template <class Record>
void damage(fuzz::Supply& supply, std::uint8_t options) {
    const std::endian order = fuzz::order_from(options);
    std::vector<Change> changes(1 + (options >> 2 & 3));
    for (Change& change : changes) {
        change = {supply.take<std::uint16_t>(), supply.take<std::uint8_t>(), supply.take<std::uint32_t>()};
    }
    const auto cut = supply.take<std::uint16_t>();
    std::optional<std::size_t> failing;
    if ((options & 16) != 0) failing = options >> 5;

    fuzz::CheckedUnit unit(order);
    fuzz::account.clear();
    fuzz::RecordSource source(supply);
    Record record = {};
    source.fill(record);
    std::vector<std::uint8_t> bytes = packed(unit, record, (options & 2) != 0);
    for (const Change& change : changes) {
        const std::size_t at = change.at % bytes.size();
        constexpr std::size_t widths[] = {1, 2, 4};
        const std::size_t width = std::min(widths[change.width % 3], bytes.size() - at);
        fuzz::put(bytes.data() + at, change.value, width);
    }
    if (cut % 4 == 0) bytes.resize(cut / 4 % (bytes.size() + 1));
    bytes.shrink_to_fit();
    fuzz::unpack_and_compare<Record>(bytes, order, failing);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const auto type = supply.take<std::uint8_t>();
    const auto options = supply.take<std::uint8_t>();
    fuzz::with_message_type(type, [&]<class Record> { damage<Record>(supply, options); });
    return 0;
}
