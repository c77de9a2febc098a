// SPDX-License-Identifier: Apache-2.0
// Promise: a valid message with a few of its bytes changed, or cut short, is read as the plain reader reads
// it.
//
// Most random bytes fail at the first check; these fail deep inside.
//
// Input: message type, layout and byte order, the changes, then the record.
#include "fuzz/damaged.h"

namespace {

template <class Record>
void damage(fuzz::Supply& supply, std::uint8_t options) {
    const std::vector<std::uint8_t> bytes = fuzz::damaged_message<Record>(supply, options);
    std::optional<std::size_t> failing;
    if ((options & 16) != 0) failing = options >> 5;
    fuzz::unpack_and_compare<Record>(bytes, fuzz::order_from(options), failing);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const auto type = supply.take<std::uint8_t>();
    const auto options = supply.take<std::uint8_t>();
    fuzz::with_message_type(type, [&]<class Record> { damage<Record>(supply, options); });
    return 0;
}
