// SPDX-License-Identifier: Apache-2.0
// Promise: no received bytes make unpack misbehave, and its result is the plain reader's.
//
// Input: message type, byte order and failing allocation, then the received bytes.
#include "fuzz/checked_unit.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const auto type = supply.take<std::uint8_t>();
    const auto options = supply.take<std::uint8_t>();
    const std::endian order = fuzz::order_from(options);
    std::optional<std::size_t> failing;
    if ((options & 2) != 0) failing = options >> 2 & 7;
    const std::vector<std::uint8_t> bytes = supply.rest();
    fuzz::with_message_type(type,
                            [&]<class Record> { fuzz::unpack_and_compare<Record>(bytes, order, failing); });
    return 0;
}
